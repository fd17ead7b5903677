// SPDX-License-Identifier: MIT
// vk410 record: keeps the bytes of a source as they came.
#include "toolkit/recording/recorder.h"
#include "tools/vk410/eventloop.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>

namespace verbs {
namespace {

struct Arguments {
    std::string source;
    std::string output;
    double seconds = 0;
    double rotateMegabytes = 0;
    double rotateSeconds = 0;
};

double freeGigabytes(const std::string& path)
{
    std::error_code error;
    const auto folder = std::filesystem::absolute(path, error).parent_path();
    return static_cast<double>(std::filesystem::space(folder, error).available) / 1e9;
}

std::string progressText(const Arguments& arguments, const recording::Recorder& recorder,
                         const receiver::Source::Facts& facts, double seconds)
{
    std::string line = fmt::format("{} datagrams, {:.2f} MB, {}, skipped {}, {:.1f} GB of disk left",
                                   recorder.taken(), static_cast<double>(recorder.bytesTaken()) / 1e6,
                                   rateText(recorder.bytesTaken(), seconds), recorder.skipped(),
                                   freeGigabytes(arguments.output));
    if (arguments.seconds > 0)
        line += ", " + shareText({seconds, arguments.seconds}, seconds);
    else if (facts.fileBytes > 0)
        line +=
            ", " + shareText({static_cast<double>(facts.fileBytesRead), static_cast<double>(facts.fileBytes)},
                             seconds);
    return line;
}

int record(const Arguments& arguments)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    // A recording is copied as fast as it can be read; a simulated receiver sends at its own pace.
    const double rate = arguments.source.starts_with("sim:") ? 1 : 0;
    // First, so that nothing is overwritten where there is nothing to record.
    const auto source = openSource(arguments.source, {.rate = rate});
    requireOtherFile(arguments.source, arguments.output);
    recording::Recorder recorder{arguments.output,
                                 {static_cast<std::uint64_t>(arguments.rotateMegabytes * 1e6),
                                  static_cast<std::int64_t>(arguments.rotateSeconds)}};
    EventLoop loop;
    Progress progress;
    QObject::connect(source.get(), &receiver::Source::said, [&progress](const QString& text) {
        progress.end();
        fmt::print(stderr, "{}\n", text.toStdString());
    });
    QObject::connect(source.get(), &receiver::Source::finished, [] { QCoreApplication::quit(); });
    source->start([&recorder](const receiver::Received& received) {
        recorder.take(received.datagram->Bytes(), received.datagram->Size(), received.receivedNs,
                      received.origin);
    });
    loop.run(arguments.seconds, [&] {
        progress.show(progressText(arguments, recorder, source->facts(), progress.seconds()));
        if (recorder.failure())
            QCoreApplication::quit();
    });
    progress.end();
    fmt::print("{} datagrams, {} bytes, {} skipped, {} dropped by the kernel, {} file{}\n", recorder.taken(),
               recorder.bytesTaken(), recorder.skipped(), source->facts().kernelDropped,
               recorder.files().size(), recorder.files().size() == 1 ? "" : "s");
    if (const auto failure = recorder.failure()) {
        fmt::print(stderr, "vk410 record: {}; what came before is kept\n", *failure);
        return NotSound;
    }
    const bool isWhole = recorder.skipped() == 0 && source->facts().kernelDropped == 0 && !source->failed();
    return isWhole ? Done : NotSound;
}

} // namespace

void addRecord(CLI::App& program, Run& run)
{
    CLI::App* const verb =
        program.add_subcommand("record", "keep the bytes of a source as they came, as a capture");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SOURCE", arguments->source, sourceHelp)->required();
    verb->add_option("-o,--output", arguments->output, "the capture to write; Wireshark opens it")
        ->required()
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--for", arguments->seconds, "stop after SECONDS")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->add_option("--rotate-size", arguments->rotateMegabytes,
                     "go on in a new file (a-0001.pcap, ...) after MB")
        ->check(numberFrom(0))
        ->type_name("MB");
    verb->add_option("--rotate-time", arguments->rotateSeconds, "go on in a new file after SECONDS")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->footer("Ctrl-C ends it and leaves a valid file; a killed process leaves one that reads up to its "
                 "last whole record.\n"
                 "Examples:\n"
                 "  vk410 record udp://:5555 -o a.pcap --for 30\n"
                 "  vk410 record tcp://192.0.2.7:5555 -o day.pcap --rotate-time 3600\n"
                 "  vk410 record udp://239.1.2.3@192.0.2.1:5555 -o a.pcap --rotate-size 1000");
    verb->callback([arguments, &run] { run = [arguments] { return record(*arguments); }; });
}

} // namespace verbs
