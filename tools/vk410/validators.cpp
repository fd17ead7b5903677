// SPDX-License-Identifier: MIT
#include "tools/vk410/validators.h"
#include "tools/vk410/optiontree.h"
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

namespace verbs {

namespace {

constexpr double highestPort = 65'535;
constexpr double highestWhole = 9'007'199'254'740'992; // beyond, whole numbers are not told apart

std::optional<double> numberIn(const std::string& text)
{
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{number} : std::nullopt;
}

bool isWhole(const std::string& text)
{
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

CLI::Validator validator(const std::string& expected, const std::function<bool(const std::string&)>& fits)
{
    return {[expected, fits](const std::string& text) {
                return fits(text) ? std::string{} : fmt::format("expected {}, found '{}'", expected, text);
            },
            std::string{}};
}

CLI::Validator number(const std::string& expected, double lowest, double highest)
{
    return validator(expected, [lowest, highest](const std::string& text) {
        const std::optional<double> number = numberIn(text);
        return number && *number >= lowest && *number <= highest;
    });
}

CLI::Validator wholeNumber(const std::string& expected, double lowest, double highest)
{
    return validator(expected, [lowest, highest](const std::string& text) {
        const std::optional<double> number = numberIn(text);
        return isWhole(text) && number && *number >= lowest && *number <= highest;
    });
}

// "--for = soon" of "Could not convert: --for = soon".
std::string behindColon(const std::string& text)
{
    const std::size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

std::string namesOfVerbs(CLI::App& program)
{
    std::string names;
    for (const CLI::App* const verb : verbsOf(program))
        names += (names.empty() ? "" : ", ") + verb->get_name();
    return names;
}

} // namespace

CLI::Validator numberFrom(double lowest)
{
    return number(fmt::format("a number from {:g} up", lowest), lowest, std::numeric_limits<double>::max());
}

CLI::Validator numberFrom(double lowest, double highest)
{
    return number(fmt::format("a number from {:g} to {:g}", lowest, highest), lowest, highest);
}

CLI::Validator positiveNumber()
{
    return number("a number above 0", std::numeric_limits<double>::min(), std::numeric_limits<double>::max());
}

CLI::Validator wholeNumberFrom(int lowest)
{
    return wholeNumber(fmt::format("a whole number from {} up", lowest), lowest, highestWhole);
}

CLI::Validator portFrom(int lowest)
{
    return wholeNumber(fmt::format("a port from {} to {:.0f}", lowest, highestPort), lowest, highestPort);
}

CLI::Validator oneOf(std::initializer_list<std::string> words)
{
    const std::vector<std::string> all = words;
    return validator(fmt::format("{}{}", all.size() > 1 ? "one of " : "", fmt::join(all, ", ")),
                     [all](const std::string& text) { return std::ranges::find(all, text) != all.end(); });
}

CLI::Validator notEmpty()
{
    return {[](const std::string& text) {
                return text.empty() ? std::string{"expected a name, found an empty text"} : std::string{};
            },
            std::string{}};
}

std::string errorText(const CLI::ParseError& error, CLI::App& program)
{
    std::string text = error.what();
    if (const std::vector<std::string> words = program.remaining();
        program.get_subcommands().empty() && !words.empty())
        return fmt::format("expected one of the verbs {}, found '{}'", namesOfVerbs(program), words.front());
    if (dynamic_cast<const CLI::ExtrasError*>(&error))
        return fmt::format("expected no other arguments, found {}", behindColon(text));
    if (dynamic_cast<const CLI::ConversionError*>(&error))
        return fmt::format("expected a number that fits, found {}", behindColon(text));
    if (const std::size_t end = text.find(" is required"); end != std::string::npos)
        return fmt::format("expected {}, found none",
                           text.starts_with("A subcommand") ? "a verb" : text.substr(0, end));
    if (const std::size_t middle = text.find(" excludes "); middle != std::string::npos)
        return fmt::format("expected one of {} and {}, found both", text.substr(0, middle),
                           text.substr(middle + 10));
    return text;
}

} // namespace verbs
