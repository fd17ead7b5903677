// SPDX-License-Identifier: MIT
#pragma once
// What a user writes for the scan ranges of a direction finder, and for frequencies to leave out, read.
#include "devicecontrol/vk410protocol/scanrange.h"
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace receiver {

/// The text is no range; it says what was expected and what came.
struct BadRange : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The scan range in "JOB:START-STOP/STEP", with "@FROM-TO,..." behind it for azimuth sectors to blank:
/// "1:145M-155M/12.5k@300-30".
/// Units:  Hz, or with a suffix k, M or G; start and stop are rounded to whole hertz. Azimuths in degrees
/// from
///         0 to 359.9, clockwise; a sector may cross north.
/// Errors: BadRange.
[[nodiscard]] std::shared_ptr<ScanRange> parseScanRange(const std::string& text);

/// The scan ranges of a job list, one a text, in their order.
/// Errors: BadRange, also for a job that comes twice and for more channels than a map should hold.
[[nodiscard]] ScanRangeContainer parseScanRanges(const std::vector<std::string>& texts);

/// Frequencies that the operator excludes.
struct ExcludedRange {
    enum class Kind : std::uint8_t { Suppress, Blanking };
    Kind kind;
    double startHz;
    double stopHz;
};

/// The range in "suppress:START-STOP" or "blanking:START-STOP", units as above.
/// Errors: BadRange.
[[nodiscard]] ExcludedRange parseExcludedRange(const std::string& text);

} // namespace receiver
