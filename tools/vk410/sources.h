// SPDX-License-Identifier: MIT
#pragma once
// What verbs that read or send live data have in common.
#include "toolkit/receiver/source.h"
#include <memory>
#include <string>

namespace verbs {

inline constexpr char sourceHelp[] =
    "udp://[group@][address]:port, tcp://host:port, sim:scene, or the path of a recording";

/// The source that `text` names.
/// Errors: receiver::BadSource, simulation::BadScene.
[[nodiscard]] std::unique_ptr<receiver::Source> openSource(const std::string& text,
                                                           const receiver::Playback& playback);

/// Errors: std::runtime_error when `file` is the address of a live source; says which verb takes it.
void requireRecording(const std::string& file);

/// Errors: std::runtime_error when what is written to `output` would destroy the recording that `source`
/// names.
void requireOtherFile(const std::string& source, const std::string& output);

} // namespace verbs
