// SPDX-License-Identifier: MIT
#pragma once
// Whether a recording is sound: read to its end, nothing lost inside the file, nothing that the library
// drops.
#include "toolkit/inspection/inspector.h"
#include "toolkit/inspection/summary.h"
#include "toolkit/recording/recording.h"
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace checking {

/// What was found in a recording.
struct Findings {
    static constexpr std::size_t mostTold = 20;

    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;
    std::uint64_t soundDatagrams = 0; // good magic, and every attribute delivered or of an unknown tag
    std::uint64_t invalid = 0;
    std::map<std::string, std::uint64_t> drops; // of attributes, by reason
    std::uint64_t problemCount = 0;             // of the file
    std::vector<std::string> problems;          // the first of them
    bool isWhole = true;                        // the file could be read to its end
    std::uint64_t missing = 0;                  // sequence numbers that never came: lost before the recording
    recording::Ignored ignored;

    /// Missing sequence numbers are no fault of the recording.
    [[nodiscard]] bool isSound() const
    {
        return isWhole && datagrams > 0 && soundDatagrams == datagrams && problemCount == 0;
    }
};

/// Told about every datagram of a recording, with its bytes as they were received.
using Visitor = std::function<void(const recording::Datagram& datagram, bool isSound)>;

/// Reads the whole recording. `visit` may be empty.
/// Shape:  memory does not grow with the file.
/// Errors: recording::CannotOpen; a file that is no recording is a finding.
[[nodiscard]] Findings check(const std::string& path, const recording::Options& options,
                             const Visitor& visit);

} // namespace checking
