// SPDX-License-Identifier: MIT
#pragma once
// IF panoramas of a scene: signals over a noise floor, as a receiver's filter shows them.
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/random.h"

namespace simulation {

/// Powers of a noise floor, averaged as a receiver averages; drawn from a table, since a trace needs
/// thousands.
class NoiseFloor {
public:
    NoiseFloor(double meanDbuv, std::uint64_t seed);

    /// The next noise power, linear (uV squared).
    double power() { return m_powers[m_random.next() % m_powers.size()]; }

private:
    Random m_random;
    std::vector<double> m_powers;
};

class BandGenerator : public Generator {
public:
    BandGenerator(const Scene& scene, std::uint64_t seed);

    Made make(const Interval& interval) override;

private:
    void add(const Appearance& appearance);

    Scene m_scene;
    std::uint64_t m_seed;
    double m_firstHz;
    double m_stepHz;
    double m_filterHz; // width of the receiver's filter at half power
    double m_floorDbuv;
    NoiseFloor m_noise;
    std::vector<double> m_powers; // per channel, linear
    std::vector<std::int16_t> m_levels;
};

/// The optional header of an IF panorama; the step is `spanHz` / (`points` - 1).
[[nodiscard]] wire::Bytes panoramaHeader(const Scene& scene, std::int64_t stampNs);

/// Adds what the filter of width `filterHz` shows of a signal to `powers`, whose channels lie at `firstHz` +
/// k x `stepHz`; up to where it is lost below `floorDbuv`.
struct Grid {
    double firstHz;
    double stepHz;
    double filterHz;
    double floorDbuv;
};
void addSignal(std::vector<double>& powers, const Grid& grid, const Appearance& appearance);

} // namespace simulation
