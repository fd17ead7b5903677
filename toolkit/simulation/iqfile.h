// SPDX-License-Identifier: MIT
#pragma once
// Recorded I/Q in SigMF: a .sigmf-meta file that describes the samples in the .sigmf-data file beside it.
#include "toolkit/simulation/scene.h"
#include <complex>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace simulation {

using Sample = std::complex<float>; // full scale: 1

class IqFile {
public:
    /// `path`: of the .sigmf-meta file.
    /// Errors: BadScene when a file cannot be read or describes samples of another kind.
    explicit IqFile(const std::string& path);

    [[nodiscard]] double sampleRate() const { return m_sampleRate; }
    [[nodiscard]] std::uint64_t samples() const { return m_samples; }
    /// Nothing where the recording does not say it.
    [[nodiscard]] std::optional<double> centreHz() const { return m_centreHz; }
    [[nodiscard]] const std::string& name() const { return m_path; }

    /// Samples `first` to `first` + `count` - 1; those behind the end are 0.
    [[nodiscard]] const std::vector<Sample>& read(std::uint64_t first, std::size_t count);

private:
    enum class Format : std::uint8_t { Cu8, Ci8, Ci16, Cf32 };

    void readMeta();
    void openData();
    [[nodiscard]] std::size_t sampleSize() const;
    [[nodiscard]] float component(const unsigned char* at) const;

    std::string m_path;
    Format m_format = Format::Cu8;
    double m_sampleRate = 0;
    std::optional<double> m_centreHz;
    std::uint64_t m_samples = 0;
    std::ifstream m_data;
    std::vector<unsigned char> m_bytes;
    std::vector<Sample> m_read;
};

/// Sets `scene` as a receiver on the recording's centre frequency is set, with 80 % of its sample rate as
/// span; settings can be changed afterwards.
/// Errors: BadScene.
void useRecording(Scene& scene, const std::string& path);

} // namespace simulation
