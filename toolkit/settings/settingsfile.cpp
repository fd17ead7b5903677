// SPDX-License-Identifier: MIT
#include "toolkit/settings/settingsfile.h"
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

namespace settings {

namespace {

std::optional<std::string> scalarText(const toml::node& node)
{
    if (const auto* const text = node.as_string())
        return text->get();
    if (const auto* const number = node.as_integer())
        return std::to_string(number->get());
    if (const auto* const number = node.as_floating_point())
        return fmt::format("{}", number->get());
    if (const auto* const flag = node.as_boolean())
        return flag->get() ? "true" : "false";
    return std::nullopt;
}

std::optional<std::string> valueText(const toml::node& node)
{
    const toml::array* const list = node.as_array();
    if (!list)
        return scalarText(node);
    std::string joined;
    for (const toml::node& each : *list) {
        const std::optional<std::string> text = scalarText(each);
        if (!text)
            return std::nullopt;
        joined += (joined.empty() ? "" : ",") + *text;
    }
    return joined;
}

Setting::Kind kindOf(const toml::node& node)
{
    if (node.is_array())
        return Setting::Kind::List;
    if (node.is_boolean())
        return Setting::Kind::Flag;
    return node.is_number() ? Setting::Kind::Number : Setting::Kind::Text;
}

std::map<std::string, Setting> readTable(const std::string& path, const std::string& verb,
                                         const toml::table& table)
{
    std::map<std::string, Setting> settings;
    for (const auto& [key, node] : table) {
        const std::uint32_t line = node.source().begin.line;
        const std::optional<std::string> text = valueText(node);
        if (!text)
            throw BadSettings{
                fmt::format("{}:{}: [{}] {}: expected a text, a number, true, false, or a list of "
                            "them, found something else",
                            path, line, verb, std::string(key.str()))};
        settings[std::string(key.str())] = {*text, kindOf(node), line};
    }
    return settings;
}

} // namespace

Settings readSettings(const std::string& path)
{
    std::error_code unknown;
    if (std::filesystem::is_directory(path, unknown))
        throw BadSettings{
            fmt::format("{}: expected a configuration file, found a folder; name a file in it", path)};
    std::ifstream file{path};
    if (!file)
        throw BadSettings{
            fmt::format("{}: expected a configuration file, found: {}; 'vk410 config --show' prints "
                        "one",
                        path, std::strerror(errno))};
    toml::table root;
    try {
        root = toml::parse(file, path);
    } catch (const toml::parse_error& error) {
        throw BadSettings{fmt::format("{}:{}: expected TOML as 'vk410 config --show' prints it, found: {}",
                                      path, error.source().begin.line, error.description())};
    }
    Settings settings;
    for (const auto& [key, node] : root) {
        const std::string verb{key.str()};
        const toml::table* const table = node.as_table();
        if (!table)
            throw BadSettings{
                fmt::format("{}:{}: expected a table of a verb, for example [monitor], found '{}' "
                            "outside of any",
                            path, node.source().begin.line, verb)};
        settings[verb] = readTable(path, verb, *table);
    }
    return settings;
}

} // namespace settings
