// SPDX-License-Identifier: MIT
#pragma once
// What one check of the doctor says.
#include <cstdint>
#include <string>
#include <vector>

namespace doctor {

enum class Outcome : std::uint8_t {
    Fine,
    Problem,
    Unknown, // nothing can be said from here
};

struct Finding {
    std::string check; // "socket buffer"
    Outcome outcome = Outcome::Fine;
    std::string found;
    std::string fix; // empty where nothing needs one
};

/// "3 port: fine: nobody else has it"; the fix on a line of its own.
[[nodiscard]] std::string text(std::size_t number, const Finding& finding);

/// The same as a JSON object.
[[nodiscard]] std::string json(std::size_t number, const Finding& finding);

} // namespace doctor
