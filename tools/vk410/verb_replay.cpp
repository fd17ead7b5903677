// SPDX-License-Identifier: MIT
// vk410 replay: sends a recording again.
#include "toolkit/receiver/recordingsource.h"
#include "toolkit/sending/sender.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/stopsignals.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <QTimer>
#include <exception>
#include <fmt/format.h>

namespace verbs {
namespace {

struct Arguments {
    std::string file;
    std::string udp;
    std::string tcp;
    receiver::Playback playback;
};

// How much may wait for a TCP client before the playback pauses.
constexpr std::int64_t pauseAboveBytes = 8 << 20;

class Replay {
public:
    explicit Replay(const Arguments& arguments)
        : m_source(arguments.file, arguments.playback)
    {
        if (!arguments.udp.empty()) {
            const receiver::ListenSpec place = receiver::parseListen(arguments.udp);
            m_sender = std::make_unique<sending::UdpSender>(place.address, place.port);
        } else {
            const receiver::ListenSpec place = receiver::parseListen(arguments.tcp);
            auto server = std::make_unique<sending::TcpSender>(place.address, place.port);
            m_server = server.get();
            m_sender = std::move(server);
        }
        QObject::connect(&m_source, &receiver::Source::said,
                         [](const QString& text) { fmt::print(stderr, "{}\n", text.toStdString()); });
        QObject::connect(&m_source, &receiver::Source::finished, [this] { m_finished = true; });
        QObject::connect(&m_poll, &QTimer::timeout, [this] { poll(); });
    }

    int run()
    {
        const StopSignals stop;
        fmt::print(stderr, "replay to {}{}\n", m_sender->name(), m_server ? ", waiting for a client" : "");
        m_poll.start(5);
        QCoreApplication::exec();
        if (m_failure)
            std::rethrow_exception(m_failure);
        fmt::print("{} datagrams sent to {}, {} dropped\n", m_sent, m_sender->name(), m_sender->dropped());
        return m_source.failed() || m_sender->dropped() != 0 ? NotSound : Done;
    }

private:
    // A TCP stream begins with its first client and never gets far ahead of it; it ends when the client has
    // all of it.
    void poll()
    {
        if (!m_started && (!m_server || m_server->clients() > 0))
            tryToStart();
        const std::int64_t waiting = m_server ? m_server->mostWaiting() : 0;
        m_source.setFull(waiting > pauseAboveBytes);
        if (m_finished && waiting == 0)
            QCoreApplication::quit();
    }

    // What it throws must not pass through the event loop.
    void tryToStart()
    {
        try {
            start();
        } catch (...) {
            m_failure = std::current_exception();
            QCoreApplication::quit();
        }
    }

    void start()
    {
        m_started = true;
        m_source.start([this](const receiver::Received& received) {
            m_sender->send({received.datagram->Bytes(), received.datagram->Size()});
            ++m_sent;
            if (m_server && m_server->mostWaiting() > pauseAboveBytes)
                m_source.setFull(true);
        });
    }

    receiver::RecordingSource m_source;
    std::unique_ptr<sending::Sender> m_sender;
    sending::TcpSender* m_server = nullptr; // the sender, where it is one
    QTimer m_poll;
    std::uint64_t m_sent = 0;
    bool m_started = false;
    bool m_finished = false;
    std::exception_ptr m_failure;
};

int replay(const Arguments& arguments)
{
    requireRecording(arguments.file);
    if (arguments.udp.empty() == arguments.tcp.empty())
        throw receiver::BadSource{fmt::format(
            "expected one of --udp ADDRESS:PORT and --tcp ADDRESS:PORT, found {}; say where to send to, "
            "for example --udp 127.0.0.1:5555",
            arguments.udp.empty() ? "neither" : "both")};
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    return Replay{arguments}.run();
}

} // namespace

void addReplay(CLI::App& program, Run& run)
{
    CLI::App* const verb = program.add_subcommand("replay", "send a recording again, over UDP or TCP");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("FILE", arguments->file, "a recording or capture")->required()->check(notEmpty());
    verb->add_option("--udp", arguments->udp, "send packets there")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    verb->add_option("--tcp", arguments->tcp, "serve the stream there, from the first client on")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    verb->add_option("--rate", arguments->playback.rate,
                     "R times as fast as recorded; 0: as fast as possible")
        ->check(numberFrom(0))
        ->type_name("R");
    verb->add_flag("--loop", arguments->playback.loop, "begin again at the end, until Ctrl-C");
    verb->add_option("--from", arguments->playback.fromSeconds, "begin SECONDS into the recording")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->add_option("--until", arguments->playback.untilSeconds, "end SECONDS into the recording")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->footer("Examples:\n"
                 "  vk410 replay a.pcap --udp 127.0.0.1:5555\n"
                 "  vk410 replay a.pcap --tcp 127.0.0.1:5555 --rate 0\n"
                 "  vk410 replay a.pcap --udp 239.1.2.3:5555 --rate 4 --loop --from 10 --until 20");
    verb->callback([arguments, &run] { run = [arguments] { return replay(*arguments); }; });
}

} // namespace verbs
