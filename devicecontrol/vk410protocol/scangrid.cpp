// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/scangrid.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include <limits>

namespace {

constexpr quint64 maxChannels = std::numeric_limits<qint32>::max();

// Channels from the range's start to `startFrequencyHz`, rounded; the product is one of whole numbers.
std::optional<qint64> shift(const DfOptHeader& header, qint64 rangeStartHz)
{
    qint64 distance = 0;
    qint64 product = 0;
    if (__builtin_sub_overflow(header.startFrequencyHz, rangeStartHz, &distance) ||
        __builtin_mul_overflow(distance, qint64{header.stepDenominator}, &product))
        return std::nullopt;
    return numbers::truncated<qint64>(numbers::quotient(static_cast<double>(product), header.stepNumerator) +
                                      0.5);
}

} // namespace

std::optional<quint64> channelCount(const ScanRange& range)
{
    const double extent =
        static_cast<double>(range.stopFrequency) - static_cast<double>(range.startFrequency);
    // Truncated as a signed number first: just below 0 is 0, not an error.
    const std::optional<qint64> count =
        numbers::truncated<qint64>(numbers::quotient(extent, range.step) + 1.0 + 0.5);
    if (!count || *count < 0)
        return std::nullopt;
    return static_cast<quint64>(*count);
}

ScanGrid ScanGrid::of(const ScanRangeContainer& ranges)
{
    ScanGrid result;
    quint64 offset = 0;
    for (const std::shared_ptr<ScanRange>& range : ranges) {
        if (!range)
            continue;
        const std::optional<quint64> wanted = channelCount(*range);
        const bool isPossible = wanted && *wanted <= maxChannels - offset;
        const quint64 count = isPossible ? *wanted : 0;
        result.grid.AddRangeDefinition(static_cast<unsigned>(offset), static_cast<unsigned>(count),
                                       static_cast<double>(range->startFrequency), range->step, QString());
        if (isPossible)
            result.jobs.push_back({static_cast<int>(range->jobId), static_cast<int>(offset)});
        offset += count;
    }
    return result;
}

std::optional<long> channelPosition(const DfOptHeader& header, double rangeStartHz, int rangeFirst)
{
    const std::optional<qint64> start = numbers::truncated<qint64>(rangeStartHz + 0.5);
    if (!start)
        return std::nullopt;
    qint64 position = qint64{header.firstChannel} + rangeFirst;
    // Only upwards: a trace that begins below its range stays where its first channel says.
    if (*start < header.startFrequencyHz) {
        const std::optional<qint64> channels = shift(header, *start);
        if (!channels || __builtin_add_overflow(position, *channels, &position))
            return std::nullopt;
    }
    return position;
}
