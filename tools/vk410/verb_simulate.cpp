// SPDX-License-Identifier: MIT
// vk410 simulate: sends what a receiver would send.
#include "toolkit/receiver/sourcespec.h"
#include "toolkit/sending/sender.h"
#include "toolkit/simulation/iqfile.h"
#include "toolkit/simulation/player.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/stopsignals.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <QTimer>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <optional>

namespace verbs {
namespace {

struct Arguments {
    std::string scene = "band";
    std::string udp;
    std::string tcp;
    std::string truth;
    std::string iq;
    bool loop = false;
    std::optional<double> rate;
    std::optional<double> centreHz;
    std::optional<double> spanHz;
    std::optional<double> stepHz;
    std::optional<int> points;
    std::optional<std::uint64_t> seed;
    std::uint64_t count = 0;
    double seconds = 0;
    simulation::Faults faults;
};

// How much may wait for a TCP client before an unlimited simulation pauses.
constexpr std::int64_t pauseAboveBytes = 8 << 20;
constexpr int drainMilliseconds = 2'000;

// A scene that waits for its first client begins a tenth of a second behind it: a monitor asks with a
// connection of its own whether anybody is there, and would else miss the beginning.
constexpr int waitingTickMilliseconds = 5;
constexpr int ticksUntilStart = 20;

// The truth file; "-" is stdout.
class TruthFile {
public:
    explicit TruthFile(const std::string& path)
        : m_path(path)
        , m_file(path == "-" ? stdout : std::fopen(path.c_str(), "w"))
    {
        if (!m_file)
            throw std::runtime_error{
                fmt::format("{}: expected a file that can be written, found: {}; choose a "
                            "folder that exists and that you may write to",
                            path, std::strerror(errno))};
    }
    TruthFile(const TruthFile&) = delete;
    TruthFile& operator=(const TruthFile&) = delete;
    ~TruthFile()
    {
        if (m_file && m_file != stdout)
            std::fclose(m_file);
    }
    void write(const std::string& line) { fmt::print(m_file, "{}\n", line); }
    void check()
    {
        if (std::fflush(m_file) != 0 || std::ferror(m_file) != 0)
            throw std::runtime_error{
                fmt::format("{}: could not be written to its end; is the disk full?", m_path)};
    }

private:
    std::string m_path;
    std::FILE* m_file;
};

simulation::Scene sceneOf(const Arguments& arguments)
{
    simulation::Scene scene = simulation::sceneNamed(arguments.scene);
    if (!arguments.iq.empty())
        simulation::useRecording(scene, arguments.iq);
    scene.iqLoop = scene.iqLoop || arguments.loop;
    scene.centreHz = arguments.centreHz.value_or(scene.centreHz);
    scene.spanHz = arguments.spanHz.value_or(scene.spanHz);
    scene.points = arguments.points.value_or(scene.points);
    if (arguments.stepHz)
        scene.points =
            static_cast<int>(std::clamp(std::round(scene.spanHz / *arguments.stepHz), 0.0, 1e6)) + 1;
    if (arguments.rate.value_or(0) > 0)
        scene.rate = *arguments.rate;
    // With a seed, everything is the same each time, the receiver's clock too.
    if (!arguments.seed)
        scene.startNs = receiver::nowNs();
    return scene;
}

class Simulation {
public:
    explicit Simulation(const Arguments& arguments)
        : m_arguments(arguments)
        , m_simulator(sceneOf(arguments), arguments.seed.value_or(1))
        , m_player(m_simulator, arguments.rate.value_or(1) > 0 ? 1 : 0,
                   [this](const simulation::Emission& emission) { send(emission); })
    {
        m_simulator.setFaults(arguments.faults);
        m_simulator.setLimit(arguments.count);
        addSenders();
        if (!arguments.truth.empty()) {
            m_truth = std::make_unique<TruthFile>(arguments.truth);
            m_simulator.setTruthSink([this](const std::string& line) { m_truth->write(line); });
        }
        m_player.setBackPressure([this] { return m_server && m_server->mostWaiting() > pauseAboveBytes; });
        QObject::connect(&m_player, &simulation::Player::finished, &QCoreApplication::quit);
        QObject::connect(&m_tick, &QTimer::timeout, [this] { tick(); });
    }

    int run()
    {
        const StopSignals stop;
        fmt::print(stderr, "vk410 simulate: {} to {}{}\n", m_simulator.scene().name, targets(),
                   waitsForClient() ? ", waiting for a client" : "");
        m_tick.start(waitsForClient() ? waitingTickMilliseconds : 1000);
        if (!waitsForClient())
            start();
        QCoreApplication::exec();
        if (m_isStarted)
            m_player.stop();
        drain();
        m_progress.end();
        report();
        if (m_truth)
            m_truth->check();
        return dropped() == 0 ? Done : NotSound;
    }

private:
    void addSenders()
    {
        if (!m_arguments.udp.empty()) {
            const receiver::ListenSpec place = receiver::parseListen(m_arguments.udp);
            m_senders.push_back(std::make_unique<sending::UdpSender>(place.address, place.port));
        }
        if (!m_arguments.tcp.empty()) {
            const receiver::ListenSpec place = receiver::parseListen(m_arguments.tcp);
            auto server = std::make_unique<sending::TcpSender>(place.address, place.port);
            m_server = server.get();
            m_senders.push_back(std::move(server));
        }
    }

    // With TCP alone a scene begins with its first client, who would miss the beginning otherwise.
    [[nodiscard]] bool waitsForClient() const
    {
        return m_server && m_senders.size() == 1 && m_server->clients() == 0 && !m_isStarted;
    }

    void start()
    {
        m_isStarted = true;
        m_player.start();
        if (m_arguments.seconds > 0)
            QTimer::singleShot(std::chrono::milliseconds(std::llround(m_arguments.seconds * 1e3)), &m_player,
                               [] { QCoreApplication::quit(); });
    }

    void tick()
    {
        if (waitsForClient()) {
            m_ticksWithClient = 0;
            return;
        }
        if (!m_isStarted) {
            if (++m_ticksWithClient < ticksUntilStart)
                return;
            start();
            m_tick.start(1000);
        }
        m_progress.show(countsText());
    }

    void send(const simulation::Emission& emission)
    {
        for (const std::unique_ptr<sending::Sender>& sender : m_senders)
            sender->send(emission.bytes);
    }

    // What waits for clients that read leaves before the sockets close.
    void drain()
    {
        QElapsedTimer since;
        since.start();
        while (m_server && m_server->mostWaiting() > 0 && !since.hasExpired(drainMilliseconds))
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    }

    [[nodiscard]] std::uint64_t dropped() const
    {
        std::uint64_t sum = 0;
        for (const std::unique_ptr<sending::Sender>& sender : m_senders)
            sum += sender->dropped();
        return sum;
    }

    [[nodiscard]] std::string targets() const
    {
        std::string text;
        for (const std::unique_ptr<sending::Sender>& sender : m_senders)
            text += (text.empty() ? "" : " and ") + sender->name();
        return text.empty() ? "nobody" : text;
    }

    [[nodiscard]] std::string countsText() const
    {
        std::string text = fmt::format("{} traces, {} datagrams, {} bytes", m_simulator.traces(),
                                       m_simulator.datagrams(), m_simulator.bytes());
        for (const simulation::FaultName& fault : simulation::faultNames()) {
            if (const std::uint64_t count = m_simulator.faultCounts().*fault.count)
                text += fmt::format(", {} {}", fault.name, count);
        }
        return text;
    }

    // The truth on stdout is not mixed with words for people.
    void report() const
    {
        std::fflush(stdout);
        fmt::print(m_arguments.truth == "-" ? stderr : stdout, "{} to {}, {} not sent\n", countsText(),
                   targets(), dropped());
    }

    Arguments m_arguments;
    simulation::Simulator m_simulator;
    simulation::Player m_player;
    std::vector<std::unique_ptr<sending::Sender>> m_senders;
    sending::TcpSender* m_server = nullptr; // the sender that is one
    std::unique_ptr<TruthFile> m_truth;
    Progress m_progress;
    QTimer m_tick;
    int m_ticksWithClient = 0;
    bool m_isStarted = false;
};

struct FaultOption {
    const char* name;
    double simulation::Faults::*probability;
};
constexpr std::array<FaultOption, 6> faultOptions{{{"--drop", &simulation::Faults::drop},
                                                   {"--dup", &simulation::Faults::duplicate},
                                                   {"--reorder", &simulation::Faults::reorder},
                                                   {"--corrupt", &simulation::Faults::corrupt},
                                                   {"--truncate", &simulation::Faults::truncate},
                                                   {"--stall", &simulation::Faults::stall}}};

// The parser has no names for hidden options, so what it says of their values would help nobody.
void checkArguments(const Arguments& arguments)
{
    if (arguments.udp.empty() && arguments.tcp.empty() && arguments.truth.empty())
        throw receiver::BadSource{
            "expected --udp ADDRESS:PORT, --tcp ADDRESS:PORT or --truth FILE, found none; "
            "say where to send to, for example --udp 127.0.0.1:5555"};
    if (arguments.points && arguments.stepHz)
        throw receiver::BadSource{"expected one of --points and --step, found both; leave one out"};
    if (arguments.stepHz && !(*arguments.stepHz > 0))
        throw receiver::BadSource{fmt::format("--step: expected more than 0, found {:g}", *arguments.stepHz)};
    double sum = 0;
    for (const FaultOption& option : faultOptions) {
        const double probability = arguments.faults.*option.probability;
        if (!(probability >= 0 && probability <= 1))
            throw receiver::BadSource{
                fmt::format("{}: expected a probability from 0 to 1, found {:g}", option.name, probability)};
        sum += probability;
    }
    if (sum > 1)
        throw receiver::BadSource{
            fmt::format("expected fault probabilities of at most 1 together, found {:g}; lower one", sum)};
}

int simulate(const Arguments& arguments)
{
    checkArguments(arguments);
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    return Simulation{arguments}.run();
}

// Told in the footer: one line each would not fit a screen.
void addSettings(CLI::App& verb, Arguments& arguments)
{
    const std::string hidden;
    verb.add_option("--centre", arguments.centreHz)->group(hidden);
    verb.add_option("--span", arguments.spanHz)->group(hidden);
    verb.add_option("--step", arguments.stepHz)->group(hidden);
    verb.add_option("--points", arguments.points)->group(hidden);
    verb.add_flag("--loop", arguments.loop)->group(hidden);
    for (const FaultOption& option : faultOptions)
        verb.add_option(option.name, arguments.faults.*option.probability)->group(hidden);
}

} // namespace

void addSimulate(CLI::App& program, Run& run)
{
    CLI::App* const verb = program.add_subcommand("simulate", "send what a receiver would send");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SCENE", arguments->scene, "band (default), zerospan, df, demo, or a scene file");
    verb->add_option("--udp", arguments->udp, "send packets there")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    verb->add_option("--tcp", arguments->tcp, "serve the stream there")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    verb->add_option("--count", arguments->count, "end after N traces")
        ->check(wholeNumberFrom(0))
        ->type_name("N");
    verb->add_option("--for", arguments->seconds, "end after SECONDS")
        ->check(positiveNumber())
        ->type_name("SECONDS");
    verb->add_option("--seed", arguments->seed, "the same datagrams each time, stamps too")
        ->check(wholeNumberFrom(0))
        ->type_name("S");
    verb->add_option("--truth", arguments->truth, "say what was sent and spoilt, one JSON object a line")
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--iq", arguments->iq, "recorded I/Q (.sigmf-meta) for signals; --loop: again and again")
        ->check(notEmpty())
        ->type_name("META");
    verb->add_option("--rate", arguments->rate, "traces a second; 0: without a pause")
        ->check(numberFrom(0))
        ->type_name("R");
    addSettings(*verb, *arguments);
    verb->footer("Receiver: --centre HZ, --span HZ, and --points N or --step HZ.\n"
                 "Faults, as probabilities: --drop, --dup, --reorder, --corrupt, --truncate, --stall (a "
                 "pause of 0.5 s).\n"
                 "Examples:\n"
                 "  vk410 simulate band --udp 127.0.0.1:5555 --for 2\n"
                 "  vk410 simulate zerospan --udp 127.0.0.1:5555 --count 100 --rate 0 --drop 0.01\n"
                 "  vk410 simulate band --count 60 --rate 0 --seed 7 --corrupt 0.1 --truth truth.ndjson");
    verb->callback([arguments, &run] { run = [arguments] { return simulate(*arguments); }; });
}

} // namespace verbs
