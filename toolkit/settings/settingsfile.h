// SPDX-License-Identifier: MIT
#pragma once
// A configuration file, read: for each verb the values of its options, and where they stand.
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace settings {

/// The file cannot be used; says where, what was expected and what came.
struct BadSettings : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One value as the command line would have it; lists with commas between their members.
struct Setting {
    enum class Kind : std::uint8_t { Text, Number, Flag, List };

    std::string value;
    Kind kind = Kind::Text;
    std::uint32_t line = 0;
};

/// By verb and option.
using Settings = std::map<std::string, std::map<std::string, Setting>>;

/// Errors: BadSettings.
[[nodiscard]] Settings readSettings(const std::string& path);

} // namespace settings
