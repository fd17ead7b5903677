// SPDX-License-Identifier: MIT
// vk410 config: what every option is set to, and where that comes from.
#include "tools/vk410/configuration.h"
#include "tools/vk410/optiontree.h"
#include "tools/vk410/verbs.h"
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <memory>

namespace verbs {
namespace {

constexpr std::size_t columnOfOrigin = 40;
constexpr std::size_t mostDigits = 15; // longer ones stay texts: TOML has 64 bits

struct Arguments {
    bool show = false;
    std::string verb;
};

// A basic string of TOML.
std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char each : text) {
        if (each == '"' || each == '\\')
            result += '\\';
        if (static_cast<unsigned char>(each) < ' ' || each == '\x7F')
            result += fmt::format("\\u{:04X}", static_cast<unsigned char>(each));
        else
            result += each;
    }
    return result + '"';
}

// "007" and "-01" are no numbers of TOML.
bool hasLeadingZero(const std::string& text)
{
    const std::size_t first = text.starts_with('-') ? 1 : 0;
    return text.size() > first + 1 && text[first] == '0' && text[first + 1] != '.';
}

bool isNumber(const std::string& text)
{
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isPlain =
        std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || c == '.' || c == '-'; });
    return error == std::errc{} && end == text.data() + text.size() && isPlain && !text.ends_with('.') &&
           text.front() != '.' && text.size() <= mostDigits && !hasLeadingZero(text);
}

std::string tomlText(const OptionInfo& option, const std::string& value)
{
    if (option.isFlag)
        return value.empty() ? "false" : value;
    if (option.isList) {
        std::string list;
        for (const std::string& each : CLI::detail::split(value, ','))
            list += each.empty() ? "" : (list.empty() ? "" : ", ") + quoted(each);
        return "[" + list + "]";
    }
    return isNumber(value) && !option.isText ? value : quoted(value);
}

std::string defaultOf(const OptionInfo& option)
{
    const std::string text = option.option->get_default_str();
    // The parser writes an empty text, or an empty list, with its own quotes around.
    return text == "\"\"" || text == "[]" || text == "{}" ? "" : text;
}

// What cannot be is left out, and told on stderr.
// Result: how much that was.
std::size_t show(CLI::App& verb, const Configuration& configuration)
{
    std::size_t complaints = 0;
    fmt::print("\n[{}]\n", verb.get_name());
    for (const OptionInfo& option : optionsOf(verb)) {
        const Configuration::Given given = configuration.given(verb.get_name(), option);
        if (!given.complaint.empty()) {
            ++complaints;
            fmt::print(stderr, "vk410 config: {}: [{}] {}: {}; the default is shown\n", given.from,
                       verb.get_name(), option.key, given.complaint);
        }
        const bool isDefault = given.from.empty() || !given.complaint.empty();
        const std::string line = fmt::format("{}{} = {}", isDefault ? "# " : "", option.key,
                                             tomlText(option, isDefault ? defaultOf(option) : given.value));
        fmt::print("{:<{}} # {}\n", line, columnOfOrigin, isDefault ? "default" : given.from);
    }
    return complaints;
}

int config(const Arguments& arguments, CLI::App& program, const Configuration& configuration)
{
    const std::vector<CLI::App*> verbs = verbsOf(program);
    const auto isMeant = [&arguments](const CLI::App* verb) {
        return arguments.verb.empty() || verb->get_name() == arguments.verb;
    };
    if (std::ranges::none_of(verbs, isMeant))
        throw settings::BadSettings{
            fmt::format("expected a verb, found '{}'; 'vk410 --help' lists them", arguments.verb)};
    if (!configuration.problem().empty())
        fmt::print(stderr, "vk410 config: {}\n", configuration.problem());
    fmt::print("# configuration file: {}\n", configuration.path().empty() ? "none" : configuration.path());
    std::size_t complaints = 0;
    for (CLI::App* const verb : verbs) {
        if (isMeant(verb) && verb->get_name() != "config")
            complaints += show(*verb, configuration);
    }
    return complaints == 0 && configuration.problem().empty() ? Done : NotSound;
}

} // namespace

void addConfig(CLI::App& program, Run& run, const Configuration& configuration)
{
    CLI::App* const verb =
        program.add_subcommand("config", "what every option is set to, and where that comes from");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_flag("--show", arguments->show, "print all options as a configuration file")->required();
    verb->add_option("VERB", arguments->verb, "of this verb only")->type_name("");
    verb->footer(
        "An option's value comes from the command line, else from the environment (VK410_MONITOR_RATE), else "
        "from\nthe configuration file (--config FILE, VK410_CONFIG, $XDG_CONFIG_HOME/vk410.toml), else it is "
        "the "
        "default.\nExit codes: 0 done, 1 something there cannot be used, 2 wrong usage.\n"
        "Examples:\n"
        "  vk410 config --show\n"
        "  vk410 config --show monitor\n"
        "  VK410_MONITOR_RATE=4 vk410 config --show monitor");
    verb->callback([arguments, &program, &run, &configuration] {
        run = [arguments, &program, &configuration] { return config(*arguments, program, configuration); };
    });
}

} // namespace verbs
