// SPDX-License-Identifier: MIT
#pragma once
// What verbs that read or send live data have in common.
#include "toolkit/receiver/source.h"
#include <functional>
#include <memory>
#include <string>

namespace verbs {

inline constexpr char sourceHelp[] =
    "udp://[group@][address]:port, tcp://host:port, sim:scene, or the path of a recording";

/// The source that `text` names.
/// Errors: receiver::BadSource.
[[nodiscard]] std::unique_ptr<receiver::Source> openSource(const std::string& text,
                                                           const receiver::Playback& playback);

/// Runs `work`; what it throws becomes one line on stderr, and the exit code.
int reportErrors(const char* verb, const std::function<int()>& work);

} // namespace verbs
