// SPDX-License-Identifier: MIT
#pragma once
// Zero-span traces of a scene: the level at one frequency over time.
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/random.h"

namespace simulation {

class ZeroSpanGenerator : public Generator {
public:
    ZeroSpanGenerator(const Scene& scene, std::uint64_t seed);

    Made make(const Interval& interval) override;

private:
    Scene m_scene;
    std::uint64_t m_seed;
    Random m_noise;
    double m_floorPower;         // linear
    double m_fullScaleAmplitude; // of the second field
};

/// The optional header of a zero-span trace whose time axis of `spanNs` begins at 0: its trigger.
[[nodiscard]] wire::Bytes zeroSpanHeader(std::int64_t spanNs, std::int64_t stampNs);

/// `windowMs` in ns, such that the steps between `points` values are whole: else the end of the axis, which
/// is compared exactly, could differ from trace to trace by rounding.
[[nodiscard]] std::int64_t timeAxisNs(double windowMs, int points);

/// A zero-span attribute: levels (bit 0), and amplitudes as parts of full scale (bit 23).
[[nodiscard]] wire::DatagramWriter zeroSpanDatagram(const std::vector<std::int16_t>& levels,
                                                    const std::vector<std::int16_t>& amplitudes,
                                                    const wire::Bytes& header);

/// A part of full scale, 0 to 1, as bit 23 has it: 32767 is full scale.
[[nodiscard]] std::int16_t fullScalePart(double part);

} // namespace simulation
