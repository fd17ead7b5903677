// SPDX-License-Identifier: MIT
// vk410: one program, one verb a task. Results go to stdout, talk to stderr.
#include "tools/vk410/verbs.h"
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <memory>

namespace {

// Without the empty lines in front of headings, so that the help of a verb fits a screen.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        return CLI::detail::find_and_replace(Formatter::make_help(app, std::move(name), mode), "\n\n", "\n");
    }
};

int usageError(const CLI::App& program, const CLI::ParseError& error)
{
    std::string command = program.get_name();
    for (const CLI::App* const verb : program.get_subcommands())
        command += " " + verb->get_name();
    fmt::print(stderr, "{}: {}; '{} --help' shows how\n", command, error.what(), command);
    return verbs::Failed;
}

int parseAndRun(int argc, char** argv)
{
    CLI::App program{"Mass data of VK410 monitoring receivers", "vk410"};
    program.require_subcommand(1);
    program.formatter(std::make_shared<HelpFormatter>());
    program.set_version_flag("--version", "vk410 " VK410_VERSION);
    program.footer("'vk410 VERB --help' tells more, with examples.\n"
                   "Exit codes: 0 done, 1 data lost or not sound, 2 failed or wrong usage.");
    verbs::Run run;
    verbs::addDemo(program, run);
    verbs::addMonitor(program, run);
    verbs::addInspect(program, run);
    verbs::addRecord(program, run);
    verbs::addReplay(program, run);
    verbs::addSimulate(program, run);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& shown) { // --help, --version
        program.exit(shown);
        return verbs::Done;
    } catch (const CLI::ParseError& error) {
        return usageError(program, error);
    }
    return run();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const int code = parseAndRun(argc, argv);
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
            return code;
        std::fputs("vk410: the results could not be written; check the disk behind stdout\n", stderr);
    } catch (const std::exception& error) {
        std::fputs("vk410: ", stderr);
        std::fputs(error.what(), stderr);
        std::fputs("\n", stderr);
    }
    return verbs::Failed;
}
