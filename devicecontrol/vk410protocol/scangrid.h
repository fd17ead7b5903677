// SPDX-License-Identifier: MIT
#pragma once
// Where the channels of a job's scan ranges lie in a map, and where a trace lies among them.
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "values/channelrangedefinition.h"
#include <optional>
#include <vector>

/// The scan ranges of a job, one behind the other.
struct ScanGrid {
    struct Job {
        int id;
        int firstChannel; // channel id in the map
    };
    values::ChannelRangeDefinition grid; // one range per scan range
    std::vector<Job> jobs;               // in the order of the ranges; an id may come twice

    /// Lays the ranges out; null ones are skipped.
    /// Errors: a range whose number of channels is negative or no number, or that has no room below 2^31
    ///         channels, gets no channels and its job is left out.
    static ScanGrid of(const ScanRangeContainer& ranges);
};

/// Number of channels of a scan range; nothing when it is negative or cannot be a number of channels.
[[nodiscard]] std::optional<quint64> channelCount(const ScanRange& range);

/// Channel id of a trace's first value. `rangeStartHz` is where the map has the first channel of the trace's
/// range, whose id is `rangeFirst`.
/// Result: may lie outside the map; nothing when the header's numbers give no channel at all.
[[nodiscard]] std::optional<long> channelPosition(const DfOptHeader& header, double rangeStartHz,
                                                  int rangeFirst);
