// SPDX-License-Identifier: MIT
// Claims: a trace of 4,096 points costs the reception thread a copy and little more, also when the page's
// thread is late; the page's thread needs microseconds for its holds and frames, and a viewer costs a copy of
// its frame. Peer: memcpy of the trace's levels.
#include "bench/ratio_reporter.h"
#include "toolkit/pageserver/frame.h"
#include "toolkit/pageserver/holds.h"
#include <cstring>

using namespace pageserver;

namespace {

using bench::require;

constexpr std::size_t points = 4'096;

values::ChannelRangeDefinition grid()
{
    values::ChannelRangeDefinition definition;
    definition.AddRangeDefinition(0, points, 1e8, 5e3, {});
    return definition;
}

// Several traces, so that no copy finds its source in a register or the same line.
const std::vector<std::vector<short>>& traces()
{
    static const std::vector<std::vector<short>> all = [] {
        std::vector<std::vector<short>> made(4, std::vector<short>(points));
        for (std::size_t t = 0; t < made.size(); ++t) {
            for (std::size_t i = 0; i < points; ++i)
                made[t][i] = static_cast<short>((i * 7 + t * 131) % 1'000);
        }
        return made;
    }();
    return all;
}

void memcpyLevels(benchmark::State& state)
{
    std::vector<short> target(points);
    std::size_t turn = 0;
    for (auto _ : state) {
        std::memcpy(target.data(), traces()[turn++ % 4].data(), points * sizeof(short));
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(memcpyLevels);

// Each trace is taken before the next one comes. Both ends are in it: exchange included.
void handOver(benchmark::State& state)
{
    LevelGate gate;
    LevelBatch batch;
    const values::ChannelRangeDefinition definition = grid();
    std::size_t turn = 0;
    for (auto _ : state) {
        require(gate.put(definition, {}, traces()[turn++ % 4]), "the gate was empty");
        require(gate.take(batch), "something was there");
    }
    require(batch.levels == traces()[(turn - 1) % 4], "the newest was handed over");
}
BENCHMARK(handOver);

// The page's thread never comes.
void handOverToNobody(benchmark::State& state)
{
    LevelGate gate;
    const values::ChannelRangeDefinition definition = grid();
    std::size_t turn = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(gate.put(definition, {}, traces()[turn++ % 4]));
    LevelBatch batch;
    require(gate.take(batch) && batch.traces == turn, "all traces are in it");
}
BENCHMARK(handOverToNobody);

LevelBatch oneTrace()
{
    LevelGate gate;
    LevelBatch batch;
    require(gate.put(grid(), {.number = 1, .receivedNs = 1'000'000'000}, traces()[0]) && gate.take(batch),
            "a trace was handed over");
    return batch;
}

void holdsOfATrace(benchmark::State& state)
{
    Holds holds;
    const LevelBatch batch = oneTrace();
    for (auto _ : state)
        holds.add(batch);
    require(holds.max() == traces()[0] && holds.average() == traces()[0], "the holds are those of the trace");
}
BENCHMARK(holdsOfATrace);

// Live, max, min, average and hold; once a trace for all viewers.
void frameOfAllArrays(benchmark::State& state)
{
    Holds holds;
    const LevelBatch batch = oneTrace();
    holds.add(batch);
    int size = 0;
    for (auto _ : state) {
        const std::vector<short> average = holds.average();
        const std::vector<short> hold = holds.hold();
        const std::array<std::span<const short>, 5> arrays{batch.levels, holds.max(), holds.min(), average,
                                                           hold};
        const QByteArray frame = makeFrame({.arrays = AllArrays}, batch.grid, arrays);
        size = frame.size();
        benchmark::DoNotOptimize(frame.constData());
    }
    require(size == 96 + 24 + 5 * static_cast<int>(points) * 2, "the frame is whole");
}
BENCHMARK(frameOfAllArrays);

// What a viewer costs before its socket: a copy of the frame of one array, with its own numbers.
void frameForAViewer(benchmark::State& state)
{
    const LevelBatch batch = oneTrace();
    const std::array<std::span<const short>, 1> arrays{batch.levels};
    const QByteArray frame = makeFrame({.arrays = Live}, batch.grid, arrays);
    std::uint32_t sequence = 0;
    for (auto _ : state) {
        QByteArray own = frame;
        address(own, {++sequence, 0, 0});
        benchmark::DoNotOptimize(own.constData());
    }
}
BENCHMARK(frameForAViewer);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        return name == "memcpyLevels" ? std::string() : "memcpyLevels";
    });
}
