// SPDX-License-Identifier: MIT
#include "toolkit/simulation/spectrum.h"
#include <cmath>
#include <numbers>

namespace simulation {

Spectrum::Spectrum(std::size_t size)
    : m_size(size)
    , m_window(size)
    , m_data(fftwf_alloc_complex(size))
    // Estimated, never measured: a measured plan may differ from run to run, and rounding with it.
    , m_plan(
          fftwf_plan_dft_1d(static_cast<int>(size), m_data.get(), m_data.get(), FFTW_FORWARD, FFTW_ESTIMATE))
    , m_powers(size)
{
    double sum = 0;
    std::vector<double> hann(size);
    for (std::size_t i = 0; i < size; ++i) {
        const double phase =
            2 * std::numbers::pi * (static_cast<double>(i) + 0.5) / static_cast<double>(size);
        hann[i] = 0.5 - 0.5 * std::cos(phase);
        sum += hann[i];
    }
    for (std::size_t i = 0; i < size; ++i)
        m_window[i] = static_cast<float>(hann[i] / sum);
}

std::span<const double> Spectrum::powers(std::span<const std::complex<float>> samples)
{
    for (std::size_t i = 0; i < m_size; ++i) {
        m_data.get()[i][0] = samples[i].real() * m_window[i];
        m_data.get()[i][1] = samples[i].imag() * m_window[i];
    }
    fftwf_execute(m_plan.get());
    for (std::size_t i = 0; i < m_size; ++i) {
        const double real = m_data.get()[i][0];
        const double imaginary = m_data.get()[i][1];
        m_powers[i] = real * real + imaginary * imaginary;
    }
    return m_powers;
}

} // namespace simulation
