// SPDX-License-Identifier: MIT
// vk410 inspect: what is in a recording or in a live stream.
#include "toolkit/inspection/explanation.h"
#include "toolkit/inspection/inspector.h"
#include "toolkit/inspection/jsonlines.h"
#include "toolkit/inspection/summary.h"
#include "toolkit/recording/recording.h"
#include "tools/vk410/eventloop.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>
#include <utility>

namespace verbs {
namespace {

constexpr std::size_t shownProblems = 20;

struct Arguments {
    std::string source;
    bool json = false;
    std::optional<std::uint64_t> explain;
    std::uint64_t count = 0; // 0: all
    double seconds = 0;      // 0: until it is stopped
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
    const std::string hint =
        ignored.otherPort == 0 ? std::string{} : fmt::format(", most of port {}", ignored.otherPort);
    return fmt::format(
        "{}: no datagrams; of {} packets {} are neither UDP nor TCP, {} of other ports{}; {} TCP "
        "streams hold none",
        arguments.source, ignored.packets, ignored.protocol, ignored.port, hint, ignored.tcpStreams);
}

// Of a file that is read from its start to its end.
class FileProgress {
public:
    explicit FileProgress(const Arguments& arguments)
        : m_size(sizeOf(arguments.source))
        , m_isQuiet(arguments.json && ::isatty(STDOUT_FILENO) == 1) // results would run into it
    {}

    void at(std::uint64_t position)
    {
        if (m_isQuiet || !m_progress.isDue())
            return;
        const double seconds = m_progress.seconds();
        m_progress.show(rateText(position, seconds) + ", " +
                        shareText({static_cast<double>(position), m_size}, seconds));
    }

private:
    static double sizeOf(const std::string& path)
    {
        std::error_code unknown;
        const std::uintmax_t size = std::filesystem::file_size(path, unknown);
        return unknown ? 0.0 : static_cast<double>(size);
    }

    double m_size;
    bool m_isQuiet;
    Progress m_progress;
};

// Result: whether the source could be read to its end.
bool readAll(const Arguments& arguments, recording::DatagramSource& source, inspection::Inspector& inspector,
             const Talk& talk)
{
    FileProgress progress{arguments};
    try {
        while (arguments.count == 0 || inspector.count() < arguments.count) {
            std::optional<recording::Datagram> datagram = source.next();
            if (!datagram)
                break;
            progress.at(datagram->position);
            inspector.inspect(std::move(*datagram));
        }
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

std::unique_ptr<inspection::Sink> liveSinkFor(const Arguments& arguments)
{
    if (arguments.explain)
        return std::make_unique<inspection::Explanation>(stdout);
    return sinkFor(arguments);
}

// A live stream, datagram by datagram, until enough has come or the user stops it.
class LiveInspection {
public:
    explicit LiveInspection(const Arguments& arguments)
        : m_arguments(arguments)
        , m_sink(liveSinkFor(arguments))
        , m_inspector(*m_sink)
        , m_source(openSource(arguments.source, {}))
    {
        QObject::connect(m_source.get(), &receiver::Source::said, [this](const QString& text) {
            m_progress.end();
            fmt::print(stderr, "{}\n", text.toStdString());
        });
        QObject::connect(m_source.get(), &receiver::Source::finished, [] { QCoreApplication::quit(); });
    }

    int run(Talk& talk)
    {
        m_source->start([this](const receiver::Received& received) { take(received); });
        m_loop.run(m_arguments.seconds, [this] { showProgress(); });
        m_progress.end();
        const std::uint64_t dropped = m_source->facts().kernelDropped;
        if (m_arguments.explain && !m_isEnough) {
            talk.say(fmt::format("{}: expected datagram {}, found {} before the end; they count from 0",
                                 m_arguments.source, *m_arguments.explain, m_inspector.count()));
            return Failed;
        }
        if (m_inspector.count() == 0) {
            talk.say(
                fmt::format("{0}: expected datagrams, none came in {1:.1f} s; 'vk410 doctor {0}' says why",
                            m_arguments.source, m_progress.seconds()));
            return NotSound;
        }
        m_sink->finish();
        if (dropped > 0)
            talk.say(fmt::format("{}: {} packets were dropped by the system because the socket's buffer was "
                                 "full; 'sudo sysctl -w net.core.rmem_max=8388608' makes it larger",
                                 m_arguments.source, dropped));
        return m_inspector.allSound() && dropped == 0 ? Done : NotSound;
    }

private:
    void take(const receiver::Received& received)
    {
        if (m_isEnough)
            return;
        const unsigned char* const bytes = received.datagram->Bytes();
        const std::size_t size = received.datagram->Size();
        const std::uint64_t position = std::exchange(m_position, m_position + size);
        if (m_arguments.explain && m_inspector.count() < *m_arguments.explain)
            return m_inspector.skip();
        m_inspector.inspect(
            {recording::withSpareRoom(bytes, size), position, received.receivedNs, received.origin});
        m_isEnough = m_arguments.explain || m_inspector.count() == m_arguments.count;
        if (m_isEnough)
            QCoreApplication::quit();
    }

    void showProgress()
    {
        if (m_arguments.json && ::isatty(STDOUT_FILENO) == 1)
            return; // results would run into it
        const double seconds = m_progress.seconds();
        const auto count = static_cast<double>(m_inspector.count());
        std::string text =
            fmt::format("{} datagrams, {}", m_inspector.count(), rateText(m_position, seconds));
        if (m_arguments.count > 0)
            text += ", " + shareText({count, static_cast<double>(m_arguments.count)}, seconds);
        else if (m_arguments.seconds > 0)
            text += ", " + shareText({seconds, m_arguments.seconds}, seconds);
        m_progress.show(text);
    }

    EventLoop m_loop;
    const Arguments& m_arguments;
    std::unique_ptr<inspection::Sink> m_sink;
    inspection::Inspector m_inspector;
    std::unique_ptr<receiver::Source> m_source;
    Progress m_progress;
    std::uint64_t m_position = 0; // in the stream
    bool m_isEnough = false;
};

int inspectLive(const Arguments& arguments, Talk& talk)
{
    if (arguments.options.port)
        throw receiver::BadSource{fmt::format("--port: expected a recording to look into, found {}; a live "
                                              "source has a port of its own",
                                              arguments.source)};
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    return LiveInspection{arguments}.run(talk);
}

int inspect(const Arguments& arguments)
{
    Talk talk{arguments.source};
    if (receiver::parseSource(arguments.source).kind != receiver::SourceSpec::Kind::Recording)
        return inspectLive(arguments, talk);
    if (arguments.seconds > 0)
        throw receiver::BadSource{fmt::format("--for: expected a live source, found {}; --count N ends in a "
                                              "recording",
                                              arguments.source)};
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
    const bool isWhole = readAll(arguments, *source, inspector, talk);
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
    CLI::App* const verb = program.add_subcommand("inspect", "show what is in a recording or a live stream");
    verb->add_option("SOURCE", arguments->source, sourceHelp)->required();
    CLI::Option* const json = verb->add_flag("--json", arguments->json, "one JSON object a line");
    verb->add_option("--explain", arguments->explain, "show datagram N byte by byte; they count from 0")
        ->type_name("N")
        ->check(wholeNumberFrom(0))
        ->excludes(json);
    verb->add_option("--count", arguments->count, "end after N datagrams")
        ->type_name("N")
        ->check(wholeNumberFrom(1));
    verb->add_option("--for", arguments->seconds, "end after SECONDS of a live stream")
        ->type_name("SECONDS")
        ->check(positiveNumber());
    verb->add_option("--port", arguments->options.port, "only this UDP or TCP port of a capture")
        ->type_name("PORT")
        ->check(portFrom(1));
    verb->footer(
        "Without --json or --explain: a table of tags and channels, and what was dropped; Ctrl-C ends "
        "a live stream.\n"
        "Exit code 1: something is not sound, or nothing came.\n"
        "\n"
        "Examples:\n"
        "  vk410 inspect receiver.pcap --port 5555\n"
        "  vk410 inspect sim:demo --for 1\n"
        "  vk410 inspect stream.bin --explain 1");
    verb->callback([arguments, &run] { run = [arguments] { return inspect(*arguments); }; });
}

} // namespace verbs
