// SPDX-License-Identifier: MIT
#include "sigmf_files.h"
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numbers>

namespace support {

namespace {

template <typename T>
void put(std::string& bytes, double value)
{
    const T stored = static_cast<T>(value);
    bytes.append(reinterpret_cast<const char*>(&stored), sizeof stored);
}

void putComponent(std::string& bytes, double value, const std::string& datatype)
{
    if (datatype == "cu8")
        put<std::uint8_t>(bytes, std::round(value * 127.5 + 127.5));
    else if (datatype == "ci8")
        put<std::int8_t>(bytes, std::round(value * 127));
    else if (datatype == "ci16_le")
        put<std::int16_t>(bytes, std::round(value * 32767));
    else
        put<float>(bytes, value);
}

} // namespace

Iq tones(std::size_t samples, double sampleRate, const std::vector<Tone>& what)
{
    Iq iq(samples);
    for (const Tone& tone : what) {
        for (std::size_t i = tone.from; i < std::min(tone.to, samples); ++i)
            iq[i] += std::polar(tone.amplitude, 2 * std::numbers::pi * tone.frequencyHz *
                                                    static_cast<double>(i) / sampleRate);
    }
    return iq;
}

std::string writeSigmf(const std::string& folder, const Iq& iq, const std::string& datatype,
                       double sampleRate, double centreHz)
{
    std::string bytes;
    for (const std::complex<double>& sample : iq) {
        putComponent(bytes, sample.real(), datatype);
        putComponent(bytes, sample.imag(), datatype);
    }
    std::ofstream{folder + "/iq.sigmf-data", std::ios::binary} << bytes;
    std::ofstream{folder + "/iq.sigmf-meta"}
        << "{\"global\": {\"core:datatype\": \"" << datatype << "\", \"core:sample_rate\": " << sampleRate
        << "}, \"captures\": [{\"core:sample_start\": 0, \"core:frequency\": " << std::fixed << centreHz
        << "}]}";
    return folder + "/iq.sigmf-meta";
}

Iq readCu8(const std::string& metaPath)
{
    std::string path = metaPath;
    path.replace(path.rfind(".sigmf-meta"), std::string::npos, ".sigmf-data");
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    Iq iq(bytes.size() / 2);
    for (std::size_t i = 0; i < iq.size(); ++i)
        iq[i] = {(static_cast<unsigned char>(bytes[2 * i]) - 127.5) / 127.5,
                 (static_cast<unsigned char>(bytes[2 * i + 1]) - 127.5) / 127.5};
    return iq;
}

double power(const Iq& iq, std::size_t first, std::size_t size, double frequency)
{
    const double turn = -2 * std::numbers::pi * frequency;
    const std::complex<double> step = std::polar(1.0, turn);
    std::complex<double> rotation = 1;
    std::complex<double> sum = 0;
    double windowSum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const double place = (static_cast<double>(i) + 0.5) / static_cast<double>(size);
        const double hann = std::pow(std::sin(std::numbers::pi * place), 2);
        sum += hann * iq[first + i] * rotation;
        rotation *= step;
        windowSum += hann;
    }
    return std::norm(sum / windowSum);
}

double largestPower(const Iq& iq, std::size_t from, std::size_t to, std::size_t size, double frequency)
{
    double largest = 0;
    for (std::size_t first = from; first < to && first + size <= iq.size(); first += size / 2)
        largest = std::max(largest, power(iq, first, size, frequency));
    return largest;
}

} // namespace support
