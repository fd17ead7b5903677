// SPDX-License-Identifier: MIT
#include "tools/vk410/optiontree.h"
#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <string_view>

namespace verbs {

namespace {

std::string lower(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

OptionInfo infoOf(CLI::Option& option)
{
    OptionInfo info{};
    info.option = &option;
    info.isPositional = option.get_positional() && option.get_lnames().empty();
    info.isFlag = option.get_items_expected_max() == 0;
    info.isList = option.get_expected_max() == CLI::detail::expected_max_vector_size;
    info.isHidden = option.get_group().empty();
    info.key = info.isPositional ? lower(option.get_single_name()) : option.get_lnames().front();
    if (!info.isFlag) {
        const std::string type = option.get_type_name();
        info.value = info.isPositional ? option.get_single_name() : type.substr(0, type.find(':'));
    }
    if (info.value.find('|') != std::string::npos) {
        std::istringstream names{info.value};
        for (std::string name; std::getline(names, name, '|');)
            info.choices.push_back(name);
    }
    constexpr std::array<std::string_view, 3> files{"FILE", "OUT", "META"};
    info.isText = info.isPositional || !info.choices.empty() || info.value.find(':') != std::string::npos ||
                  std::ranges::find(files, info.value) != files.end();
    return info;
}

} // namespace

std::vector<OptionInfo> optionsOf(CLI::App& verb)
{
    std::vector<OptionInfo> options;
    for (CLI::Option* const option : verb.get_options()) {
        if (option != verb.get_help_ptr())
            options.push_back(infoOf(*option));
    }
    return options;
}

std::vector<CLI::App*> verbsOf(CLI::App& program)
{
    return program.get_subcommands([](CLI::App* verb) { return !verb->get_group().empty(); });
}

std::string complaintAbout(const OptionInfo& option, const std::string& value)
{
    std::string complaint;
    // The parser tells how many checks there are by refusing to give more.
    for (int i = 0; complaint.empty(); ++i) {
        const CLI::Validator* check = nullptr;
        try {
            check = option.option->get_validator(i);
        } catch (const CLI::OptionNotFound&) {
            return {};
        }
        for (std::string each : option.isList ? CLI::detail::split(value, ',') : std::vector{value}) {
            if (complaint.empty())
                complaint = (*check)(each);
        }
    }
    return complaint;
}

std::string environmentName(const std::string& verb, const std::string& key)
{
    std::string name = "VK410_" + verb + "_" + key;
    std::ranges::transform(name, name.begin(), [](unsigned char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(c));
    });
    return name;
}

Footer footerOf(const CLI::App& verb)
{
    Footer footer;
    std::istringstream text{verb.get_footer()};
    bool isBehind = false;
    for (std::string line; std::getline(text, line);) {
        if (line == "Examples:")
            isBehind = true;
        else if (isBehind)
            footer.examples.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
        else if (!line.empty())
            footer.remarks.push_back(line);
    }
    return footer;
}

} // namespace verbs
