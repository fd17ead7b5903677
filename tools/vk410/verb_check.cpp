// SPDX-License-Identifier: MIT
// vk410 check: is this recording sound, and what of it can be saved.
#include "toolkit/checking/check.h"
#include "toolkit/checking/repair.h"
#include "toolkit/checking/truth.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <CLI/App.hpp>
#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace verbs {
namespace {

struct Arguments {
    std::string file;
    std::string repairTo;
    std::string truth;
    recording::Options options;
};

void printFindings(const Arguments& arguments, const checking::Findings& findings)
{
    for (const std::string& problem : findings.problems)
        fmt::print("{}: {}\n", arguments.file, problem);
    if (findings.problemCount > findings.problems.size())
        fmt::print("{}: and {} more\n", arguments.file, findings.problemCount - findings.problems.size());
    fmt::print("{:<22}{:>12}\n{:<22}{:>12}\n{:<22}{:>12}\n", "datagrams", findings.datagrams, "bytes",
               findings.bytes, "sound datagrams", findings.soundDatagrams);
    fmt::print("{:<22}{:>12}  without the magic\n", "invalid", findings.invalid);
    for (const auto& [reason, count] : findings.drops)
        fmt::print("{:<22}{:>12}  dropped by the library; 'vk410 inspect {} --json' names them\n", reason,
                   count, arguments.file);
    fmt::print("{:<22}{:>12}  bytes of the file that are in no whole datagram\n", "problems of the file",
               findings.problemCount);
    fmt::print("{:<22}{:>12}  sequence numbers that never came: lost before the recording\n", "missing",
               findings.missing);
    if (arguments.options.port)
        fmt::print("{:<22}{:>12}  packets of other ports{}\n", "ignored", findings.ignored.port,
                   findings.ignored.otherPort == 0
                       ? std::string{}
                       : fmt::format("; --port {} takes most of them", findings.ignored.otherPort));
    fmt::print("{}: {}\n", arguments.file,
               findings.isSound()           ? "sound"
               : findings.datagrams == 0    ? "not sound: expected datagrams, found none"
               : arguments.repairTo.empty() ? "not sound; --repair OUT keeps what is"
                                            : "not sound");
}

void printScore(const checking::Score& score)
{
    fmt::print("{:<22}{:>12}\n{:<22}{:>12}  byte for byte\n{:<22}{:>12}\n", "sent", score.sent, "there",
               score.there, "not there", score.missing());
    for (const auto& [fault, count] : score.missingByFault)
        fmt::print("  {:<20}{:>12}{}\n", fault.empty() ? "lost" : fault, count,
                   fault.empty() ? "  on the way: network, kernel or recorder" : "  on purpose");
    fmt::print("{:<22}{:>12}  that came again\n{:<22}{:>12}  that nobody sent like this\n", "copies",
               score.copies, "other datagrams", score.foreign);
}

// A repaired recording that is not whole yet, while the user may stop the program.
class RemovedWhenStopped {
public:
    explicit RemovedWhenStopped(const std::string& path)
    {
        if (path.empty() || path.size() >= m_path.size())
            return;
        path.copy(m_path.data(), path.size());
        for (const int number : stopping)
            (void)std::signal(number, stop);
    }
    RemovedWhenStopped(const RemovedWhenStopped&) = delete;
    RemovedWhenStopped& operator=(const RemovedWhenStopped&) = delete;
    ~RemovedWhenStopped()
    {
        if (m_path.front() == '\0')
            return;
        for (const int number : stopping)
            (void)std::signal(number, SIG_DFL);
        m_path.fill('\0');
    }

private:
    static constexpr std::array<int, 3> stopping{SIGINT, SIGTERM, SIGHUP};

    // Only calls that a signal handler may make.
    static void stop(int number)
    {
        (void)::unlink(m_path.data());
        (void)std::signal(number, SIG_DFL);
        (void)std::raise(number);
    }

    static inline std::array<char, PATH_MAX> m_path{}; // ends with a zero
};

int check(const Arguments& arguments)
{
    requireRecording(arguments.file);
    std::unique_ptr<checking::Truth> truth;
    if (!arguments.truth.empty())
        truth = std::make_unique<checking::Truth>(arguments.truth);
    std::unique_ptr<checking::Repair> repair;
    if (!arguments.repairTo.empty())
        repair = std::make_unique<checking::Repair>(arguments.file, arguments.repairTo);
    const RemovedWhenStopped halfWritten{repair ? repair->temporaryPath() : std::string{}};
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(arguments.file, unknown);
    Progress progress;
    const checking::Findings findings = checking::check(
        arguments.file, arguments.options, [&](const recording::Datagram& datagram, bool isSound) {
            if (truth)
                truth->take(datagram.bytes);
            if (repair && isSound)
                repair->keep(datagram);
            if (progress.isDue())
                progress.show(rateText(datagram.position, progress.seconds()) + ", " +
                              shareText({static_cast<double>(datagram.position),
                                         unknown ? 0 : static_cast<double>(size)},
                                        progress.seconds()));
        });
    progress.end();
    if (!findings.isWhole && findings.datagrams == 0)
        throw std::runtime_error{fmt::format("{}: {}", arguments.file, findings.problems.back())};
    printFindings(arguments, findings);
    bool isAllThere = true;
    if (truth) {
        const checking::Score score = truth->score();
        printScore(score);
        isAllThere = score.missing() == 0;
    }
    if (repair) {
        repair->finish();
        fmt::print("{}: {} datagrams kept, {} left out; read again, every byte as it was\n",
                   arguments.repairTo, repair->kept(), findings.datagrams - repair->kept());
    }
    return findings.isSound() && isAllThere ? Done : NotSound;
}

} // namespace

void addCheck(CLI::App& program, Run& run)
{
    CLI::App* const verb =
        program.add_subcommand("check", "is a recording sound, and what of it can be saved");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("FILE", arguments->file, "a recording or capture")->required()->check(notEmpty());
    verb->add_option("--repair", arguments->repairTo, "write what is sound into OUT, and read that again")
        ->check(notEmpty())
        ->type_name("OUT");
    verb->add_option("--truth", arguments->truth,
                     "score it against what 'vk410 simulate --truth' says was sent")
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--port", arguments->options.port, "only this UDP or TCP port")
        ->type_name("PORT")
        ->check(portFrom(1));
    verb->footer(
        "Exit codes: 0 sound, and all that was sent is there; 1 not; 2 no recording, or wrong usage.\n"
        "Examples:\n"
        "  vk410 check a.pcap\n"
        "  vk410 check a.pcap --repair good.pcap\n"
        "  vk410 check a.pcap --truth truth.ndjson");
    verb->callback([arguments, &run] { run = [arguments] { return check(*arguments); }; });
}

} // namespace verbs
