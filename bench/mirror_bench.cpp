// SPDX-License-Identifier: MIT
// Claim: serving reading clients costs what the system's writes cost, and hardly anything waits in the
// process. Peer: a relay in plain C that reads, cuts nothing, and sends what it read to each client.
#include "bench/datagram_taker.h"
#include "bench/loopback.h"
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/tcpreader.h"
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTcpServer>
#include <QTimer>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <sys/epoll.h>

namespace {

constexpr std::size_t datagramSize = 8'192;
constexpr std::size_t bytesPerRound = 16 << 20;

/// Clients that read what comes, all in one thread, and throw it away.
class Clients {
public:
    Clients(int count, std::uint16_t port)
        : m_epoll(::epoll_create1(0))
        , m_thread([this, count, port](const std::stop_token& stop) {
            connect(count, port);
            read(stop);
        })
    {}

private:
    // In the clients' thread: a server takes no more than about fifty until it gets round to accepting them.
    void connect(int count, std::uint16_t port)
    {
        for (int i = 0; i < count; ++i) {
            m_sockets.push_back(bench::connected(port));
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.fd = m_sockets.back().get();
            ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, event.data.fd, &event);
        }
    }

    void read(const std::stop_token& stop)
    {
        // MSG_TRUNC throws TCP data away in the kernel: the clients' work is not what is measured.
        std::array<epoll_event, 16> events{};
        while (!stop.stop_requested()) {
            const int ready =
                ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), 100);
            for (int i = 0; i < ready; ++i) {
                ::recv(events[static_cast<std::size_t>(i)].data.fd, nullptr, 4 << 20,
                       MSG_TRUNC | MSG_DONTWAIT);
            }
        }
    }

    bench::Descriptor m_epoll;
    std::vector<bench::Descriptor> m_sockets;
    std::jthread m_thread;
};

std::uint16_t freePort()
{
    return bench::portOf(bench::listening());
}

void untilServed(const TcpReader& reader, int clients)
{
    while (reader.MirrorClientCount() < clients)
        QCoreApplication::processEvents();
}

void mirror(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const bench::TcpFeeder feeder{bench::streamOf(256, datagramSize)};
    bench::DatagramTaker taker;
    TcpReader reader{"127.0.0.1", feeder.port(), &taker};
    const std::uint16_t port = freePort();
    bench::require(reader.StartMassDataMirror("127.0.0.1", port), "a mirror");
    const Clients clients{count, port};
    untilServed(reader, count);
    std::size_t wanted = taker.bytes;
    for (auto _ : state) {
        wanted += bytesPerRound;
        while (taker.bytes < wanted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    bench::require(reader.MirrorClientCount() == count, "no client cut");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesPerRound));
}

void plainRelay(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const bench::TcpFeeder feeder{bench::streamOf(256, datagramSize)};
    const bench::Descriptor source = bench::connected(feeder.port());
    const bench::Descriptor listener = bench::listening();
    const Clients clients{count, bench::portOf(listener)};
    std::vector<bench::Descriptor> served;
    for (int i = 0; i < count; ++i)
        served.emplace_back(::accept(listener.get(), nullptr, nullptr));
    std::vector<unsigned char> buffer(1 << 20);
    std::size_t relayed = 0;
    std::size_t wanted = 0;
    for (auto _ : state) {
        wanted += bytesPerRound;
        while (relayed < wanted) {
            const ssize_t taken = ::recv(source.get(), buffer.data(), buffer.size(), 0);
            bench::require(taken > 0, "a stream that goes on");
            for (const bench::Descriptor& client : served)
                bench::require(::send(client.get(), buffer.data(), static_cast<std::size_t>(taken),
                                      MSG_NOSIGNAL) == taken,
                               "a whole write");
            relayed += static_cast<std::size_t>(taken);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(relayed));
}

BENCHMARK(mirror)->Arg(1)->Arg(4)->Arg(16)->Arg(64);
BENCHMARK(plainRelay)->Arg(1)->Arg(4)->Arg(16)->Arg(64);

// A steady stream of a gigabit a second, and what waits in the process meanwhile.
void printPaced(int count)
{
    constexpr double bytesPerSecond = 125e6;
    constexpr int milliseconds = 5'000;
    const bench::TcpFeeder feeder{bench::streamOf(256, datagramSize), bytesPerSecond};
    bench::DatagramTaker taker;
    TcpReader reader{"127.0.0.1", feeder.port(), &taker};
    const std::uint16_t port = freePort();
    bench::require(reader.StartMassDataMirror("127.0.0.1", port), "a mirror");
    const Clients clients{count, port};
    untilServed(reader, count);
    std::vector<qint64> waiting;
    QTimer looks;
    QObject::connect(&looks, &QTimer::timeout, [&] { waiting.push_back(reader.MirrorBytesWaiting()); });
    looks.start(5);
    const std::size_t bytesBefore = taker.bytes;
    const double before = bench::threadSeconds();
    QElapsedTimer timer;
    timer.start();
    while (!timer.hasExpired(milliseconds))
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double seconds = static_cast<double>(timer.elapsed()) / 1e3;
    const double cpu = bench::threadSeconds() - before;
    const double megabytes = static_cast<double>(taker.bytes - bytesBefore) / 1e6;
    std::sort(waiting.begin(), waiting.end());
    std::printf("%8d %12.1f %11.0f%% %12.2f %14.2f %14.2f\n", count, megabytes / seconds, 100 * cpu / seconds,
                cpu / megabytes * 1e3, static_cast<double>(waiting[waiting.size() / 2]) / 1e6,
                static_cast<double>(waiting.back()) / 1e6);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application{argc, argv};
    const int result = bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        return name.starts_with("mirror") ? "plainRelay" + name.substr(std::strlen("mirror")) : "";
    });
    std::printf("\nat 125 MB/s in datagrams of 8 kB:\n%8s %12s %12s %12s %14s %14s\n", "clients", "MB/s",
                "CPU", "CPU s/GB", "waiting MB", "at most MB");
    for (const int count : {0, 1, 4, 16})
        printPaced(count);
    return result;
}
