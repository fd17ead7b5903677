// SPDX-License-Identifier: MIT
#include "soak.h"
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "meddler.h"
#include "memoryuse.h"
#include "streamserver.h"
#include "support/sanitizers.h"
#include "toolkit/pageserver/pageserver.h"
#include "toolkit/receiver/tcpsource.h"
#include "toolkit/receiver/udpsource.h"
#include "toolkit/sending/sender.h"
#include "toolkit/simulation/player.h"
#include "toolkit/simulation/simulationsource.h"
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace soak {

namespace {

using ledger::Counters;

// Every kind of fault, as often as a display can still be looked at.
constexpr simulation::Faults faults{0.01, 0.01, 0.01, 0.03, 0.01, 0.0005};
constexpr double speed = 4;                  // times the scene's: 480 datagrams a second
constexpr quint64 mostUnderWay = 16;         // datagrams; a socket's default buffer holds them
constexpr qint64 mostWaitingBytes = 4 << 20; // for a connection
constexpr int patienceMilliseconds = 30'000;
constexpr double megabyte = 1e6;

// Growth from rest to rest that is none: allocators and tables that fill slowly. The ledger keeps an entry
// for each unknown tag that it has met, at most 65,536.
constexpr std::size_t heapTolerance = 1 << 20;
constexpr std::size_t residentTolerance = 24 << 20;
constexpr std::size_t residentToleranceOfSanitizers = 100 << 20;
constexpr std::size_t bytesPerUnknownTag = 96;

// Something that must hold does not.
struct Broken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename Condition>
void waitFor(const Condition& holds, const std::function<std::string()>& what)
{
    QElapsedTimer timer;
    timer.start();
    while (!holds()) {
        if (timer.hasExpired(patienceMilliseconds))
            throw Broken{what()};
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    }
}

// Runs the event loop for so long.
void runFor(double seconds)
{
    QElapsedTimer timer;
    timer.start();
    while (!timer.hasExpired(static_cast<qint64>(seconds * 1e3)))
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
}

std::uint16_t freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

void add(simulation::FaultCounts& sum, const simulation::FaultCounts& more)
{
    for (const simulation::FaultName& fault : simulation::faultNames())
        sum.*fault.count += more.*fault.count;
}

// Peers in a process of their own, so that their memory is not counted here.
class PeerProcess {
public:
    PeerProcess(const std::string& program, std::uint16_t mirror, std::uint16_t page)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QString::fromStdString(program),
                        {QStringLiteral("peers"), QString::number(mirror), QString::number(page)});
        if (!m_process.waitForStarted())
            throw Broken{"the peers' process does not start"};
    }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;
    ~PeerProcess()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished(patienceMilliseconds);
    }

    void go() { m_process.write("go\n"); }
    void rest()
    {
        m_process.write("rest\n");
        waitFor([this] { return m_process.readAllStandardOutput().contains("resting"); },
                [] { return std::string{"the peers do not come to rest"}; });
    }
    void end()
    {
        m_process.closeWriteChannel();
        waitFor([this] { return m_process.state() == QProcess::NotRunning; },
                [] { return std::string{"the peers' process does not end"}; });
        if (m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0)
            throw Broken{"a mirror client got something else than whole datagrams, or the peers died"};
    }

private:
    QProcess m_process;
};

// What a scene sent, until its end.
class Scene {
public:
    Scene(std::uint64_t seed, const simulation::Player::Sink& send, simulation::Player::IsFull isFull)
        : m_simulator(simulation::builtinScene("demo"), seed)
        , m_player(m_simulator, speed, send)
    {
        m_simulator.setFaults(faults);
        m_player.setBackPressure(std::move(isFull));
        m_player.start();
    }

    [[nodiscard]] const simulation::FaultCounts& end()
    {
        m_player.stop();
        return m_simulator.faultCounts();
    }

private:
    simulation::Simulator m_simulator;
    simulation::Player m_player;
};

class Soak {
public:
    explicit Soak(const Options& options)
        : m_isTcp(options.isTcp)
        , m_scanRanges(simulation::scanRangesOf(simulation::builtinScene("demo")))
        , m_session(sessionOptions())
        , m_page(m_session, pageserver::Options{.about = {"vk410 soak", true}, .folder = {}},
                 {.counters = [this] { return m_session.ledger().counters(); },
                  .faults = [] { return pageserver::InjectedFaults{}; },
                  .setFaults = [](const simulation::Faults&) {}})
        , m_meddler(m_session, m_scanRanges, 1)
        , m_peers(options.program, m_isTcp ? m_mirrorPort : 0, m_page.port())
    {
        m_isTcp ? runTcp() : runUdp();
    }

    // From rest to rest.
    MemoryUse live(double seconds)
    {
        m_meddler.start();
        m_peers.go();
        QElapsedTimer timer;
        timer.start();
        while (!timer.hasExpired(static_cast<qint64>(seconds * 1e3))) {
            if (!m_scene)
                begin();
            const double left = seconds - static_cast<double>(timer.elapsed()) / 1e3;
            runFor(std::clamp(nextStretchSeconds(), 0.1, std::max(left, 0.1)));
            m_isTcp ? breakDown() : sendJunk();
        }
        m_peers.rest();
        m_meddler.rest();
        waitFor([this] { return !m_isTcp || mirrorIsThere(); },
                [] { return std::string{"the session does not connect again"}; });
        waitFor([this] { return mirrorClients() == 0 && viewers() == 0; },
                [this] {
                    return fmt::format("{} mirror clients and {} viewers that have left are still held",
                                       mirrorClients(), viewers());
                });
        runFor(0.5);
        return memoryUse();
    }

    void end()
    {
        if (m_scene)
            endScene();
        m_peers.end();
    }

    void report() const
    {
        fmt::print(
            "datagrams {}, changes by the operator {}, connections of the receiver {}, streams with a bad "
            "length {}, junk {}\n",
            m_sent, m_meddler.changes(), m_connects, m_badLengths, m_junk);
    }

    // What the ledger says beside what was done.
    void check()
    {
        const Counters c = m_session.ledger().counters();
        const simulation::FaultCounts& f = m_faults;
        struct Row {
            const char* name;
            quint64 counted;
            quint64 expected;
        };
        const quint64 spoilt = c.invalid + f.corruptSelector + f.corruptTag + f.truncate;
        const std::vector<Row> rows{
            {"datagrams", c.datagrams, m_sent + m_junk},
            {"wire lost", c.wireLost, f.drop + f.corruptMagic},
            {"wire duplicates", c.wireDuplicates, f.duplicate},
            {"wire reordered", c.wireReordered, f.reorder},
            {"kernel", c.kernelDropped, 0},
            {"framing", c.framing, m_badLengths},
            {"invalid", c.invalid, f.corruptMagic + m_junk},
            {"selector errors", c.selectorErrors, f.corruptSelector},
            {"truncated", c.truncated, f.truncate},
            {"unknown tag", c.unknownTag, f.corruptTag},
            {"unrouted", c.unrouted, 0},
            {"delivered or not accepted", c.delivered + c.notAccepted, c.datagrams - spoilt},
            {"sums balance", c.balances() ? 1U : 0U, 1},
        };
        bool isWrong = false;
        for (const Row& row : rows) {
            const bool differs = row.counted != row.expected;
            isWrong = isWrong || differs;
            fmt::print("{:<26} {:>10}  expected {:>10}{}\n", row.name, row.counted, row.expected,
                       differs ? "  WRONG" : "");
        }
        fmt::print("{:<26} {:>10}\n{:<26} {:>10}\n", "mirror disconnected", c.mirrorDisconnected,
                   "viewer skipped", c.viewerSkipped);
        if (isWrong)
            throw Broken{"the ledger does not say what happened"};
    }

    [[nodiscard]] std::size_t unknownTags() { return m_session.ledger().unroutedByTag().size(); }
    [[nodiscard]] quint64 mirrorCuts() { return m_session.ledger().counters().mirrorDisconnected; }

private:
    [[nodiscard]] receiver::SessionOptions sessionOptions() const
    {
        receiver::SessionOptions options;
        options.scanRanges = m_scanRanges;
        return options;
    }

    void runUdp()
    {
        receiver::SourceSpec spec;
        spec.kind = receiver::SourceSpec::Kind::Udp;
        spec.address = QHostAddress(QHostAddress::LocalHost);
        auto source = std::make_unique<receiver::UdpSource>(spec);
        const receiver::UdpSource& listening = *source;
        m_session.run(std::move(source));
        m_packets =
            std::make_unique<sending::UdpSender>(QHostAddress(QHostAddress::LocalHost), listening.port());
    }

    void runTcp()
    {
        m_stream = std::make_unique<StreamServer>();
        receiver::SourceSpec spec;
        spec.kind = receiver::SourceSpec::Kind::Tcp;
        spec.host = "127.0.0.1";
        spec.port = m_stream->port();
        auto source = std::make_unique<receiver::TcpSource>(spec);
        m_tcpSource = source.get();
        source->startMirror({QHostAddress(QHostAddress::LocalHost), m_mirrorPort});
        m_session.run(std::move(source));
    }

    // A whole scene each time: its first and its last datagram are sound, so that every gap has two ends.
    void begin()
    {
        if (m_isTcp) {
            waitFor([this] { return mirrorIsThere() && m_stream->connections() == 1; },
                    [] { return std::string{"the session does not connect again"}; });
            ++m_connects;
        }
        m_scene = std::make_unique<Scene>(
            ++m_seed,
            [this](const simulation::Emission& emission) {
                m_last = emission.bytes;
                m_isTcp ? m_stream->send(emission.bytes) : m_packets->send(emission.bytes);
                ++m_sent;
            },
            [this] { return m_isTcp ? m_stream->waiting() > mostWaitingBytes : underWay() > mostUnderWay; });
    }

    void endScene()
    {
        add(m_faults, m_scene->end());
        m_scene.reset();
        waitFor([this] { return underWay() == 0; },
                [this] {
                    return fmt::format("{} datagrams were sent, {} arrived", m_sent + m_junk,
                                       m_session.ledger().counters().datagrams);
                });
    }

    // The receiver's connection ends in one of the ways that there are, and another one follows.
    void breakDown()
    {
        endScene();
        const auto how = static_cast<Breakdown>(m_seed % breakdowns);
        m_badLengths += how == Breakdown::BadLength ? 1 : 0;
        m_stream->end(how, m_last);
        waitFor([this] { return !mirrorIsThere(); },
                [] { return std::string{"the session does not notice that its connection has ended"}; });
    }

    // Somebody else's packets on the same port.
    void sendJunk()
    {
        for (const std::size_t size : {0U, 1U, 3U, 4U, 9U, 15U, 16U, 700U, 9'000U}) {
            m_packets->send(wire::Bytes(size, 0xFF));
            ++m_junk;
        }
    }

    // Long enough now and then for a client that stalls to be cut.
    [[nodiscard]] double nextStretchSeconds() const
    {
        if (!m_isTcp)
            return 0.7;
        return m_seed % 4 == 2 ? 30 : 2;
    }

    [[nodiscard]] quint64 underWay() { return m_sent + m_junk - m_session.ledger().counters().datagrams; }
    [[nodiscard]] bool mirrorIsThere() const { return m_tcpSource->reader() != nullptr; }
    [[nodiscard]] int mirrorClients() const
    {
        return m_isTcp && mirrorIsThere() ? m_tcpSource->reader()->MirrorClientCount() : 0;
    }

    // As the page itself tells everybody.
    [[nodiscard]] int viewers() const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_page.port());
        socket.write("GET /api/status HTTP/1.1\r\nHost: localhost\r\n\r\n");
        waitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; },
                [] { return std::string{"the page does not answer"}; });
        const QByteArray answer = socket.readAll();
        const qsizetype at = answer.indexOf("\"viewers\":");
        return at < 0 ? -1 : std::atoi(answer.constData() + at + 10);
    }

    bool m_isTcp;
    std::uint16_t m_mirrorPort = freePort();
    ScanRangeContainer m_scanRanges;
    std::unique_ptr<StreamServer> m_stream;
    std::unique_ptr<sending::UdpSender> m_packets;
    receiver::Session m_session;
    const receiver::TcpSource* m_tcpSource = nullptr;
    pageserver::PageServer m_page;
    Meddler m_meddler;
    PeerProcess m_peers;
    std::unique_ptr<Scene> m_scene;
    simulation::FaultCounts m_faults;
    wire::Bytes m_last;
    std::uint64_t m_seed = 0;
    quint64 m_sent = 0;
    quint64 m_junk = 0;
    quint64 m_badLengths = 0;
    quint64 m_connects = 0;
};

void print(const char* when, const MemoryUse& use)
{
    fmt::print("memory {:<14} resident {:7.2f} MB, heap {:7.2f} MB\n", when,
               static_cast<double>(use.resident) / megabyte, static_cast<double>(use.heap) / megabyte);
    std::fflush(stdout);
}

void checkGrowth(const MemoryUse& from, const MemoryUse& to, std::size_t newTags)
{
    if (to.heap > from.heap + heapTolerance + newTags * bytesPerUnknownTag)
        throw Broken{fmt::format("the heap has grown by {} bytes", to.heap - from.heap)};
    if (to.resident > from.resident + (VK410_SANITIZED ? residentToleranceOfSanitizers : residentTolerance))
        throw Broken{fmt::format("resident memory has grown by {} bytes", to.resident - from.resident)};
}

void runSoak(const Options& options)
{
    Soak soak{options};
    const MemoryUse start = soak.live(options.seconds / 5); // tables and arenas fill meanwhile
    const std::size_t tags = soak.unknownTags();
    print("at the start", start);
    print("in the middle", soak.live(options.seconds * 2 / 5));
    const MemoryUse end = soak.live(options.seconds * 2 / 5);
    print("at the end", end);
    const std::size_t newTags = soak.unknownTags() - tags;
    soak.end();
    soak.report();
    soak.check();
    checkGrowth(start, end, newTags);
    // Every fourth connection lasts long enough for its stalled clients to be cut.
    if (options.isTcp && options.seconds >= 300 && soak.mirrorCuts() == 0)
        throw Broken{"no mirror client that stalls was cut"};
}

} // namespace

int run(const Options& options)
{
    try {
        runSoak(options);
        return 0;
    } catch (const Broken& broken) {
        fmt::print(stderr, "soak {}: FAILED: {}\n", options.isTcp ? "tcp" : "udp", broken.what());
        return 1;
    }
}

} // namespace soak
