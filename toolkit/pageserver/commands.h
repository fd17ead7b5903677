// SPDX-License-Identifier: MIT
#pragma once
// What viewers ask for, read from texts that anybody may have sent.
#include "toolkit/pageserver/frame.h"
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace pageserver {

/// A command that is not understood; says what was expected and what was found.
struct BadCommand : std::runtime_error {
    BadCommand(std::string command_, const std::string& text)
        : std::runtime_error(text)
        , command(std::move(command_))
    {}
    std::string command; // its name, as far as it could be read
};

/// What one viewer gets.
struct Subscribe {
    std::array<bool, 5> streams{true, true, true, true, true}; // by the number of the stream
    std::uint16_t arrays = Live;
    double maxPerSecond = 60;
};
struct ResetHolds {};
struct SetAverage {
    unsigned count = 0;
};

enum class RangeKind { Suppress, Blanking };
struct AddRange {
    RangeKind kind = RangeKind::Suppress;
    double fromHz = 0;
    double toHz = 0;
    std::string name{};
};
struct RemoveRange {
    RangeKind kind = RangeKind::Suppress;
    unsigned id = 0;
};
struct ControlPlayback {
    enum class Action { Pause, Play, Step, Seek, Speed };
    Action action = Action::Pause;
    double number = 0; // seconds, or times the speed of the recording
};
/// Probabilities of those faults that are named.
struct SetFaults {
    std::vector<std::pair<std::string, double>> probabilities{};
};

using Command =
    std::variant<Subscribe, ResetHolds, SetAverage, AddRange, RemoveRange, ControlPlayback, SetFaults>;

/// Errors: BadCommand.
[[nodiscard]] Command parseCommand(std::string_view text);

/// The name of a command, as in its text.
[[nodiscard]] std::string_view nameOf(const Command& command);

} // namespace pageserver
