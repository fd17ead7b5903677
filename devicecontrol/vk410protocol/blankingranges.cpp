// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/blankingranges.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/scangrid.h"
#include <algorithm>
#include <boost/icl/interval_set.hpp>

namespace blanking {

namespace {

using Sample = values::DFSpectrumSample;
using Validity = Sample::Validity;

// The nearest channel of a frequency at or above the start of a scan range; nothing when that is no number.
std::optional<quint64> channelOf(const ScanRange& range, quint64 frequencyHz, double rounding)
{
    const auto distance = static_cast<double>(frequencyHz - range.startFrequency);
    return numbers::truncated<quint64>(numbers::quotient(distance, range.step) + rounding);
}

// Inlined: the loop over a few samples costs less than a call.
template <typename Action>
[[gnu::always_inline]] inline void forEachInside(const Stretch& stretch,
                                                 const std::vector<Interval>& channels, const Action& action)
{
    const qint64 last = stretch.firstChannel + static_cast<qint64>(stretch.samples.size());
    if (last <= 0)
        return;
    // No interval holds channels below the scan range.
    const quint64 begin = static_cast<quint64>(std::max(stretch.firstChannel, qint64{0}));
    const auto end = static_cast<quint64>(last);
    const auto samples = stretch.samples.last(end - begin);
    auto interval = std::partition_point(channels.begin(), channels.end(),
                                         [begin](const Interval& i) { return i.upper() <= begin; });
    for (; interval != channels.end() && interval->lower() < end; ++interval) {
        const quint64 high = std::min(interval->upper(), end);
        for (quint64 channel = std::max(interval->lower(), begin); channel < high; ++channel)
            action(samples[channel - begin]);
    }
}

} // namespace

bool isOverlapping(quint64 aLow, quint64 aHigh, quint64 bLow, quint64 bHigh)
{
    return std::max(aLow, bLow) <= std::min(aHigh, bHigh);
}

std::shared_ptr<ScanRange> scanRangeOf(const ScanRangeContainer& ranges, int jobId)
{
    const auto found =
        std::find_if(ranges.begin(), ranges.end(), [jobId](const std::shared_ptr<ScanRange>& range) {
            return range && range->jobId == static_cast<quint32>(jobId);
        });
    return found == ranges.end() ? nullptr : *found;
}

// Nothing given, nothing blanked. As soon as one range is given, wherever it lies, the map also holds the
// overlaps of the jobs' own scan ranges, and these count as blanked. That is meant: the map is not even built
// in the first case. Pinned by BlankedChannels.OfOverlappingJobsAreBlankedAsSoonAsAnyRangeIsGiven and
// .AreNoneWithoutAGivenRange.
FrequencyMap frequencyMap(const ScanRangeContainer& scanRanges, const std::vector<Interval>& given)
{
    FrequencyMap map;
    if (given.empty())
        return map;
    // Many given ranges, few scan ranges: the many in ascending order, each behind the last one, and first,
    // so that each of the few walks through what it covers instead of every one of the many being looked for.
    std::vector<Interval> ascending = given;
    std::sort(ascending.begin(), ascending.end(),
              [](const Interval& a, const Interval& b) { return a.lower() < b.lower(); });
    boost::icl::interval_set<quint64> joined;
    for (const Interval& interval : ascending)
        joined.add(joined.end(), interval);
    const std::set<int> marker{givenRange};
    for (const Interval& interval : joined)
        map.add(map.end(), {interval, marker});
    for (const std::shared_ptr<ScanRange>& range : scanRanges) {
        if (range)
            map.add({Interval::closed(range->startFrequency, range->stopFrequency),
                     std::set<int>{static_cast<int>(range->jobId)}});
    }
    return map;
}

// More than one id, not the marker: where two jobs scan the same frequencies, these are blanked in both.
// Do not ask for the marker. Pinned by BlankedChannels.OfOverlappingJobsAreBlankedAsSoonAsAnyRangeIsGiven.
JobIntervals blankedSegments(const FrequencyMap& map)
{
    JobIntervals result;
    for (const auto& [segment, ids] : map) {
        if (ids.size() < 2)
            continue;
        // Whole hertz, whatever kind of bounds the map has cut.
        const Interval closed = Interval::closed(boost::icl::first(segment), boost::icl::last(segment));
        for (const int id : ids) {
            if (id != givenRange)
                result[id].push_back(closed);
        }
    }
    return result;
}

std::vector<Interval> channelsOf(const ScanRange& range, const std::vector<Interval>& segments)
{
    std::vector<Interval> channels;
    const std::optional<quint64> count = channelCount(range);
    if (!count)
        return channels;
    for (const Interval& segment : segments) {
        // Where two scan ranges share a job id, segments of the second one may begin below the first.
        if (segment.upper() < range.startFrequency)
            continue;
        const quint64 low = std::max(segment.lower(), range.startFrequency);
        const std::optional<quint64> first = channelOf(range, low, 0.5);
        std::optional<quint64> last;
        if (low == segment.upper())
            last = first ? std::optional<quint64>{*first + 1} : std::nullopt;
        else if (const auto behind = channelOf(range, segment.upper(), 1.0 + 0.5))
            last = std::min(*behind, *count);
        if (first && last && *first < *last)
            channels.push_back(Interval::right_open(*first, *last));
    }
    return channels;
}

JobIntervals blankedChannels(const ScanRangeContainer& scanRanges, const std::vector<Interval>& given)
{
    JobIntervals result;
    for (const auto& [job, segments] : blankedSegments(frequencyMap(scanRanges, given))) {
        if (const std::shared_ptr<ScanRange> range = scanRangeOf(scanRanges, job))
            result[job] = channelsOf(*range, segments);
    }
    return result;
}

bool blank(const Stretch& stretch, const std::vector<Interval>& channels)
{
    bool anyBlanked = false;
    const auto blankOne = [&anyBlanked](Sample& sample) {
        sample.setValidity(Validity::Blanked);
        anyBlanked = true;
    };
    if (!stretch.mayBeUnusable) {
        forEachInside(stretch, channels, blankOne);
        return anyBlanked;
    }
    forEachInside(stretch, channels, [&blankOne](Sample& sample) {
        if (sample.getValidity() != Validity::Unusable)
            blankOne(sample);
    });
    return anyBlanked;
}

} // namespace blanking
