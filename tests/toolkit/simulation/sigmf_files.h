// SPDX-License-Identifier: MIT
#pragma once
// Generated I/Q in SigMF files, and a plain spectrum to compare with.
#include <complex>
#include <string>
#include <vector>

namespace support {

using Iq = std::vector<std::complex<double>>;

/// A tone: `amplitude` of full scale at `frequencyHz` from the centre, in samples `from` to `to` - 1.
struct Tone {
    double frequencyHz;
    double amplitude;
    std::size_t from = 0;
    std::size_t to = ~std::size_t{0};
};

[[nodiscard]] Iq tones(std::size_t samples, double sampleRate, const std::vector<Tone>& what);

/// Writes `folder`/iq.sigmf-meta and -data.
/// Result: the path of the former.
std::string writeSigmf(const std::string& folder, const Iq& iq, const std::string& datatype,
                       double sampleRate, double centreHz);

/// The recording behind a .sigmf-meta file of type cu8.
[[nodiscard]] Iq readCu8(const std::string& metaPath);

/// The Hann-windowed power of `iq` at `frequency` (parts of the sample rate) in the window of `size` samples
/// from `first` on, by the definition of the transform; 1 for a tone of full scale.
[[nodiscard]] double power(const Iq& iq, std::size_t first, std::size_t size, double frequency);

/// The largest such power of all windows from `from` on that begin before `to`, half over each other.
[[nodiscard]] double largestPower(const Iq& iq, std::size_t from, std::size_t to, std::size_t size,
                                  double frequency);

} // namespace support
