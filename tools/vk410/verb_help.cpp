// SPDX-License-Identifier: MIT
// vk410 help: help on a verb; for packages, manual pages and completion.
#include "tools/vk410/completion.h"
#include "tools/vk410/manualpage.h"
#include "tools/vk410/optiontree.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace verbs {
namespace {

struct Arguments {
    std::string verb;
    std::vector<std::string> manual; // verb or "all", folder
    std::string shell;
};

CLI::App& verbNamed(CLI::App& program, const std::string& name)
{
    for (CLI::App* const verb : verbsOf(program)) {
        if (verb->get_name() == name)
            return *verb;
    }
    throw std::runtime_error{fmt::format("expected a verb, found '{}'; 'vk410 --help' lists them", name)};
}

void write(const std::string& path, const std::string& page)
{
    std::ofstream file{path};
    file << page;
    file.close();
    if (!file)
        throw std::runtime_error{
            fmt::format("{}: expected a file that can be written, found: {}; choose a folder that "
                        "exists and that you may write to",
                        path, std::strerror(errno))};
}

void writePages(CLI::App& program, const std::string& name, const std::string& folder)
{
    if (name != "all")
        return write(fmt::format("{}/vk410-{}.1", folder, name),
                     manualPage(program, verbNamed(program, name)));
    write(folder + "/vk410.1", manualPage(program));
    for (CLI::App* const verb : verbsOf(program))
        write(fmt::format("{}/vk410-{}.1", folder, verb->get_name()), manualPage(program, *verb));
}

int help(const Arguments& arguments, CLI::App& program)
{
    if (!arguments.manual.empty())
        writePages(program, arguments.manual[0], arguments.manual[1]);
    else if (!arguments.shell.empty())
        fmt::print("{}", bashCompletion(program));
    else if (!arguments.verb.empty())
        fmt::print("{}", verbNamed(program, arguments.verb).help("vk410"));
    else
        fmt::print("{}", program.get_formatter()->make_help(&program, "vk410", CLI::AppFormatMode::Normal));
    return Done;
}

} // namespace

void addHelp(CLI::App& program, Run& run)
{
    CLI::App* const verb = program.add_subcommand("help", "help on a verb")->group("");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("VERB", arguments->verb, "a verb")->type_name("");
    verb->add_option("--man", arguments->manual, "write the manual page of VERB, or of all, into FOLDER")
        ->expected(2)
        ->type_name("VERB FOLDER");
    verb->add_option("--completion", arguments->shell, "print a script that completes commands")
        ->check(oneOf({"bash"}))
        ->type_name("SHELL");
    verb->footer("Examples:\n"
                 "  vk410 help monitor\n"
                 "  vk410 help --man all .\n"
                 "  vk410 help --completion bash");
    verb->callback(
        [arguments, &program, &run] { run = [arguments, &program] { return help(*arguments, program); }; });
}

} // namespace verbs
