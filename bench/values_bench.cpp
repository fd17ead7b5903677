// SPDX-License-Identifier: MIT
// Claims: a trace costs the copies into its maps and little more; look-ups in grids grow at most like the
// logarithm of the number of ranges; copying a grid costs the same whatever its size.
// Peers: memcpy of the same bytes once for each map, and the smallest case of each growth series.
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "values/tree.h"
#include "values/valuenumeric.h"
#include <QString>
#include <cstring>
#include <memory>
#include <vector>

using namespace values;

namespace {

using bench::require;

ChannelRangeDefinition gridOf(unsigned int count)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, count, 1e8, 25e3, QString());
    return grid;
}

// Several traces, so that no copy finds its source in a register or the same line.
std::vector<std::vector<short>> traces(std::size_t count)
{
    std::vector<std::vector<short>> all(4, std::vector<short>(count));
    for (std::size_t t = 0; t < all.size(); ++t) {
        for (std::size_t i = 0; i < count; ++i)
            all[t][i] = static_cast<short>((i * 7 + t) % 1000);
    }
    return all;
}

// The bound: the copies that a trace needs, one for each map, and nothing else.
void copies(benchmark::State& state, std::size_t maps)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto sources = traces(count);
    std::vector<std::vector<short>> targets(maps, std::vector<short>(count));
    std::size_t turn = 0;
    for (auto _ : state) {
        for (std::vector<short>& target : targets) {
            std::memcpy(target.data(), sources[turn % 4].data(), count * sizeof(short));
            benchmark::DoNotOptimize(target.data());
        }
        benchmark::ClobberMemory();
        ++turn;
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(count * sizeof(short)));
}

void traceMemcpyOne(benchmark::State& state)
{
    copies(state, 1);
}

void traceMemcpyTwo(benchmark::State& state)
{
    copies(state, 2);
}

void fill(benchmark::State& state, bool mirrored)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    auto sources = traces(count);
    LevelMap primary;
    LevelMap mirror;
    FastLevelMapFiller filler(&primary, mirrored ? &mirror : nullptr);
    filler.SetRangeDefinition(gridOf(static_cast<unsigned int>(count)), 10);
    const double stop = 1e8 + 25e3 * (static_cast<double>(count) - 1.0);
    std::size_t turn = 0;
    for (auto _ : state) {
        filler.SetData(1e8, stop, static_cast<int>(count), sources[turn % 4].data());
        filler.EndOfScan();
        benchmark::ClobberMemory();
        ++turn;
    }
    const std::vector<short>& last = sources[(turn - 1) % 4];
    require(std::equal(last.begin(), last.end(), primary.GetValues().begin()), "primary map");
    require(!mirrored || std::equal(last.begin(), last.end(), mirror.GetValues().begin()), "mirror map");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(count * sizeof(short)));
}

void traceSetData(benchmark::State& state)
{
    fill(state, false);
}

void traceSetDataMirrored(benchmark::State& state)
{
    fill(state, true);
}

// Blocks of direction-finding samples into their map, beside the copy of their bytes.
void samplesMemcpy(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const std::vector<char> source(count * sizeof(DFSpectrumSample), 7);
    std::vector<char> target(source.size());
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.size()));
}

void setSamples(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<DFSpectrumSample> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i].setLevel(static_cast<qint16>(i % 1000));
    DFSpectrumMap map;
    map.SetChannelRangeDefinition(gridOf(static_cast<unsigned int>(count)), 10);
    for (auto _ : state) {
        map.SetChannelValues(0, static_cast<unsigned int>(count), samples.data());
        benchmark::ClobberMemory();
    }
    require(std::equal(samples.begin(), samples.end(), map.GetValues().begin()), "samples");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(count * sizeof(DFSpectrumSample)));
}

void samplesSetChannelValues(benchmark::State& state)
{
    setSamples(state);
}

// The same while somebody else keeps super-resolution data, so that every block has to be looked at.
void samplesSetBesideSuperResolution(benchmark::State& state)
{
    const SuperResolutionSample elsewhere(1);
    setSamples(state);
    require(elsewhere.getCount() == 1, "other data");
}

// Grids of many ranges with gaps between them.
ChannelRangeDefinition gridOfRanges(std::int64_t ranges)
{
    ChannelRangeDefinition grid;
    for (std::int64_t i = 0; i < ranges; ++i)
        grid.AddRangeDefinition(static_cast<unsigned int>(i * 100), 100, 1e6 * static_cast<double>(i), 5e3,
                                QString());
    return grid;
}

// Positions in a fixed, scattered order.
std::int64_t scattered(std::int64_t turn, std::int64_t ranges)
{
    return turn * 7919 % ranges;
}

void gridClosestChannel(benchmark::State& state)
{
    const ChannelRangeDefinition grid = gridOfRanges(state.range(0));
    std::int64_t turn = 0;
    for (auto _ : state) {
        const std::int64_t range = scattered(turn++, state.range(0));
        const auto ids = grid.GetClosestChannelIdsForFrequency(1e6 * static_cast<double>(range) + 50e3);
        require(ids.size() == 1 && ids.front() == range * 100 + 10, "closest channel");
    }
}

void gridChannelFrequency(benchmark::State& state)
{
    const ChannelRangeDefinition grid = gridOfRanges(state.range(0));
    std::int64_t turn = 0;
    for (auto _ : state) {
        const std::int64_t range = scattered(turn++, state.range(0));
        const double frequency = grid.ChannelIdToFrequency(static_cast<unsigned int>(range * 100 + 10));
        require(frequency == 1e6 * static_cast<double>(range) + 50e3, "channel frequency");
    }
}

void gridFindFirst(benchmark::State& state)
{
    const ChannelRangeDefinition grid = gridOfRanges(state.range(0));
    std::int64_t turn = 0;
    for (auto _ : state) {
        const std::int64_t range = scattered(turn++, state.range(0));
        const double start = 1e6 * static_cast<double>(range);
        require(grid.FindFirstChannel4RangeDefinition(start, 5e3, start + 100e3) == range * 100,
                "first channel");
    }
}

void gridCopy(benchmark::State& state)
{
    const ChannelRangeDefinition grid = gridOfRanges(state.range(0));
    for (auto _ : state) {
        ChannelRangeDefinition copy = grid;
        benchmark::DoNotOptimize(copy);
    }
}

void gridBuild(benchmark::State& state)
{
    for (auto _ : state) {
        const ChannelRangeDefinition grid = gridOfRanges(state.range(0));
        benchmark::DoNotOptimize(grid.GetChannelCount());
    }
}

struct CountingObserver : IObserver {
    void Update(Observable* /*subject*/, TChangeCode /*code*/) override { ++updates; }
    std::int64_t updates = 0;
};

void notifyObservers(benchmark::State& state)
{
    Observable subject;
    std::vector<std::unique_ptr<CountingObserver>> observers;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        observers.push_back(std::make_unique<CountingObserver>());
        subject.AddObserver(observers.back().get());
    }
    for (auto _ : state)
        subject.HasChanged(3);
    require(observers.back()->updates == state.iterations(), "updates");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void treeFind(benchmark::State& state)
{
    Tree tree;
    std::vector<QString> paths;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        const QString name = QStringLiteral("VALUE%1").arg(i);
        tree.Create<ValueNumeric<double>>(QStringLiteral("/INTERFACES/DEVICE/KRT"), name);
        paths.push_back(QStringLiteral("/INTERFACES/DEVICE/KRT/") + name);
    }
    std::int64_t turn = 0;
    for (auto _ : state) {
        const auto index = static_cast<std::size_t>(scattered(turn++, state.range(0)));
        require(tree.Find(paths[index]) != nullptr, "value by path");
    }
}

BENCHMARK(traceMemcpyOne)->Arg(1601)->Arg(16000);
BENCHMARK(traceSetData)->Arg(1601)->Arg(16000);
BENCHMARK(traceMemcpyTwo)->Arg(1601)->Arg(16000);
BENCHMARK(traceSetDataMirrored)->Arg(1601)->Arg(16000);
BENCHMARK(samplesMemcpy)->Arg(1000)->Arg(16000);
BENCHMARK(samplesSetChannelValues)->Arg(1000)->Arg(16000);
BENCHMARK(samplesSetBesideSuperResolution)->Arg(1000)->Arg(16000);
BENCHMARK(gridClosestChannel)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(gridChannelFrequency)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(gridFindFirst)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(gridCopy)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(gridBuild)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(notifyObservers)->Arg(1)->Arg(10)->Arg(1000);
BENCHMARK(treeFind)->Arg(10)->Arg(1000)->Arg(100000);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        const std::string function = name.substr(0, name.find('/'));
        const std::string size = name.substr(name.find('/'));
        if (function == "traceSetData")
            return "traceMemcpyOne" + size;
        if (function == "traceSetDataMirrored")
            return "traceMemcpyTwo" + size;
        if (function.starts_with("samplesSet"))
            return "samplesMemcpy" + size;
        if (function.starts_with("grid") || function == "notifyObservers")
            return size == "/1" ? std::string() : function + "/1";
        return function == "treeFind" && size != "/10" ? "treeFind/10" : std::string();
    });
}
