// SPDX-License-Identifier: MIT
#pragma once
// The verbs and options of the program as data: help, manual pages, completion and configuration come from
// the one place where they are declared.
#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace verbs {

/// One option or positional argument of a verb.
struct OptionInfo {
    CLI::Option* option;
    std::string key;   // in a configuration file: "scan-range", "source"
    std::string value; // what its value is called: "SECONDS"; empty for flags
    bool isPositional;
    bool isFlag;
    bool isList;
    bool isText;   // also where it looks like a number
    bool isHidden; // told in words, not in a line of its own
    std::vector<std::string> choices;
};

/// All but --help, in the order of their declaration.
[[nodiscard]] std::vector<OptionInfo> optionsOf(CLI::App& verb);

/// Those that users are shown.
[[nodiscard]] std::vector<CLI::App*> verbsOf(CLI::App& program);

/// What the option's own checks say of this value of it: "expected a port from 1 to 65535, found '0'"; empty:
/// nothing.
[[nodiscard]] std::string complaintAbout(const OptionInfo& option, const std::string& value);

/// "VK410_MONITOR_SCAN_RANGE".
[[nodiscard]] std::string environmentName(const std::string& verb, const std::string& key);

/// What stands before and behind "Examples:" in a verb's footer.
struct Footer {
    std::vector<std::string> remarks;
    std::vector<std::string> examples;
};
[[nodiscard]] Footer footerOf(const CLI::App& verb);

} // namespace verbs
