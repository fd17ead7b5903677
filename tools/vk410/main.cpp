// SPDX-License-Identifier: MIT
// vk410: one program, one verb a task. Results go to stdout, talk to stderr.
#include "tools/vk410/configuration.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include "tools/vk410/version.h"
// Here alone with what formats helps and reads files: its code comes into being wherever this is included,
// and makes a small file take as long to compile as a large one. The others take <CLI/App.hpp>.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <system_error>

namespace {

// Without the empty lines in front of headings, so that the help of a verb fits a screen, and without what
// `vk410 config --show` says: defaults and environment.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        return CLI::detail::find_and_replace(Formatter::make_help(app, std::move(name), mode), "\n\n", "\n");
    }
    std::string make_option_opts(const CLI::Option* option) const override
    {
        std::string text;
        if (const std::string type = option->get_type_name(); option->get_type_size() != 0 && !type.empty())
            text = " " + type;
        if (option->get_expected_max() == CLI::detail::expected_max_vector_size)
            text += " ...";
        return option->get_required() ? text + " REQUIRED" : text;
    }
};

// "vk410 monitor".
std::string commandOf(const CLI::App& program)
{
    std::string command = program.get_name();
    for (const CLI::App* const verb : program.get_subcommands())
        command += " " + verb->get_name();
    return command;
}

// Help and the verb that shows the configuration say what is wrong with it; any other would act on half of
// it.
bool isStoppedBy(const verbs::Configuration& configuration, const CLI::App& program)
{
    if (configuration.problem().empty())
        return false;
    const std::vector<CLI::App*> verbs = program.get_subcommands();
    return verbs.empty() || (verbs.front()->get_name() != "config" && verbs.front()->get_name() != "help");
}

void addVerbs(CLI::App& program, verbs::Run& run, const verbs::Configuration& configuration)
{
    verbs::addDemo(program, run);
    verbs::addMonitor(program, run);
    verbs::addInspect(program, run);
    verbs::addDoctor(program, run);
    verbs::addRecord(program, run);
    verbs::addReplay(program, run);
    verbs::addExport(program, run);
    verbs::addCheck(program, run);
    verbs::addSimulate(program, run);
    verbs::addConfig(program, run, configuration);
    verbs::addHelp(program, run);
    // --config may stand behind the verb, too.
    for (CLI::App* const verb : program.get_subcommands([](CLI::App*) { return true; }))
        verb->fallthrough();
}

int parseAndRun(int argc, char** argv)
{
    CLI::App program{"Mass data of VK410 monitoring receivers", "vk410"};
    program.require_subcommand(1);
    program.formatter(std::make_shared<HelpFormatter>());
    program.option_defaults()->always_capture_default();
    program.set_help_flag("-h,--help", "print this help");
    program.set_version_flag("--version", verbs::versionText(), "print the version");
    std::string named; // read by the configuration before anything is parsed
    program.add_option("--config", named, "values of options: a file as 'vk410 config --show' prints it")
        ->type_name("FILE");
    program.footer("'vk410 VERB --help' tells more, with examples.\n"
                   "Exit codes: 0 done, 1 data lost or not sound, 2 failed or wrong usage.");
    verbs::Configuration configuration{argc, argv};
    verbs::Run run;
    addVerbs(program, run, configuration);
    configuration.offerTo(program);
    for (const std::string& warning : verbs::Configuration::warnings(program))
        fmt::print(stderr, "vk410: {}\n", warning);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& shown) { // --help, --version
        program.exit(shown);
        return verbs::Done;
    } catch (const CLI::ParseError& error) {
        if (isStoppedBy(configuration, program))
            throw settings::BadSettings{configuration.problem()};
        fmt::print(stderr, "{0}: {1}{2}; '{0} --help' shows how\n", commandOf(program),
                   configuration.blame(error.what()), verbs::errorText(error, program));
        return verbs::Failed;
    }
    if (isStoppedBy(configuration, program))
        throw settings::BadSettings{configuration.problem()};
    try {
        return run();
    } catch (const std::exception& error) {
        if (std::ferror(stdout) != 0 && dynamic_cast<const std::system_error*>(&error))
            return verbs::NotSound; // whoever hands the results over says so
        std::fflush(stdout);
        fmt::print(stderr, "{}: {}{}\n", commandOf(program), configuration.blame(error.what()), error.what());
        return verbs::Failed;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const int code = parseAndRun(argc, argv);
        const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
        if (isWritten || code == verbs::Failed) // which has been told
            return code;
        std::fputs("vk410: the results could not be written; check the disk behind stdout\n", stderr);
    } catch (const std::exception& error) {
        std::fputs("vk410: ", stderr);
        std::fputs(error.what(), stderr);
        std::fputs("\n", stderr);
    }
    return verbs::Failed;
}
