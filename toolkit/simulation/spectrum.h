// SPDX-License-Identifier: MIT
#pragma once
// Power spectra of I/Q.
#include <complex>
#include <fftw3.h>
#include <memory>
#include <span>
#include <vector>

namespace simulation {

/// Windowed spectra of a fixed length.
/// Thread: making one uses FFTW's planner, which is not safe against another thread's.
class Spectrum {
public:
    /// `size`: samples of a spectrum, at least 1.
    explicit Spectrum(std::size_t size);

    /// Power of each bin with a Hann window; a tone of full scale in the middle of a bin gives 1.
    /// Shape:  `samples` has the constructor's size; bin k lies at k / size of the sample rate, those from
    /// size / 2 on are negative frequencies.
    [[nodiscard]] std::span<const double> powers(std::span<const std::complex<float>> samples);

private:
    struct Free {
        void operator()(fftwf_complex* memory) const { fftwf_free(memory); }
        void operator()(fftwf_plan plan) const { fftwf_destroy_plan(plan); }
    };
    std::size_t m_size;
    std::vector<float> m_window; // divided by its sum
    std::unique_ptr<fftwf_complex, Free> m_data;
    std::unique_ptr<std::remove_pointer_t<fftwf_plan>, Free> m_plan;
    std::vector<double> m_powers;
};

} // namespace simulation
