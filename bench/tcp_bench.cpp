// SPDX-License-Identifier: MIT
// Claim: the reader of the TCP stream keeps up with a plain blocking loop that cuts and copies the same
// stream. Times are those of the receiving thread; another one sends. Besides: the whole way, TCP to level
// map.
#include "bench/datagram_taker.h"
#include "bench/loopback.h"
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "toolkit/receiver/session.h"
#include "toolkit/simulation/simulator.h"
#include <QCoreApplication>
#include <arpa/inet.h>
#include <cstring>
#include <future>
#include <map>

namespace {

constexpr std::size_t bytesPerRound = 16 << 20;

void tcpReader(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const bench::TcpFeeder feeder{bench::streamOf(bytesPerRound / size, size)};
    bench::DatagramTaker taker;
    const TcpReader reader{"127.0.0.1", feeder.port(), &taker};
    std::size_t wanted = 0;
    for (auto _ : state) {
        wanted += bytesPerRound / size;
        while (taker.datagrams < wanted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    bench::require(taker.bytes == taker.datagrams * size, "datagrams of the size that was sent");
    state.SetBytesProcessed(static_cast<std::int64_t>(taker.bytes));
}

// Reads, cuts, copies each datagram into memory of its own, and lets go of it.
void plainLoop(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const bench::TcpFeeder feeder{bench::streamOf(bytesPerRound / size, size)};
    const bench::Descriptor socket = bench::connected(feeder.port());
    std::vector<unsigned char> buffer(512 << 10);
    std::size_t held = 0;
    std::size_t datagrams = 0;
    std::size_t wanted = 0;
    for (auto _ : state) {
        wanted += bytesPerRound / size;
        while (datagrams < wanted) {
            const ssize_t taken = ::recv(socket.get(), buffer.data() + held, buffer.size() - held, 0);
            bench::require(taken > 0, "a stream that goes on");
            held += static_cast<std::size_t>(taken);
            std::size_t at = 0;
            while (held - at >= 16) {
                std::uint32_t length = 0;
                std::memcpy(&length, buffer.data() + at + 12, sizeof length);
                length = ntohl(length);
                if (held - at < length)
                    break;
                const auto copy = std::make_unique_for_overwrite<unsigned char[]>(length);
                std::memcpy(copy.get(), buffer.data() + at, length);
                benchmark::DoNotOptimize(copy.get());
                at += length;
                ++datagrams;
            }
            std::memmove(buffer.data(), buffer.data() + at, held - at);
            held -= at;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(datagrams * size));
}

// More than a reordered datagram may lie behind: when the stream begins anew, it is no loss.
constexpr int panoramasInStream = 2'000;
constexpr int panoramasInRound = 2 * panoramasInStream;

wire::Bytes makePanoramas(std::int64_t points)
{
    simulation::Scene scene = simulation::builtinScene("band");
    scene.points = static_cast<int>(points);
    simulation::Simulator simulator{scene, 1};
    wire::Bytes stream;
    for (int i = 0; i < panoramasInStream; ++i) {
        const wire::Bytes one = simulator.next()->bytes;
        stream.insert(stream.end(), one.begin(), one.end());
    }
    return stream;
}

/// Panoramas as the simulated receiver sends them. Made by another thread: profiles of this one show
/// reception alone.
const wire::Bytes& panoramas(std::int64_t points)
{
    static std::map<std::int64_t, wire::Bytes> streams;
    const auto known = streams.find(points);
    if (known != streams.end())
        return known->second;
    return streams.emplace(points, std::async(std::launch::async, makePanoramas, points).get()).first->second;
}

void tcpToLevelMap(benchmark::State& state)
{
    const bench::TcpFeeder feeder{panoramas(state.range(0))};
    receiver::Session session;
    session.run(
        receiver::makeSource(receiver::parseSource("tcp://127.0.0.1:" + std::to_string(feeder.port()))));
    quint64 wanted = 0;
    for (auto _ : state) {
        wanted += panoramasInRound;
        while (session.status().traces < wanted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    bench::require(session.ledger().counters().losses() == 0, "nothing lost");
    state.SetBytesProcessed(static_cast<std::int64_t>(session.ledger().counters().bytes));
}

// What such a stream costs to read, without a look into it.
void tcpToNothing(benchmark::State& state)
{
    const bench::TcpFeeder feeder{panoramas(state.range(0))};
    bench::DatagramTaker taker;
    const TcpReader reader{"127.0.0.1", feeder.port(), &taker};
    std::size_t wanted = 0;
    for (auto _ : state) {
        wanted += panoramasInRound;
        while (taker.datagrams < wanted)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(taker.bytes));
}

BENCHMARK(tcpReader)->Arg(1'500)->Arg(8'192)->Arg(65'536);
BENCHMARK(plainLoop)->Arg(1'500)->Arg(8'192)->Arg(65'536);
BENCHMARK(tcpToLevelMap)->Arg(1'601)->Arg(16'000);
BENCHMARK(tcpToNothing)->Arg(1'601)->Arg(16'000);

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application{argc, argv};
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        if (name.starts_with("tcpReader"))
            return "plainLoop" + name.substr(std::strlen("tcpReader"));
        if (name.starts_with("tcpToLevelMap"))
            return "tcpToNothing" + name.substr(std::strlen("tcpToLevelMap"));
        return {};
    });
}
