// SPDX-License-Identifier: MIT
// Claim: beside the conversion in place, walking and dispatching an attribute costs next to nothing.
// Peers: the bare swap of the same items, and the naive swap of 32 items as a measure of the machine.
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/byteorder.h"
#include "support/delivered.h"
#include <arpa/inet.h>
#include <cstring>

namespace {

using wire::DatagramWriter;

constexpr std::uint32_t items = 1601;

class Counting : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override { ++attributes; }
    std::int64_t attributes = 0;
};

void naiveSwapOf32Items(benchmark::State& state)
{
    std::vector<std::uint16_t> values(32, 0x1234);
    for (auto _ : state) {
        std::uint16_t* at = values.data();
        for (int i = 0; i < 32; ++i) {
            at[i] = ntohs(at[i]);
            benchmark::DoNotOptimize(at[i]); // keeps it scalar
        }
    }
}

// The same bytes at the same address with and without everything around them.
class OneTrace {
public:
    OneTrace()
    {
        bench::require(datagram.NextAttribute(), "one attribute");
        datagram.SetupDataPointers(&fields);
        bench::require(fields.selBit0 && fields.dataEnd, "a whole trace");
    }
    UdpDatagram datagram{support::received(
        DatagramWriter{}.attribute(101).selectors(1).count(items).bytes(wire::Bytes(2 * items)).build())};
    DataPointers fields{};
};

void bareSwap(benchmark::State& state)
{
    const OneTrace trace;
    for (auto _ : state) {
        byteorder::swap16(trace.fields.selBit0, items);
        benchmark::ClobberMemory();
    }
}

void setupDataPointers(benchmark::State& state)
{
    OneTrace trace;
    for (auto _ : state) {
        trace.datagram.SetupDataPointers(&trace.fields); // swaps back and forth
        benchmark::ClobberMemory();
    }
}

// A datagram as a source builds it, with everything that reception costs but the socket.
void process(benchmark::State& state, const wire::Bytes& bytes, int attributes)
{
    VK410Processor dispatcher{false};
    Counting counting;
    for (const std::uint16_t tag : wire::tag::known)
        dispatcher.RegisterTagProcessor(&counting, static_cast<TRACE_TAG>(tag), 0);
    for (auto _ : state)
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    bench::require(counting.attributes == state.iterations() * attributes, "every attribute dispatched");
    state.SetItemsProcessed(state.iterations() * attributes);
}

wire::Bytes smallAttributes(int count)
{
    DatagramWriter writer;
    for (int i = 0; i < count; ++i)
        writer.attribute(101).selectors(1).count(32).bytes(wire::Bytes(64));
    return writer.build();
}

void datagramWithoutAttributes(benchmark::State& state)
{
    process(state, DatagramWriter{}.build(), 0);
}

void datagramOf100SmallAttributes(benchmark::State& state)
{
    process(state, smallAttributes(100), 100);
}

void datagramOf1000SmallAttributes(benchmark::State& state)
{
    process(state, smallAttributes(1000), 1000);
}

void datagramOfOneTrace(benchmark::State& state)
{
    process(state,
            DatagramWriter{}.attribute(101).selectors(1).count(items).bytes(wire::Bytes(2 * items)).build(),
            1);
}

void smallAttribute(benchmark::State& state)
{
    // Per attribute: the walk over 1,000 of them, conversion, record, look-up and call included.
    const wire::Bytes bytes = smallAttributes(1000);
    VK410Processor dispatcher{false};
    Counting counting;
    dispatcher.RegisterTagProcessor(&counting, TAG_101, 0);
    std::int64_t left = 0;
    for (auto _ : state) {
        if (left-- > 0)
            continue;
        left = 999;
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    }
}

BENCHMARK(naiveSwapOf32Items);
BENCHMARK(bareSwap);
BENCHMARK(setupDataPointers);
BENCHMARK(smallAttribute);
BENCHMARK(datagramWithoutAttributes);
BENCHMARK(datagramOfOneTrace);
BENCHMARK(datagramOf100SmallAttributes);
BENCHMARK(datagramOf1000SmallAttributes);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        if (name == "setupDataPointers" || name == "datagramOfOneTrace")
            return "bareSwap";
        if (name == "smallAttribute")
            return "naiveSwapOf32Items";
        if (name == "datagramOf1000SmallAttributes")
            return "datagramOf100SmallAttributes";
        return {};
    });
}
