// SPDX-License-Identifier: MIT
#include "toolkit/simulation/signals.h"
#include "toolkit/simulation/random.h"
#include <algorithm>
#include <cmath>

namespace simulation {

namespace {

constexpr std::int64_t syllableNs = 120'000'000;

std::int64_t nanoseconds(double milliseconds)
{
    return std::max<std::int64_t>(1, std::llround(milliseconds * 1e6));
}

double syllable(std::uint64_t seed, std::int64_t number)
{
    const double value = unit(hashed(seed, static_cast<std::uint64_t>(number)));
    return value < 0.3 ? 0.0 : value; // people pause
}

std::vector<Appearance> hops(const Signal& signal, std::uint64_t seed, const Interval& interval)
{
    const std::int64_t dwell = nanoseconds(signal.dwellMs);
    const std::int64_t first = interval.beginNs / dwell;
    const std::int64_t last = std::min(interval.endNs / dwell, first + signal.channels - 1);
    std::vector<Appearance> met;
    for (std::int64_t hop = first; hop <= last; ++hop) {
        const std::uint64_t channel = hashed(seed, static_cast<std::uint64_t>(hop)) %
                                      static_cast<std::uint64_t>(std::max(1, signal.channels));
        met.push_back({signal.frequencyHz + static_cast<double>(channel) * signal.spacingHz, signal.levelDbuv,
                       signal.bandwidthHz});
    }
    return met;
}

// A burst may begin in the period before `ns` and still be on.
bool burstOverlaps(const Signal& signal, std::uint64_t seed, const Interval& interval)
{
    const std::int64_t period = nanoseconds(signal.periodMs);
    const std::int64_t first = std::max<std::int64_t>(0, interval.beginNs / period - 1);
    const std::int64_t last = std::min(interval.endNs / period, first + 2);
    for (std::int64_t number = first; number <= last; ++number) {
        const Interval on = burstInterval(signal, seed, number);
        if (on.beginNs <= interval.endNs && on.endNs > interval.beginNs)
            return true;
    }
    return false;
}

} // namespace

Interval burstInterval(const Signal& signal, std::uint64_t seed, std::int64_t number)
{
    const std::int64_t period = nanoseconds(signal.periodMs);
    const std::int64_t duration = std::min(nanoseconds(signal.durationMs), period);
    const double free = static_cast<double>(period - duration);
    const auto wait =
        static_cast<std::int64_t>(free * unit(hashed(seed, static_cast<std::uint64_t>(number))));
    const std::int64_t begin = number * period + wait;
    return {begin, begin + duration};
}

double loudness(std::uint64_t seed, std::int64_t ns)
{
    const std::int64_t number = ns / syllableNs;
    const double part = static_cast<double>(ns % syllableNs) / static_cast<double>(syllableNs);
    return (1 - part) * syllable(seed, number) + part * syllable(seed, number + 1);
}

bool isOn(const Signal& signal, std::uint64_t seed, std::int64_t ns)
{
    return signal.type != Signal::Type::Burst || burstOverlaps(signal, seed, {ns, ns});
}

std::vector<Appearance> appearances(const Signal& signal, std::uint64_t seed, const Interval& interval)
{
    switch (signal.type) {
    case Signal::Type::Carrier:
        break;
    case Signal::Type::Fm: {
        const double width = signal.bandwidthHz * loudness(seed, interval.beginNs);
        return {{signal.frequencyHz, signal.levelDbuv, width}};
    }
    case Signal::Type::Burst:
        if (!burstOverlaps(signal, seed, interval))
            return {};
        break;
    case Signal::Type::Hopper:
        return hops(signal, seed, interval);
    }
    return {{signal.frequencyHz, signal.levelDbuv, signal.bandwidthHz}};
}

} // namespace simulation
