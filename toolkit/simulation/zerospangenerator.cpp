// SPDX-License-Identifier: MIT
#include "toolkit/simulation/zerospangenerator.h"
#include "wire/optheader.h"
#include <algorithm>
#include <cmath>

namespace simulation {

namespace {

double strongestDbuv(const Scene& scene)
{
    double strongest = 0;
    for (const Signal& signal : scene.onAir)
        strongest = std::max(strongest, signal.levelDbuv);
    return strongest;
}

// The parts of a signal that lie outside the receiver's bandwidth are not heard at all: a filter with steep
// edges.
bool isHeard(const Scene& scene, const Signal& signal)
{
    return std::abs(signal.frequencyHz - scene.centreHz) <= scene.bandwidthHz / 2;
}

} // namespace

std::int64_t timeAxisNs(double windowMs, int points)
{
    const std::int64_t steps = points - 1;
    return std::max<std::int64_t>(1, std::llround(windowMs * 1e6 / static_cast<double>(steps))) * steps;
}

wire::Bytes zeroSpanHeader(std::int64_t spanNs, std::int64_t stampNs)
{
    namespace layout = wire::zerospan;
    return wire::OptHeaderWriter{layout::size}
        .set(layout::xSpan, spanNs)
        .set(layout::xStart, 0)
        .set(layout::timeStamp, stampNs)
        .bytes();
}

wire::DatagramWriter zeroSpanDatagram(const std::vector<std::int16_t>& levels,
                                      const std::vector<std::int16_t>& amplitudes, const wire::Bytes& header)
{
    wire::DatagramWriter datagram;
    datagram.attribute(1801)
        .selectors(1U << 0U | 1U << 23U)
        .count(static_cast<std::uint32_t>(levels.size()))
        .optHeader(header)
        .items<std::int16_t>(levels)
        .items<std::int16_t>(amplitudes);
    return datagram;
}

std::int16_t fullScalePart(double part)
{
    return static_cast<std::int16_t>(std::lround(std::clamp(part, 0.0, 1.0) * 32767));
}

ZeroSpanGenerator::ZeroSpanGenerator(const Scene& scene, std::uint64_t seed)
    : m_scene(scene)
    , m_seed(seed)
    , m_noise(hashed(seed, 1))
    , m_floorPower(std::pow(10, (scene.noiseDbuvPerHz + 10 * std::log10(scene.bandwidthHz)) / 10))
    , m_fullScaleAmplitude(std::pow(10, (strongestDbuv(scene) + 6) / 20)) // headroom of a factor of two
{}

Made ZeroSpanGenerator::make(const Interval& interval)
{
    const std::int64_t spanNs = timeAxisNs(m_scene.windowMs, m_scene.points);
    const std::int64_t stepNs = spanNs / (m_scene.points - 1);
    Made made;
    std::vector<double> powers(static_cast<std::size_t>(m_scene.points));
    for (double& power : powers)
        power = m_floorPower * m_noise.noisePower();
    for (std::size_t s = 0; s < m_scene.onAir.size(); ++s) {
        const Signal& signal = m_scene.onAir[s];
        const double power = std::pow(10, signal.levelDbuv / 10);
        bool isSeen = false;
        for (std::size_t i = 0; i < powers.size() && isHeard(m_scene, signal); ++i) {
            const std::int64_t at = interval.beginNs + static_cast<std::int64_t>(i) * stepNs;
            if (!isOn(signal, hashed(m_seed, 2, s), at))
                continue;
            powers[i] += power;
            isSeen = true;
        }
        if (isSeen)
            made.seen.push_back({signal.name, signal.frequencyHz, signal.levelDbuv});
    }
    std::vector<std::int16_t> levels;
    std::vector<std::int16_t> amplitudes;
    for (const double power : powers) {
        levels.push_back(tenths(10 * std::log10(power)));
        amplitudes.push_back(fullScalePart(std::sqrt(power) / m_fullScaleAmplitude));
    }
    made.datagram =
        zeroSpanDatagram(levels, amplitudes, zeroSpanHeader(spanNs, m_scene.startNs + interval.beginNs));
    return made;
}

} // namespace simulation
