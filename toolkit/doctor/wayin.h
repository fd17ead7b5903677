// SPDX-License-Identifier: MIT
#pragma once
// Checks of the way that datagrams take into the program, before any comes.
#include "toolkit/doctor/finding.h"
#include "toolkit/receiver/sourcespec.h"
#include <vector>

namespace doctor {

/// Name of the one check on the way in whose problem lets datagrams through all the same.
inline constexpr char socketBuffer[] = "socket buffer";

/// What is wrong with a UDP socket before anything arrives: interface, port, group, buffer.
/// Result: as far as it got; the last one is a problem where it cannot go on.
[[nodiscard]] std::vector<Finding> checkUdp(const receiver::SourceSpec& spec);

/// Whether there is such a host, and somebody who answers; waits at most `seconds` for each.
[[nodiscard]] std::vector<Finding> checkTcp(const receiver::SourceSpec& spec, double seconds);

/// Whether there is such a recording, and whether it can be read.
[[nodiscard]] std::vector<Finding> checkRecording(const receiver::SourceSpec& spec);

} // namespace doctor
