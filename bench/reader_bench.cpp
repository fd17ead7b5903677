// SPDX-License-Identifier: MIT
// Claim: a datagram costs a fraction of what a straightforward reader with QDataStream needs for the same
// fields, and its cost grows with its bytes alone: not with the attributes before it, nor with the processors
// registered.
#include "bench/ratio_reporter.h"
#include "support/delivered.h"
#include <QDataStream>
#include <QVector>

namespace {

using wire::DatagramWriter;

class Counting : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute* attribute, bool) override
    {
        ++attributes;
        items += attribute->Count();
    }
    std::int64_t attributes = 0;
    std::int64_t items = 0;
};

wire::Bytes levelTraces(std::int64_t attributes, std::int64_t items)
{
    DatagramWriter writer;
    for (std::int64_t i = 0; i < attributes; ++i)
        writer.attribute(101)
            .selectors(1)
            .count(static_cast<std::uint32_t>(items))
            .bytes(wire::Bytes(2 * static_cast<std::size_t>(items), 1));
    return writer.build();
}

/// As one writes it who knows Qt and the format, but minds no cost: level traces only.
std::int64_t itemsByDataStream(const QByteArray& bytes, QVector<qint16>& levels)
{
    QDataStream stream{bytes};
    quint32 magic = 0;
    quint32 length = 0;
    stream >> magic;
    stream.skipRawData(8);
    stream >> length;
    std::int64_t items = 0;
    while (!stream.atEnd()) {
        quint16 tag = 0;
        quint16 attributeLength = 0;
        quint16 count = 0;
        quint8 channel = 0;
        quint8 optHeaderLength = 0;
        quint32 selectors = 0;
        stream >> tag >> attributeLength >> count >> channel >> optHeaderLength >> selectors;
        stream.skipRawData(optHeaderLength);
        levels.resize(count);
        for (qint16& level : levels)
            stream >> level;
        items += count;
    }
    return items;
}

// One round: a datagram of so many attributes, of so many items each, built as a source builds it.
void process(benchmark::State& state, std::int64_t attributes, std::int64_t items, int processors)
{
    const wire::Bytes bytes = levelTraces(attributes, items);
    VK410Processor dispatcher{false};
    Counting counting;
    for (int i = 0; i < processors; ++i) {
        const std::uint16_t tag =
            wire::tag::known[static_cast<std::size_t>(i) / 256 % wire::tag::known.size()];
        dispatcher.RegisterTagProcessor(&counting, static_cast<TRACE_TAG>(tag), i % 256);
    }
    dispatcher.RegisterTagProcessor(&counting, TAG_101, 0);
    for (auto _ : state)
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    bench::require(counting.attributes == state.iterations() * attributes, "every attribute dispatched");
    bench::require(counting.items == counting.attributes * items, "every item counted");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void ours(benchmark::State& state)
{
    process(state, state.range(0), state.range(1), 1);
}

void qDataStream(benchmark::State& state)
{
    const wire::Bytes bytes = levelTraces(state.range(0), state.range(1));
    QVector<qint16> levels;
    std::int64_t items = 0;
    for (auto _ : state) {
        const QByteArray received{reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<int>(bytes.size())};
        items += itemsByDataStream(received, levels);
    }
    bench::require(items == state.iterations() * state.range(0) * state.range(1), "every item read");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void copy(benchmark::State& state)
{
    const wire::Bytes bytes = levelTraces(state.range(0), state.range(1));
    for (auto _ : state) {
        const QByteArray received{reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<int>(bytes.size())};
        benchmark::DoNotOptimize(received.constData());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void processors(benchmark::State& state)
{
    process(state, 100, 32, static_cast<int>(state.range(0)));
}

void addShapes(benchmark::internal::Benchmark* benchmark)
{
    for (const int attributes : {1, 10, 100, 1'000})
        benchmark->Args({attributes, 32});
    for (const int items : {1'601, 16'000})
        benchmark->Args({1, items});
}

BENCHMARK(ours)->Apply(addShapes);
BENCHMARK(qDataStream)->Apply(addShapes);
BENCHMARK(copy)->Apply(addShapes);
BENCHMARK(processors)->Arg(1)->Arg(10)->Arg(100)->Arg(1'000);

} // namespace

int main(int argc, char** argv)
{
    return bench::runWithRatios(argc, argv, [](const std::string& name) -> std::string {
        const std::string shape = name.substr(name.find('/'));
        if (name.starts_with("processors"))
            return shape == "/1" ? "" : "processors/1";
        return name.starts_with("ours") ? "" : "ours" + shape;
    });
}
