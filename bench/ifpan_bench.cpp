// SPDX-License-Identifier: MIT
// Claim: from the bytes of a datagram to level map and signal, an IF panorama or zero-span trace costs little
// more than the passes over its items that cannot be avoided. Peer: those passes alone, in the same run on
// the same sizes: swap in place, copy to the map, copy for the signal (an IF panorama), and swap, copy to the
// map (zero span).
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/byteorder.h"
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/allocation_count.h"
#include "support/delivered.h"
#include "support/ifpan_receiver.h"
#include "support/zerospan_receiver.h"
#include <cstring>

namespace {

wire::Bytes ifpanBytes(std::int64_t count)
{
    support::IfpanTrace trace;
    trace.span = static_cast<std::uint32_t>(count - 1) * 100;
    trace.levels.assign(static_cast<std::size_t>(count), 258);
    trace.stamp = 1'000'000'000;
    return trace.bytes();
}

wire::Bytes zeroSpanBytes(std::int64_t count)
{
    support::ZeroSpanTrace trace;
    trace.xSpan = (count - 1) * 100;
    trace.levels.assign(static_cast<std::size_t>(count), 258);
    trace.stamp = 1'000'000'000;
    return trace.bytes();
}

template <bool withSignal>
void passes(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<short> items(count, 258);
    std::vector<short> map(count);
    for (auto _ : state) {
        byteorder::swap16(items.data(), count);
        std::memcpy(map.data(), items.data(), count * sizeof(short));
        benchmark::ClobberMemory();
        if constexpr (withSignal) {
            const std::vector<short> signalled(items.begin(), items.end());
            benchmark::DoNotOptimize(signalled.data());
        }
    }
}

// What receives into: the bytes of the next datagram, built as a source does. Not part of the trace's cost.
class Source {
public:
    explicit Source(const wire::Bytes& bytes)
        : m_bytes(bytes)
    {}
    std::unique_ptr<QByteArray> next() const { return support::received(m_bytes); }

private:
    wire::Bytes m_bytes;
};

void reception(benchmark::State& state)
{
    const Source source{ifpanBytes(state.range(0))};
    for (auto _ : state)
        benchmark::DoNotOptimize(source.next());
}

struct Ifpan {
    support::FreshValueTree tree;
    values::LevelMap map;
    MdpIfpan processor{nullptr, std::make_shared<FastLevelMapFiller>(&map, nullptr)};
    VK410Processor dispatcher{false};
    std::size_t signalled = 0;

    Ifpan()
    {
        processor.Init("/RX", "/FOLLOW");
        dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
        QObject::connect(&processor, &MdpIfpan::signalTraceData,
                         [this](const std::vector<short>& level) { signalled = level.size(); });
    }
};

void ifpan(benchmark::State& state)
{
    Ifpan rx;
    const Source source{ifpanBytes(state.range(0))};
    const auto receive = [&] { rx.dispatcher.ProcessDatagram(new UdpDatagram{source.next()}); };
    receive();
    receive();
    bench::require(rx.map.GetValues()[7] == 258 && rx.signalled == static_cast<std::size_t>(state.range(0)),
                   "levels in the map and in the signal");
    for (auto _ : state)
        receive();
}

void zeroSpan(benchmark::State& state)
{
    const support::FreshValueTree tree;
    values::LevelMap map;
    MdpZeroSpan processor{std::make_shared<FastLevelMapFiller>(&map, nullptr), nullptr};
    processor.Init("/RX");
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    const Source source{zeroSpanBytes(state.range(0))};
    const auto receive = [&] { dispatcher.ProcessDatagram(new UdpDatagram{source.next()}); };
    receive();
    bench::require(map.GetValues()[7] == 258, "levels in the map");
    for (auto _ : state)
        receive();
}

void addSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(1601)->Arg(16'000);
}

BENCHMARK(passes<true>)->Name("threePasses")->Apply(addSizes);
BENCHMARK(passes<false>)->Name("twoPasses")->Apply(addSizes);
BENCHMARK(reception)->Apply(addSizes);
BENCHMARK(ifpan)->Apply(addSizes);
BENCHMARK(zeroSpan)->Apply(addSizes);

} // namespace

int main(int argc, char** argv)
{
    std::printf("ifpan and zeroSpan contain the copy that stands for reception; subtract that row.\n");
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        const std::string size = name.substr(name.find('/'));
        if (name.starts_with("ifpan"))
            return "threePasses" + size;
        if (name.starts_with("zeroSpan"))
            return "twoPasses" + size;
        return {};
    });
}
