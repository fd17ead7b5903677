// SPDX-License-Identifier: MIT
#include "toolkit/simulation/bandgenerator.h"
#include "wire/optheader.h"
#include <algorithm>
#include <cmath>

namespace simulation {

namespace {

constexpr std::size_t noiseTableSize = 1U << 14U;
constexpr int averagedTraces = 6;
constexpr double filterPerStep = 1.5;

// Where a Gaussian filter has lost this much, nothing of the signal is left to see.
constexpr double belowFloorDb = 10;
const double halfPowerDb = 10 * std::log10(2.0);

} // namespace

std::int16_t tenths(double decibels)
{
    return static_cast<std::int16_t>(std::lround(std::clamp(decibels, -300.0, 300.0) * 10));
}

NoiseFloor::NoiseFloor(double meanDbuv, std::uint64_t seed)
    : m_random(seed)
    , m_powers(noiseTableSize)
{
    const double mean = std::pow(10, meanDbuv / 10);
    for (double& power : m_powers) {
        power = 0;
        for (int i = 0; i < averagedTraces; ++i)
            power += mean * m_random.noisePower() / averagedTraces;
    }
}

wire::Bytes panoramaHeader(const Scene& scene, std::int64_t stampNs)
{
    namespace layout = wire::ifpan;
    const auto centre = static_cast<std::uint64_t>(std::llround(scene.centreHz));
    const auto span = static_cast<std::int32_t>(std::lround(scene.spanHz));
    return wire::OptHeaderWriter{layout::size}
        .set(layout::centreFrequencyLow, static_cast<std::int32_t>(centre & 0xFFFFFFFFU))
        .set(layout::centreFrequencyHigh, static_cast<std::int32_t>(centre >> 32U))
        .set(layout::span, span)
        .set(layout::timeStamp, stampNs)
        .set(layout::stepNumerator, span)
        .set(layout::stepDenominator, scene.points - 1)
        .bytes();
}

void addSignal(std::vector<double>& powers, const Grid& grid, const Appearance& appearance)
{
    // A modulated signal is as wide as signal and filter together, and lower by as much.
    const double width = std::hypot(appearance.widthHz, grid.filterHz);
    const double peakDb = appearance.levelDbuv - 10 * std::log10(width / grid.filterHz);
    const double visibleDb = peakDb - grid.floorDbuv + belowFloorDb;
    if (visibleDb <= 0)
        return;
    const double reachHz = width / 2 * std::sqrt(visibleDb / halfPowerDb);
    const double last = static_cast<double>(powers.size()) - 1;
    const double from = std::ceil((appearance.frequencyHz - reachHz - grid.firstHz) / grid.stepHz);
    const double to = std::floor((appearance.frequencyHz + reachHz - grid.firstHz) / grid.stepHz);
    if (to < 0 || from > last)
        return;
    const auto end = static_cast<std::size_t>(std::min(to, last));
    for (auto k = static_cast<std::size_t>(std::max(from, 0.0)); k <= end; ++k) {
        const double away = grid.firstHz + static_cast<double>(k) * grid.stepHz - appearance.frequencyHz;
        const double lostDb = halfPowerDb * std::pow(2 * away / width, 2);
        powers[k] += std::pow(10, (peakDb - lostDb) / 10);
    }
}

BandGenerator::BandGenerator(const Scene& scene, std::uint64_t seed)
    : m_scene(scene)
    , m_seed(seed)
    , m_firstHz(scene.centreHz - scene.spanHz / 2)
    , m_stepHz(scene.stepHz())
    , m_filterHz(filterPerStep * m_stepHz)
    , m_floorDbuv(scene.noiseDbuvPerHz + 10 * std::log10(m_filterHz))
    , m_noise(m_floorDbuv, hashed(seed, 1))
    , m_powers(static_cast<std::size_t>(scene.points))
    , m_levels(static_cast<std::size_t>(scene.points))
{}

Made BandGenerator::make(const Interval& interval)
{
    for (double& power : m_powers)
        power = m_noise.power();
    Made made;
    std::uint64_t number = 0;
    for (const Signal& signal : m_scene.onAir) {
        for (const Appearance& met : appearances(signal, hashed(m_seed, 2, number), interval)) {
            add(met);
            made.seen.push_back({signal.name, met.frequencyHz, met.levelDbuv});
        }
        ++number;
    }
    std::ranges::transform(m_powers, m_levels.begin(),
                           [](double power) { return tenths(10 * std::log10(power)); });
    made.datagram.attribute(501)
        .selectors(1)
        .count(static_cast<std::uint32_t>(m_scene.points))
        .optHeader(panoramaHeader(m_scene, m_scene.startNs + interval.beginNs))
        .items<std::int16_t>(m_levels);
    return made;
}

void BandGenerator::add(const Appearance& appearance)
{
    addSignal(m_powers, {m_firstHz, m_stepHz, m_filterHz, m_floorDbuv}, appearance);
}

} // namespace simulation
