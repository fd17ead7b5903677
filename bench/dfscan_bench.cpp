// SPDX-License-Identifier: MIT
// Claims: the conversion of six fields into samples takes at most 0.6 times as long as the plainest loop over
// aligned arrays, and at most 4 times as long as copying the samples; blanking 1,000 intervals in 16,000
// channels adds at most a tenth to a block on its way from datagram to map, also where samples and map exceed
// the cache; the channels blanked by 10,000 ranges are computed in
// less than 100 times the time of 100. Peers: that loop with inline setters, memcpy of the samples, the block
// without blanking, and the small case, all in the same run.
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/blankingranges.h"
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "support/dfscan_receiver.h"
#include <cstring>

namespace {

using dfsamples::Sample;

struct Fields {
    explicit Fields(std::size_t count)
        : items(6, std::vector<short>(count))
    {
        for (std::size_t f = 0; f < items.size(); ++f) {
            for (std::size_t i = 0; i < count; ++i)
                items[f][i] = static_cast<short>(i % 41 == f ? 32'766 : (i * 7 + f) % 3600);
        }
    }
    [[nodiscard]] dfsamples::RawFields raw() const
    {
        return {items[0].data(), items[1].data(), items[2].data(),
                items[3].data(), items[4].data(), items[5].data()};
    }
    std::vector<std::vector<short>> items;
};

// What one writes without thinking about it.
void plain(const dfsamples::RawFields& raw, Sample::Validity validity, std::vector<Sample>& samples)
{
    const auto orZero = [](short value) { return value == 32'766 ? short{0} : value; };
    for (std::size_t i = 0; i < samples.size(); ++i) {
        Sample& sample = samples[i];
        sample.setValidity(validity);
        sample.setQuality(static_cast<qint16>(orZero(raw.quality[i]) / 10));
        sample.setAzimuth(static_cast<quint16>(orZero(raw.azimuth[i]) * 10));
        sample.setLevel(static_cast<qint16>(raw.level[i] * 10));
        sample.setShortTimeLevel(static_cast<qint16>(raw.shortTimeLevel[i] * 10));
        sample.setFieldStrength(static_cast<qint16>(raw.fieldStrength[i] * 10));
        sample.setElevation(static_cast<qint16>(orZero(raw.elevation[i]) * 10));
    }
}

void setBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0) * static_cast<std::int64_t>(sizeof(Sample)));
}

void plainLoop(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const Fields fields{count};
    std::vector<Sample> samples(count);
    for (auto _ : state) {
        plain(fields.raw(), Sample::Validity::Valid, samples);
        benchmark::DoNotOptimize(samples.data());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

void convert(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const Fields fields{count};
    std::vector<Sample> samples(count);
    for (auto _ : state) {
        dfsamples::convert(fields.raw(), Sample::Validity::Valid, samples);
        benchmark::DoNotOptimize(samples.data());
        benchmark::ClobberMemory();
    }
    std::vector<Sample> expected(count);
    plain(fields.raw(), Sample::Validity::Valid, expected);
    bench::require(samples == expected, "the samples of the plain loop");
    setBytes(state);
}

void copy(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const std::vector<char> source(count * sizeof(Sample), 7);
    std::vector<char> target(source.size());
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}

// A block on its way from datagram to map.
void fromDatagramToMap(benchmark::State& state, std::size_t count, const ScanRangeContainer& jobs,
                       std::int64_t blankedIntervals)
{
    support::EffectLog log;
    support::FreshValueTree tree;
    const auto commands = tree->Create<values::ValueSelection>(
        "/RX", "DRVCOMMANDS", std::vector<values::ValueSelection::Entry>{{23, "DF"}});
    const auto map = tree->Create<values::DFSpectrumMap>("/RX/KRT", "RXBEARINGMAPPING");
    MdpDFPScan processor{nullptr};
    processor.Init("/RX");
    processor.SlotNewOrModifiedScanRanges(jobs);
    const auto suppress = FreqStore::Instance()->GetLocalSuppressRange();
    for (std::int64_t i = 0; i < blankedIntervals; ++i) {
        const double start = 100e6 + static_cast<double>(i) * 16 * 25e3;
        suppress->AddRange(start, start + 3 * 25e3);
    }
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);
    const Fields fields{count};
    support::DfTrace trace;
    trace.azimuth = fields.items[0];
    trace.quality = fields.items[1];
    trace.fieldStrength = fields.items[2];
    trace.level = fields.items[3];
    trace.shortTimeLevel = fields.items[4];
    trace.elevation = fields.items[5];
    const wire::Bytes bytes = trace.bytes();
    const auto receive = [&] { dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)}); };
    receive();
    std::int64_t blanked = 0;
    std::int64_t valid = 0;
    for (const Sample& sample : map->GetValues()) {
        blanked += sample.getValidity() == Sample::Validity::Blanked ? 1 : 0;
        valid += sample.getValidity() == Sample::Validity::Valid ? 1 : 0;
    }
    bench::require(blanked == 4 * blankedIntervals, "four blanked channels for each interval");
    bench::require(blanked + valid == static_cast<std::int64_t>(count),
                   "every channel of the block in the map");
    for (auto _ : state)
        receive();
    setBytes(state);
}

// With as many blanked intervals of four channels.
void block(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    fromDatagramToMap(state, count,
                      {support::scanRange(100'000'000, 100'000'000 + (count - 1) * 25'000, 25'000, 7)},
                      state.range(1));
}

// A block of 1,000 channels that belongs to the first of as many jobs.
void blockAmongJobs(benchmark::State& state)
{
    constexpr quint64 width = 1'000 * 25'000;
    ScanRangeContainer jobs;
    for (quint64 i = 0; i < static_cast<quint64>(state.range(0)); ++i) {
        const quint64 start = 100'000'000 + i * width;
        jobs.push_back(
            support::scanRange(start, start + width - 25'000, 25'000, static_cast<quint32>(7 + i)));
    }
    fromDatagramToMap(state, 1'000, jobs, 0);
}

// Blanked channels of 100 scan ranges next to each other, each of which many given ranges meet.
void rebuild(benchmark::State& state)
{
    ScanRangeContainer ranges;
    for (quint64 i = 0; i < 100; ++i)
        ranges.push_back(
            support::scanRange(i * 10'000'000, i * 10'000'000 + 9'975'000, 25'000, static_cast<quint32>(i)));
    std::vector<blanking::Interval> given;
    const auto count = static_cast<quint64>(state.range(0));
    for (quint64 i = 0; i < count; ++i) {
        const quint64 start = i * (1'000'000'000 / count);
        given.push_back(blanking::Interval::closed(start, start + 50'000));
    }
    for (auto _ : state) {
        const blanking::JobIntervals blanked = blanking::blankedChannels(ranges, given);
        benchmark::DoNotOptimize(&blanked);
        bench::require(blanked.size() == 100, "every job has blanked channels");
    }
}

BENCHMARK(plainLoop)->Arg(1'000)->Arg(16'000);
BENCHMARK(copy)->Arg(1'000)->Arg(16'000);
BENCHMARK(convert)->Arg(1'000)->Arg(16'000);
BENCHMARK(convert)->Name("convertBesideCopy")->Arg(1'000)->Arg(16'000);
BENCHMARK(block)->Args({16'000, 0})->Args({16'000, 10})->Args({16'000, 100})->Args({16'000, 1'000});
BENCHMARK(block)->Args({60'000, 0})->Args({60'000, 3'750});
BENCHMARK(blockAmongJobs)->Arg(1)->Arg(10)->Arg(100)->Arg(1'000);
BENCHMARK(rebuild)->Arg(100)->Arg(1'000)->Arg(10'000);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        const std::string size = name.substr(name.find('/'));
        if (name.starts_with("convertBesideCopy"))
            return "copy" + size;
        if (name.starts_with("convert"))
            return "plainLoop" + size;
        if (name.starts_with("block/16000/") && name != "block/16000/0")
            return "block/16000/0";
        if (name == "block/60000/3750")
            return "block/60000/0";
        if (name.starts_with("blockAmongJobs") && size != "/1")
            return "blockAmongJobs/1";
        if (name.starts_with("rebuild") && size != "/100")
            return "rebuild/100";
        return {};
    });
}
