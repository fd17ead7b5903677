// SPDX-License-Identifier: MIT
#include "toolkit/simulation/iqgenerator.h"
#include "toolkit/simulation/bandgenerator.h"
#include "toolkit/simulation/zerospangenerator.h"
#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace simulation {

namespace {

constexpr double mostSpectrumSize = 1 << 20;
constexpr double smallestSpectrumSize = 16;
constexpr double mostSamplesPerTrace = 1 << 26;

// Of silence, which has no logarithm, the lowest level.
std::int16_t levelOf(double power)
{
    constexpr double silence = 1e-30;
    return tenths(10 * std::log10(std::max(power, silence)));
}

// So many samples that bins lie at most one step apart, and exactly so where that can be.
std::size_t spectrumSize(const Scene& scene, const IqFile& file)
{
    const double wanted = file.sampleRate() / scene.stepHz();
    const double whole = std::round(wanted);
    const double size = std::abs(wanted - whole) < 1e-6 * whole ? whole : std::ceil(wanted);
    if (size > mostSpectrumSize)
        throw BadScene{fmt::format("{}: expected steps of at least {:g} Hz, found {:g}", file.name(),
                                   file.sampleRate() / mostSpectrumSize, scene.stepHz())};
    return static_cast<std::size_t>(std::max(size, smallestSpectrumSize));
}

double centreOf(const Scene& scene, const IqFile& file)
{
    return file.centreHz().value_or(scene.centreHz);
}

void checkInside(const Scene& scene, const IqFile& file)
{
    const double centre = centreOf(scene, file);
    const double half = file.sampleRate() / 2;
    if (std::abs(scene.centreHz - centre) + scene.spanHz / 2 > half)
        throw BadScene{
            fmt::format("{}: expected a centre and span inside {:.0f} to {:.0f} Hz, found {:.0f} to {:.0f}",
                        file.name(), centre - half, centre + half, scene.centreHz - scene.spanHz / 2,
                        scene.centreHz + scene.spanHz / 2)};
}

double samplesPerValue(std::int64_t spanNs, const Scene& scene, const IqFile& file)
{
    const double samples = static_cast<double>(spanNs) * 1e-9 * file.sampleRate() / (scene.points - 1);
    if (samples * scene.points > mostSamplesPerTrace)
        throw BadScene{fmt::format("{}: expected a windowMs of at most {:g}, found {:g}", file.name(),
                                   mostSamplesPerTrace * 1e3 / file.sampleRate(), scene.windowMs)};
    return samples;
}

} // namespace

IqPosition::IqPosition(const Scene& scene, const IqFile& file, std::uint64_t needed)
    : m_samplesPerTrace(file.sampleRate() / scene.rate)
    , m_samples(file.samples())
    , m_needed(needed)
    , m_isLooping(scene.iqLoop)
{
    if (m_needed > m_samples)
        throw BadScene{fmt::format("{}: expected at least {} samples, which one trace takes, found {}",
                                   file.name(), m_needed, m_samples)};
}

std::uint64_t IqPosition::sampleOf(std::uint64_t index) const
{
    return static_cast<std::uint64_t>(std::llround(static_cast<double>(index) * m_samplesPerTrace));
}

void IqPosition::advance()
{
    ++m_index;
    if (m_isLooping && isAtEnd())
        m_index = 0;
}

IqPanorama::IqPanorama(const Scene& scene)
    : m_scene(scene)
    , m_file(scene.iq)
    , m_size(spectrumSize(scene, m_file))
    , m_spectrum(m_size)
    , m_position(scene, m_file, m_size)
    , m_lowestHz(scene.centreHz - scene.spanHz / 2 - centreOf(scene, m_file))
{
    checkInside(scene, m_file);
}

double IqPanorama::largest(std::span<const double> bins, std::size_t channel) const
{
    const double binsPerHz = static_cast<double>(m_size) / m_file.sampleRate();
    const double middle = (m_lowestHz + static_cast<double>(channel) * m_scene.stepHz()) * binsPerHz;
    const double half = m_scene.stepHz() * binsPerHz / 2;
    // The nearest bin always, and all others that are nearer to this channel than to its neighbours.
    auto first = static_cast<std::int64_t>(std::min(std::round(middle), std::ceil(middle - half)));
    const auto last = static_cast<std::int64_t>(std::max(std::round(middle), std::ceil(middle + half) - 1));
    const auto size = static_cast<std::int64_t>(m_size);
    double power = 0;
    for (; first <= last; ++first)
        power = std::max(power, bins[static_cast<std::size_t>((first % size + size) % size)]);
    return power;
}

Made IqPanorama::make(const Interval& interval)
{
    std::vector<double> powers(static_cast<std::size_t>(m_scene.points));
    const std::uint64_t end = std::min(m_position.next(), m_file.samples());
    // Half over each other: what lies at the edge of one window, where it counts little, is in the middle of
    // the next.
    for (std::uint64_t at = m_position.first(); at < end && at + m_size <= m_file.samples();
         at += m_size / 2) {
        const std::span<const double> bins = m_spectrum.powers(m_file.read(at, m_size));
        for (std::size_t channel = 0; channel < powers.size(); ++channel)
            powers[channel] = std::max(powers[channel], largest(bins, channel));
    }
    m_position.advance();

    std::vector<std::int16_t> levels(powers.size());
    std::ranges::transform(powers, levels.begin(), [](double power) { return levelOf(power); });
    const auto strongest = std::ranges::max_element(powers) - powers.begin();
    Made made;
    made.seen.push_back(
        {"strongest",
         m_scene.centreHz - m_scene.spanHz / 2 + static_cast<double>(strongest) * m_scene.stepHz(),
         levels[static_cast<std::size_t>(strongest)] / 10.0});
    made.datagram.attribute(501)
        .selectors(1)
        .count(static_cast<std::uint32_t>(m_scene.points))
        .optHeader(panoramaHeader(m_scene, m_scene.startNs + interval.beginNs))
        .items<std::int16_t>(levels);
    return made;
}

IqZeroSpan::IqZeroSpan(const Scene& scene)
    : m_scene(scene)
    , m_file(scene.iq)
    , m_spanNs(timeAxisNs(scene.windowMs, scene.points))
    , m_samplesPerValue(samplesPerValue(m_spanNs, scene, m_file))
    , m_position(scene, m_file, static_cast<std::uint64_t>(std::ceil(m_samplesPerValue * scene.points)))
{}

Made IqZeroSpan::make(const Interval& interval)
{
    const auto values = static_cast<std::size_t>(m_scene.points);
    const auto wanted = static_cast<std::size_t>(std::ceil(m_samplesPerValue * m_scene.points)) + 1;
    const std::vector<Sample>& samples = m_file.read(m_position.first(), wanted);
    m_position.advance();
    std::vector<std::int16_t> levels;
    std::vector<std::int16_t> amplitudes;
    for (std::size_t i = 0; i < values; ++i) {
        const auto from = static_cast<std::size_t>(static_cast<double>(i) * m_samplesPerValue);
        const auto to =
            std::max(from + 1, static_cast<std::size_t>(static_cast<double>(i + 1) * m_samplesPerValue));
        double power = 0;
        for (std::size_t k = from; k < to; ++k)
            power += std::norm(samples[k]) / static_cast<double>(to - from);
        levels.push_back(levelOf(power));
        amplitudes.push_back(fullScalePart(std::sqrt(power)));
    }
    Made made;
    made.seen.push_back({"strongest", m_scene.centreHz, *std::ranges::max_element(levels) / 10.0});
    made.datagram =
        zeroSpanDatagram(levels, amplitudes, zeroSpanHeader(m_spanNs, m_scene.startNs + interval.beginNs));
    return made;
}

} // namespace simulation
