// SPDX-License-Identifier: MIT
// vk410 inspect: what is in a recording.
#include "toolkit/inspection/explanation.h"
#include "toolkit/inspection/inspector.h"
#include "toolkit/inspection/jsonlines.h"
#include "toolkit/inspection/summary.h"
#include "toolkit/recording/recording.h"
#include "tools/vk410/verbs.h"
#include <cstdio>
#include <fmt/format.h>
#include <memory>

namespace verbs {
namespace {

constexpr std::size_t shownProblems = 20;

struct Arguments {
    std::string source;
    bool json = false;
    std::optional<std::uint64_t> explain;
    recording::Options options;
};

// What is told on stderr; beyond a few lines only how much there is.
class Talk {
public:
    explicit Talk(std::string source)
        : m_source(std::move(source))
    {}

    void say(const std::string& text) const
    {
        std::fflush(stdout); // results that belong before this come before it
        fmt::print(stderr, "vk410 inspect: {}\n", text);
    }
    void problem(const recording::Problem& problem)
    {
        if (m_problems++ < shownProblems)
            say(m_source + ": " + text(problem));
    }
    void finish() const
    {
        if (m_problems > shownProblems)
            say(fmt::format("{}: and {} more losses", m_source, m_problems - shownProblems));
    }
    [[nodiscard]] bool anyProblem() const { return m_problems > 0; }

private:
    std::string m_source;
    std::size_t m_problems = 0;
};

std::unique_ptr<inspection::Sink> sinkFor(const Arguments& arguments)
{
    if (arguments.json)
        return std::make_unique<inspection::JsonLines>(stdout);
    return std::make_unique<inspection::Summary>(stdout, arguments.source);
}

std::string emptyText(const Arguments& arguments, const recording::Ignored& ignored)
{
    return fmt::format(
        "{}: no datagrams; of {} packets {} are neither UDP nor TCP, {} of other ports; {} TCP "
        "streams hold none",
        arguments.source, ignored.packets, ignored.protocol, ignored.port, ignored.tcpStreams);
}

// Result: whether the source could be read to its end.
bool readAll(recording::DatagramSource& source, inspection::Inspector& inspector, const Talk& talk)
{
    try {
        while (std::optional<recording::Datagram> datagram = source.next())
            inspector.inspect(std::move(*datagram));
        return true;
    } catch (const recording::BadFile& bad) {
        talk.say(fmt::format("{}; {} datagrams came before it", bad.what(), inspector.count()));
        return false;
    }
}

// The datagram asked for, and nothing when there are fewer.
std::optional<recording::Datagram> find(std::uint64_t index, recording::DatagramSource& source,
                                        inspection::Inspector& inspector)
{
    std::optional<recording::Datagram> datagram = source.next();
    for (; datagram && inspector.count() < index; datagram = source.next())
        inspector.skip();
    return datagram;
}

int explainOne(const Arguments& arguments, recording::DatagramSource& source, Talk& talk)
{
    inspection::Explanation explanation{stdout};
    inspection::Inspector inspector{explanation};
    std::string end = "the end";
    try {
        if (std::optional<recording::Datagram> datagram = find(*arguments.explain, source, inspector)) {
            inspector.inspect(std::move(*datagram));
            return inspector.allSound() ? Done : NotSound;
        }
    } catch (const recording::BadFile& bad) {
        end = text(bad.problem());
    }
    talk.say(fmt::format("{}: expected datagram {}, found {} before {}; they count from 0", arguments.source,
                         *arguments.explain, inspector.count(), end));
    return Failed;
}

bool isLive(const std::string& source)
{
    return source.starts_with("udp://") || source.starts_with("tcp://") || source.starts_with("sim:");
}

int inspect(const Arguments& arguments)
{
    Talk talk{arguments.source};
    if (isLive(arguments.source)) {
        talk.say(arguments.source +
                 ": expected the path of a recording, found a live source; record it first");
        return Failed;
    }
    std::unique_ptr<recording::DatagramSource> source;
    try {
        source = recording::openRecording(arguments.source, arguments.options);
    } catch (const recording::CannotOpen& error) {
        talk.say(error.what());
        return Failed;
    } catch (const recording::BadFile& bad) {
        talk.say(bad.what());
        return NotSound;
    }
    source->onProblem([&talk](const recording::Problem& problem) { talk.problem(problem); });
    if (arguments.explain)
        return explainOne(arguments, *source, talk);

    const std::unique_ptr<inspection::Sink> sink = sinkFor(arguments);
    inspection::Inspector inspector{*sink};
    const bool isWhole = readAll(*source, inspector, talk);
    if (inspector.count() > 0)
        sink->finish();
    talk.finish();
    if (inspector.count() == 0 && isWhole)
        talk.say(emptyText(arguments, source->ignored()));
    return isWhole && inspector.allSound() && !talk.anyProblem() ? Done : NotSound;
}

} // namespace

void addInspect(CLI::App& program, Run& run)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* const verb = program.add_subcommand("inspect", "Show what is in a recording");
    verb->add_option("SOURCE", arguments->source, "A pcap or pcapng capture, or datagrams back to back")
        ->required();
    CLI::Option* const json = verb->add_flag("--json", arguments->json, "One JSON object a line");
    verb->add_option("--explain", arguments->explain, "Show datagram N byte by byte; they count from 0")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->excludes(json);
    verb->add_option("--port", arguments->options.port, "Only this UDP or TCP port")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535));
    verb->footer("Without --json or --explain: a table of tags and channels, and what was dropped.\n"
                 "Exit code 1: something in the recording is not sound.\n"
                 "\n"
                 "Examples:\n"
                 "  vk410 inspect receiver.pcap --port 5555\n"
                 "  vk410 inspect stream.bin --json\n"
                 "  vk410 inspect stream.bin --explain 1");
    verb->callback([arguments, &run] { run = [arguments] { return inspect(*arguments); }; });
}

} // namespace verbs
