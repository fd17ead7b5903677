// SPDX-License-Identifier: MIT
#include "tools/vk410/manualpage.h"
#include "tools/vk410/optiontree.h"
#include "tools/vk410/version.h"
#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <utility>

namespace verbs {

namespace {

constexpr char exitCodes[] = ".SH EXIT STATUS\n"
                             ".TP\n.B 0\ndone\n"
                             ".TP\n.B 1\ndata was lost, or is not sound\n"
                             ".TP\n.B 2\nnothing could be done, or wrong usage\n";

// Text as the formatter wants it: a minus is one, and nothing looks like a request.
std::string escaped(const std::string& text)
{
    std::string result;
    for (const char each : text) {
        if (each == '\\')
            result += "\\e";
        else if (each == '-')
            result += "\\-";
        else
            result += each;
    }
    return result.starts_with('.') || result.starts_with('\'') ? "\\&" + result : result;
}

std::string upper(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// Running text in lines that are no longer than a page's source is wide.
std::string wrapped(const std::string& text)
{
    constexpr std::size_t width = 76;
    std::string lines;
    std::string line;
    for (const std::string& word : CLI::detail::split(text, ' ')) {
        if (!line.empty() && escaped(line).size() + escaped(word).size() >= width)
            lines += escaped(std::exchange(line, "")) + "\n";
        line += (line.empty() ? "" : " ") + word;
    }
    return lines + escaped(line) + "\n";
}

std::string head(const std::string& name, const std::string& description)
{
    return fmt::format(".TH {} 1 {} \"vk410 {}\" \"User Commands\"\n.SH NAME\n{} \\-\n{}.SH SYNOPSIS\n",
                       upper(escaped(name)), versionDate(), versionNumber(), escaped(name),
                       wrapped(description));
}

std::string namesOf(const OptionInfo& option)
{
    if (option.isPositional)
        return fmt::format("\\fI{}\\fR", escaped(option.value));
    std::string names;
    for (const std::string& name : option.option->get_snames())
        names += fmt::format("\\fB\\-{}\\fR, ", escaped(name));
    names += fmt::format("\\fB\\-\\-{}\\fR", escaped(option.key));
    if (!option.value.empty())
        names += fmt::format(" \\fI{}\\fR", escaped(option.value));
    return names;
}

std::string synopsisOf(const std::string& verb, const std::vector<OptionInfo>& options)
{
    std::string text = fmt::format(".B vk410 {}\n[\\fIOPTIONS\\fR]", verb);
    for (const OptionInfo& option : options) {
        if (option.isPositional)
            text += option.option->get_required() ? fmt::format(" \\fI{}\\fR", option.value)
                                                  : fmt::format(" [\\fI{}\\fR]", option.value);
    }
    return text + "\n";
}

std::string examplesOf(const Footer& footer)
{
    std::string text = ".SH EXAMPLES\n.EX\n";
    for (const std::string& example : footer.examples)
        text += escaped(example) + "\n";
    return text + ".EE\n";
}

std::string seeAlso(CLI::App& program, const std::string& name)
{
    std::vector<std::string> others{"vk410"};
    for (const CLI::App* const verb : verbsOf(program))
        others.push_back("vk410-" + verb->get_name());
    std::erase(others, name);
    std::ranges::sort(others);
    std::string text = ".SH SEE ALSO\n";
    for (const std::string& other : others)
        text += fmt::format(".BR {} (1){}\n", escaped(other), &other == &others.back() ? "" : ",");
    return text;
}

} // namespace

std::string manualPage(CLI::App& program)
{
    std::string page = head("vk410", program.get_description());
    page += ".B vk410\n[\\fB\\-\\-config\\fR \\fIFILE\\fR] \\fIVERB\\fR [\\fIOPTIONS\\fR]\n.SH VERBS\n";
    for (const CLI::App* const verb : verbsOf(program))
        page += fmt::format(".TP\n.B {}\n{}", verb->get_name(), wrapped(verb->get_description()));
    page += ".SH OPTIONS\n"
            ".TP\n\\fB\\-\\-config\\fR \\fIFILE\\fR\na configuration file, before or behind the verb\n"
            ".TP\n\\fB\\-\\-version\\fR\nversion and commit\n"
            ".TP\n\\fB\\-\\-help\\fR\nthe verbs; behind a verb, its options and examples\n";
    page += exitCodes;
    page += ".SH ENVIRONMENT\n"
            ".TP\n.B VK410_CONFIG\na configuration file\n"
            ".TP\n.BI VK410_ VERB _ OPTION\nthe value of an option, for example VK410_MONITOR_RATE\n"
            ".SH FILES\n"
            ".TP\n.I $XDG_CONFIG_HOME/vk410.toml\nthe configuration file if none is named;\n"
            ".B vk410 config \\-\\-show\nprints one\n";
    return page + seeAlso(program, "vk410");
}

std::string manualPage(CLI::App& program, CLI::App& verb)
{
    const std::vector<OptionInfo> options = optionsOf(verb);
    const Footer footer = footerOf(verb);
    const std::string name = "vk410-" + verb.get_name();
    std::string page = head(name, verb.get_description()) + synopsisOf(verb.get_name(), options);
    if (!footer.remarks.empty())
        page += ".SH DESCRIPTION\n";
    for (const std::string& remark : footer.remarks)
        page += wrapped(remark);
    page += ".SH OPTIONS\n";
    for (const OptionInfo& option : options) {
        if (!option.isHidden)
            page += fmt::format(".TP\n{}\n{}", namesOf(option), wrapped(option.option->get_description()));
    }
    return page + exitCodes + examplesOf(footer) + seeAlso(program, name);
}

} // namespace verbs
