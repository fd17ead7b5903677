// SPDX-License-Identifier: MIT
#pragma once
// Which channels of a job's scan ranges lie in frequency ranges that the operator excluded. Pure interval
// logic: no values, no state.
#include "devicecontrol/vk410protocol/scanrange.h"
#include "values/dfspectrumsample.h"
#include <QtGlobal>
#include <boost/icl/discrete_interval.hpp>
#include <boost/icl/interval_map.hpp>
#include <map>
#include <set>
#include <span>
#include <vector>

namespace blanking {

using Interval = boost::icl::discrete_interval<quint64>;

/// Frequencies in Hz, closed, or channels counted from the first one of a job's scan range, right-open; by
/// job id.
using JobIntervals = std::map<int, std::vector<Interval>>;

/// Segments of the frequency axis, with the ids of the jobs that scan them and `givenRange` where a given
/// range lies.
using FrequencyMap = boost::icl::interval_map<quint64, std::set<int>, boost::icl::partial_absorber>;
inline constexpr int givenRange = -1;

/// Whether two closed ranges have anything in common; both ends count.
[[nodiscard]] bool isOverlapping(quint64 aLow, quint64 aHigh, quint64 bLow, quint64 bHigh);

/// The first scan range of a job, or null.
[[nodiscard]] std::shared_ptr<ScanRange> scanRangeOf(const ScanRangeContainer& ranges, int jobId);

/// The axis cut into segments. Empty without given ranges.
[[nodiscard]] FrequencyMap frequencyMap(const ScanRangeContainer& scanRanges,
                                        const std::vector<Interval>& given);

/// The segments of more than one id, closed, for each of their jobs.
[[nodiscard]] JobIntervals blankedSegments(const FrequencyMap& map);

/// The channels of `range` that `segments` blank.
[[nodiscard]] std::vector<Interval> channelsOf(const ScanRange& range, const std::vector<Interval>& segments);

/// Channels blanked by the given frequency ranges, for each job.
[[nodiscard]] JobIntervals blankedChannels(const ScanRangeContainer& scanRanges,
                                           const std::vector<Interval>& given);

/// Samples of channels next to each other.
struct Stretch {
    std::span<values::DFSpectrumSample> samples;
    qint64 firstChannel; // of the scan range; may be negative
    bool mayBeUnusable;  // if not, none of them is: then nobody looks at each
};

/// Blanks the samples of a stretch inside of `channels`; unusable ones stay as they are and do not count.
/// Shape:  `channels` in ascending order, as `channelsOf` gives them.
/// Result: whether a sample was in one of them.
bool blank(const Stretch& stretch, const std::vector<Interval>& channels);

} // namespace blanking
