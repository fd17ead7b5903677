// SPDX-License-Identifier: MIT
#pragma once
// JSON that somebody wrote by hand, or wrote to do harm.
#include <nlohmann/json.hpp>

namespace simulation {

/// For `nlohmann::json::parse`: leaves out what lies deeper than anything that a scene or the description of
/// a recording has. To copy or to show lists within lists within lists would take the stack.
inline bool isShallow(int depth, nlohmann::json::parse_event_t /*event*/, nlohmann::json& /*parsed*/)
{
    constexpr int deepest = 16;
    return depth <= deepest;
}

} // namespace simulation
