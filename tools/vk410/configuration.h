// SPDX-License-Identifier: MIT
#pragma once
// Where the values of options come from: the command line, else the environment, else the configuration file,
// else their defaults.
#include "toolkit/settings/settingsfile.h"
#include "tools/vk410/optiontree.h"
#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace verbs {

/// What environment and configuration file say.
class Configuration {
public:
    /// Reads the file that --config or VK410_CONFIG names, else $XDG_CONFIG_HOME/vk410.toml where there is
    /// one. Errors: told by `problem`.
    Configuration(int argc, char** argv);

    /// Checks that the file's verbs and options exist, and lets the verb that the command line chooses take
    /// the values that the command line does not give. Errors: told by `problem`.
    void offerTo(CLI::App& program);

    /// Why no verb can take values from here: "/etc/vk410.toml:4: expected ..."; empty: nothing is wrong.
    /// Help and `vk410 config` go on all the same: they are what helps.
    [[nodiscard]] const std::string& problem() const { return m_problem; }

    /// A line for each variable of the environment that looks like an option and is none.
    [[nodiscard]] static std::vector<std::string> warnings(CLI::App& program);

    /// "/etc/vk410.toml:4: " or "VK410_MONITOR_RATE: " where what an error says is about a value from there;
    /// else empty.
    [[nodiscard]] std::string blame(const std::string& error) const;

    /// A value that is not the default, and where it comes from.
    struct Given {
        std::string value;     // of a flag: "true" or "false"
        std::string from;      // empty: the default holds
        std::string complaint; // why it cannot be; empty: it can, as far as is known before the verb runs
    };
    [[nodiscard]] Given given(const std::string& verb, const OptionInfo& option) const;

    /// Of the configuration file; empty: there is none.
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    void readFile();
    void check(CLI::App& program) const;
    void checkSetting(const std::string& verb, const OptionInfo& option,
                      const settings::Setting& setting) const;
    void offerToChosen(CLI::App& program);
    void offer(CLI::App& verb);
    [[nodiscard]] bool isOnCommandLine(const std::string& option) const;

    std::vector<std::string> m_words; // of the command line
    std::string m_path;
    settings::Settings m_settings;
    std::string m_problem;
    struct Offer {
        std::string option; // as errors call it: "--rate", "SOURCE"
        Given given;
    };
    std::vector<Offer> m_offers; // to the chosen verb
};

} // namespace verbs
