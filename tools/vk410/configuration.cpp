// SPDX-License-Identifier: MIT
#include "tools/vk410/configuration.h"
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <string_view>
#include <unistd.h>

namespace verbs {

namespace {

std::string environment(const std::string& name)
{
    const char* const value = std::getenv(name.c_str());
    return value ? value : "";
}

// The file in the user's folder, where there is one.
std::string usualPath()
{
    std::string folder = environment("XDG_CONFIG_HOME");
    if (folder.empty() && !environment("HOME").empty())
        folder = environment("HOME") + "/.config";
    const std::string path = folder + "/vk410.toml";
    std::error_code error;
    return !folder.empty() && std::filesystem::exists(path, error) ? path : "";
}

// Absent: none is named.
std::optional<std::string> namedPath(const std::vector<std::string>& words)
{
    constexpr std::string_view option = "--config";
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == option && i + 1 < words.size())
            return words[i + 1];
        if (words[i].starts_with("--config="))
            return words[i].substr(option.size() + 1);
    }
    const std::string path = environment("VK410_CONFIG");
    return path.empty() ? std::nullopt : std::optional{path};
}

// "true" of "Yes"; absent: neither true nor false.
std::optional<std::string> flagText(std::string text)
{
    constexpr std::array<std::string_view, 4> on{"true", "yes", "on", "1"};
    constexpr std::array<std::string_view, 4> off{"false", "no", "off", "0"};
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (std::ranges::find(on, text) != on.end())
        return "true";
    if (std::ranges::find(off, text) != off.end())
        return "false";
    return std::nullopt;
}

// What a setting of this kind is called in an error.
std::string foundText(const settings::Setting& setting)
{
    switch (setting.kind) {
    case settings::Setting::Kind::List:
        return "a list";
    case settings::Setting::Kind::Text:
        return fmt::format("the text \"{}\"", setting.value);
    default:
        return setting.value;
    }
}

// What the option takes instead; empty: it takes it.
std::string expectedInsteadOf(const settings::Setting& setting, const OptionInfo& option)
{
    using Kind = settings::Setting::Kind;
    if (option.isFlag)
        return setting.kind == Kind::Flag ? "" : "true or false";
    if (setting.kind == Kind::Flag)
        return option.isList ? "a list of texts" : option.isText ? "a text in quotes" : "a value";
    if (option.isText && !option.isList && setting.kind != Kind::Text)
        return "a text in quotes";
    return setting.kind == Kind::List && !option.isList ? "one value" : "";
}

} // namespace

Configuration::Configuration(int argc, char** argv)
    : m_words(argv + 1, argv + argc)
{
    try {
        readFile();
    } catch (const settings::BadSettings& bad) {
        m_problem = bad.what();
    }
}

void Configuration::readFile()
{
    const std::optional<std::string> named = namedPath(m_words);
    if (named && named->empty())
        throw settings::BadSettings{
            "--config: expected a configuration file, found an empty name; leave it out "
            "for the usual one"};
    m_path = named ? *named : usualPath();
    if (!m_path.empty())
        m_settings = settings::readSettings(m_path);
}

void Configuration::offerTo(CLI::App& program)
{
    if (!m_problem.empty())
        return;
    try {
        check(program);
        offerToChosen(program);
    } catch (const settings::BadSettings& bad) {
        m_problem = bad.what();
    }
}

void Configuration::offerToChosen(CLI::App& program)
{
    const std::vector<CLI::App*> verbs = verbsOf(program);
    for (std::size_t i = 0; i < m_words.size(); ++i) {
        const auto verb =
            std::ranges::find(verbs, m_words[i], [](const CLI::App* each) { return each->get_name(); });
        if (verb != verbs.end())
            return offer(**verb);
        i += m_words[i] == "--config" ? 1 : 0; // the next word is a path
    }
}

void Configuration::check(CLI::App& program) const
{
    const std::vector<CLI::App*> verbs = verbsOf(program);
    for (const auto& [name, settings] : m_settings) {
        const auto verb =
            std::ranges::find(verbs, name, [](const CLI::App* each) { return each->get_name(); });
        if (verb == verbs.end())
            throw settings::BadSettings{
                fmt::format("{}: expected tables of verbs, found [{}]; 'vk410 --help' lists "
                            "the verbs",
                            m_path, name)};
        const std::vector<OptionInfo> options = optionsOf(**verb);
        for (const auto& [key, setting] : settings) {
            const auto option = std::ranges::find(options, key, &OptionInfo::key);
            if (option == options.end())
                throw settings::BadSettings{fmt::format(
                    "{0}:{1}: expected an option of {2}, found '{3}'; 'vk410 config --show {2}' lists "
                    "them",
                    m_path, setting.line, name, key)};
            checkSetting(name, *option, setting);
        }
    }
}

void Configuration::checkSetting(const std::string& verb, const OptionInfo& option,
                                 const settings::Setting& setting) const
{
    const std::string expected = expectedInsteadOf(setting, option);
    if (!expected.empty())
        throw settings::BadSettings{fmt::format(
            "{}:{}: [{}] {}: expected {}, found {}; 'vk410 config --show {}' shows how it is written", m_path,
            setting.line, verb, option.key, expected, foundText(setting), verb)};
}

std::vector<std::string> Configuration::warnings(CLI::App& program)
{
    // The last ones are those of the project's own tests and scripts.
    std::set<std::string> known{"VK410_CONFIG",   "VK410_BUILD",     "VK410_DATA",
                                "VK410_EXAMPLES", "VK410_LINT_BASE", "VK410_PROGRAM"};
    for (CLI::App* const verb : verbsOf(program)) {
        for (const OptionInfo& option : optionsOf(*verb))
            known.insert(environmentName(verb->get_name(), option.key));
    }
    std::vector<std::string> warnings;
    for (char** each = ::environ; each && *each; ++each) {
        const std::string_view entry{*each};
        const std::string name{entry.substr(0, entry.find('='))};
        if (name.starts_with("VK410_") && !known.contains(name))
            warnings.push_back(
                fmt::format("{}: expected VK410_VERB_OPTION, found neither such a verb nor such an "
                            "option; ignored; 'vk410 config --show' lists them",
                            name));
    }
    return warnings;
}

void Configuration::offer(CLI::App& verb)
{
    for (const OptionInfo& option : optionsOf(verb)) {
        const Given value = given(verb.get_name(), option);
        if (value.from.empty())
            continue;
        if (option.isFlag && !value.complaint.empty())
            throw settings::BadSettings{fmt::format("{}: {}", value.from, value.complaint)};
        const std::string shown = option.isPositional ? option.value : "--" + option.key;
        if (!isOnCommandLine(shown))
            m_offers.push_back({shown, value});
        // The parser asks the environment for what the command line does not say, so the file speaks there,
        // too. A flag that is off is as if nobody spoke.
        const std::string name = environmentName(verb.get_name(), option.key);
        if (option.isFlag && value.value == "false")
            ::unsetenv(name.c_str());
        else
            ::setenv(name.c_str(), value.value.c_str(), 1);
        option.option->envname(name);
        if (option.isList)
            option.option->delimiter(',');
    }
}

bool Configuration::isOnCommandLine(const std::string& option) const
{
    return std::ranges::any_of(m_words, [&option](const std::string& word) {
        return word == option || word.starts_with(option + "=");
    });
}

Configuration::Given Configuration::given(const std::string& verb, const OptionInfo& option) const
{
    const std::string name = environmentName(verb, option.key);
    if (const std::string value = environment(name); !value.empty()) {
        if (!option.isFlag)
            return {value, name, complaintAbout(option, value)};
        const std::optional<std::string> flag = flagText(value);
        return {flag.value_or(value), name,
                flag ? "" : fmt::format("expected true or false, found '{}'", value)};
    }
    const auto settings = m_settings.find(verb);
    if (settings == m_settings.end())
        return {};
    const auto found = settings->second.find(option.key);
    if (found == settings->second.end())
        return {};
    const settings::Setting& setting = found->second;
    const std::string expected = expectedInsteadOf(setting, option);
    return {setting.value, fmt::format("{}:{}", m_path, setting.line),
            !expected.empty()       ? fmt::format("expected {}, found {}", expected, foundText(setting))
            : setting.value.empty() ? ""
                                    : complaintAbout(option, setting.value)};
}

std::string Configuration::blame(const std::string& error) const
{
    for (const Offer& offer : m_offers) {
        const bool isNamed = error.find(offer.option) != std::string::npos;
        const bool isQuoted = error.find("'" + offer.given.value + "'") != std::string::npos;
        if (isNamed || isQuoted)
            return offer.given.from + ": ";
    }
    return {};
}

} // namespace verbs
