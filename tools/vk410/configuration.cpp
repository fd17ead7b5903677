// SPDX-License-Identifier: MIT
#include "tools/vk410/configuration.h"
#include "tools/vk410/optiontree.h"
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>

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

std::string namedPath(const std::vector<std::string>& words)
{
    constexpr std::string_view option = "--config";
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == option && i + 1 < words.size())
            return words[i + 1];
        if (words[i].starts_with("--config="))
            return words[i].substr(option.size() + 1);
    }
    return environment("VK410_CONFIG");
}

bool isOff(const OptionInfo& option, const std::string& value)
{
    return option.isFlag && value == "false";
}

} // namespace

Configuration::Configuration(int argc, char** argv)
    : m_words(argv + 1, argv + argc)
    , m_path(namedPath(m_words))
{
    if (m_path.empty())
        m_path = usualPath();
    if (!m_path.empty())
        m_settings = settings::readSettings(m_path);
}

void Configuration::offerTo(CLI::App& program)
{
    checkNames(program);
    const std::vector<CLI::App*> verbs = verbsOf(program);
    for (std::size_t i = 0; i < m_words.size(); ++i) {
        const auto verb =
            std::ranges::find(verbs, m_words[i], [](const CLI::App* each) { return each->get_name(); });
        if (verb != verbs.end())
            return offer(**verb);
        i += m_words[i] == "--config" ? 1 : 0; // the next word is a path
    }
}

void Configuration::checkNames(CLI::App& program) const
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
            if (std::ranges::find(options, key, &OptionInfo::key) == options.end())
                throw settings::BadSettings{fmt::format(
                    "{0}:{1}: expected an option of {2}, found '{3}'; 'vk410 config --show {2}' lists "
                    "them",
                    m_path, setting.line, name, key)};
        }
    }
}

void Configuration::offer(CLI::App& verb)
{
    for (const OptionInfo& option : optionsOf(verb)) {
        const Given value = given(verb.get_name(), option.key);
        if (value.from.empty())
            continue;
        const std::string shown = option.isPositional ? option.value : "--" + option.key;
        if (!isOnCommandLine(shown))
            m_offers.push_back({shown, value});
        // The parser asks the environment for what the command line does not say, so the file speaks there,
        // too. A flag that is off is as if nobody spoke.
        const std::string name = environmentName(verb.get_name(), option.key);
        if (isOff(option, value.value))
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

Configuration::Given Configuration::given(const std::string& verb, const std::string& key) const
{
    const std::string name = environmentName(verb, key);
    if (const std::string value = environment(name); !value.empty())
        return {value, name};
    const auto settings = m_settings.find(verb);
    if (settings == m_settings.end())
        return {};
    const auto setting = settings->second.find(key);
    if (setting == settings->second.end())
        return {};
    return {setting->second.value, fmt::format("{}:{}", m_path, setting->second.line)};
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
