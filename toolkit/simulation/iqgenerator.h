// SPDX-License-Identifier: MIT
#pragma once
// Traces from recorded I/Q.
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/iqfile.h"
#include "toolkit/simulation/spectrum.h"

namespace simulation {

/// Where in a recording the traces lie: one behind the other at the scene's rate, over and over in a loop.
class IqPosition {
public:
    /// `needed`: samples that a trace cannot do without.
    IqPosition(const Scene& scene, const IqFile& file, std::uint64_t needed);

    [[nodiscard]] std::uint64_t first() const { return sampleOf(m_index); }
    [[nodiscard]] std::uint64_t next() const { return sampleOf(m_index + 1); }
    [[nodiscard]] bool isAtEnd() const { return first() + m_needed > m_samples; }
    void advance();

private:
    [[nodiscard]] std::uint64_t sampleOf(std::uint64_t index) const;

    double m_samplesPerTrace;
    std::uint64_t m_samples;
    std::uint64_t m_needed;
    bool m_isLooping;
    std::uint64_t m_index = 0;
};

/// IF panoramas: each channel is the largest power of its bins in all spectra of the trace's time, so that a
/// short burst is not missed. Levels are in tenths of a dB relative to full scale.
class IqPanorama : public Generator {
public:
    /// Errors: BadScene.
    explicit IqPanorama(const Scene& scene);

    Made make(const Interval& interval) override;
    [[nodiscard]] bool isAtEnd() const override { return m_position.isAtEnd(); }

private:
    [[nodiscard]] double largest(std::span<const double> bins, std::size_t channel) const;

    Scene m_scene;
    IqFile m_file;
    std::size_t m_size; // samples of a spectrum
    Spectrum m_spectrum;
    IqPosition m_position;
    double m_lowestHz; // of channel 0, from the recording's centre
};

/// Zero-span traces of the recording's whole bandwidth: each value is the mean power of its samples.
class IqZeroSpan : public Generator {
public:
    /// Errors: BadScene.
    explicit IqZeroSpan(const Scene& scene);

    Made make(const Interval& interval) override;
    [[nodiscard]] bool isAtEnd() const override { return m_position.isAtEnd(); }

private:
    Scene m_scene;
    IqFile m_file;
    std::int64_t m_spanNs;
    double m_samplesPerValue;
    IqPosition m_position;
};

} // namespace simulation
