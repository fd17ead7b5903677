// SPDX-License-Identifier: MIT
// Any sequence of scan ranges and direction-finding traces: the samples of the map must be those that a plain
// decoder makes of the same bytes, wherever that decoder can place them.
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "fuzz/input_bytes.h"
#include "support/dfscan_receiver.h"
#include <array>
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds)
        std::abort();
}

// One range of whole steps; the model below needs no rounding for it.
struct Range {
    quint64 start;
    unsigned count;
    unsigned step;
    int job;
    unsigned first;
};

struct Trace {
    std::vector<std::vector<short>> fields{5}; // by the bits below
    unsigned bits = 0;
    unsigned count = 0;
    support::DfTrace header;
};
constexpr std::array<unsigned, 5> fieldBits{11, 12, 13, 15, 18};

Trace anyTrace(InputBytes& input)
{
    Trace trace;
    trace.count = input.next<std::uint8_t>() % 24;
    trace.bits = input.next<std::uint8_t>();
    for (unsigned f = 0; f < fieldBits.size(); ++f) {
        for (unsigned i = 0; (trace.bits >> f & 1U) != 0 && i < trace.count; ++i) {
            const auto item = input.next<std::int16_t>();
            trace.fields[f].push_back(item % 8 == 0 ? std::int16_t{32'766} : item);
        }
    }
    trace.header.littleEndian = (trace.bits & 0x80U) != 0;
    trace.header.startFrequency = 1000 + input.next<std::uint8_t>();
    trace.header.firstChannel = input.next<std::int8_t>() / 8;
    trace.header.stepNumerator = 1 + input.next<std::uint8_t>() % 8;
    trace.header.flags = input.next<std::uint8_t>();
    trace.header.jobId = input.next<std::uint8_t>() % 4;
    return trace;
}

wire::Bytes bytesOf(const Trace& trace)
{
    std::uint32_t selectors = trace.header.littleEndian ? wire::selector::hostOrderFlag : 0U;
    for (unsigned f = 0; f < fieldBits.size(); ++f)
        selectors |= (trace.bits >> f & 1U) << fieldBits[f];
    wire::DatagramWriter writer;
    writer.attribute(5301).selectors(selectors).count(trace.count).optHeader(trace.header.header());
    for (const auto& field : trace.fields)
        writer.items(std::span<const short>(field));
    return writer.build();
}

values::DFSpectrumSample sampleOf(const Trace& trace, std::size_t i)
{
    const auto has = [&trace](unsigned f) { return (trace.bits >> f & 1U) != 0; };
    const auto item = [&trace, i](unsigned f) { return int{trace.fields[f][i]}; };
    const auto orZero = [](int value) { return value == 32'766 ? 0 : value; };
    values::DFSpectrumSample sample;
    using Validity = values::DFSpectrumSample::Validity;
    sample.setValidity((trace.header.flags & 2U) != 0   ? Validity::Unusable
                       : (trace.header.flags & 4U) != 0 ? Validity::Blanked
                                                        : Validity::Valid);
    if (has(2))
        sample.setQuality(static_cast<qint16>(orZero(item(2)) / 10));
    if (has(1))
        sample.setAzimuth(static_cast<quint16>(orZero(item(1)) * 10));
    if (has(3) || has(0))
        sample.setLevel(static_cast<qint16>(item(has(3) ? 3 : 0) * 10));
    if (has(0))
        sample.setShortTimeLevel(static_cast<qint16>(item(0) * 10));
    if (has(4))
        sample.setElevation(static_cast<qint16>(orZero(item(4)) * 10));
    return sample;
}

class Model {
public:
    ScanRangeContainer setRanges(InputBytes& input)
    {
        m_ranges.clear();
        m_samples.clear();
        ScanRangeContainer ranges;
        for (int count = input.next<std::uint8_t>() % 4; count > 0; --count) {
            const Range range{1000U + input.next<std::uint8_t>(), 1U + input.next<std::uint8_t>() % 32,
                              1U + input.next<std::uint8_t>() % 8, input.next<std::uint8_t>() % 4,
                              static_cast<unsigned>(m_samples.size())};
            m_ranges.push_back(range);
            m_samples.resize(m_samples.size() + range.count);
            ranges.push_back(support::scanRange(range.start, range.start + (range.count - 1) * range.step,
                                                range.step, static_cast<quint32>(range.job)));
        }
        m_ended = false;
        return ranges;
    }

    void receive(const Trace& trace)
    {
        const Range* found = nullptr;
        for (const Range& range : m_ranges) {
            if (!found && range.job == trace.header.jobId)
                found = &range;
        }
        if (!found)
            return;
        std::int64_t position = trace.header.firstChannel + std::int64_t{found->first};
        const std::int64_t above = trace.header.startFrequency - static_cast<std::int64_t>(found->start);
        const std::int64_t step = trace.header.stepNumerator;
        if (above > 0)
            position += (2 * above + step) / (2 * step);
        write(trace, position);
        m_ended = m_ended || (trace.header.flags & 16U) != 0;
    }

    [[nodiscard]] const std::vector<values::DFSpectrumSample>& samples() const { return m_samples; }

private:
    void write(const Trace& trace, std::int64_t position)
    {
        const auto size = static_cast<std::int64_t>(m_samples.size());
        if (trace.count == 0 || position >= size || position + trace.count <= 0)
            return;
        if (m_ended) // the first write behind the end of a sweep clears the map
            m_samples.assign(m_samples.size(), {});
        m_ended = false;
        for (std::int64_t i = 0; i < trace.count; ++i) {
            if (position + i >= 0 && position + i < size)
                m_samples[static_cast<std::size_t>(position + i)] =
                    sampleOf(trace, static_cast<std::size_t>(i));
        }
    }

    std::vector<Range> m_ranges;
    std::vector<values::DFSpectrumSample> m_samples;
    bool m_ended = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    InputBytes input{data, size};
    const support::FreshValueTree tree;
    const auto map = tree->Create<values::DFSpectrumMap>("/RX/KRT", "RXBEARINGMAPPING");
    MdpDFPScanSCIF processor;
    processor.Init("/RX");
    VK410Processor dispatcher{true};
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);
    Model model;
    for (int steps = 0; steps < 48 && !input.empty(); ++steps) {
        const auto kind = input.next<std::uint8_t>();
        if (kind % 8 == 0) {
            processor.SlotNewOrModifiedScanRanges(model.setRanges(input));
        } else if (kind < 0xF0) {
            const Trace trace = anyTrace(input);
            dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytesOf(trace))});
            model.receive(trace);
        } else { // a header that may say anything, for a job that nobody knows or a place that nobody can
                 // guess
            wire::DatagramWriter writer;
            writer.attribute(5301).selectors(input.next<std::uint32_t>() & 0x2004F800U);
            writer.optHeader(input.bytes(input.next<std::uint8_t>() % 90))
                .count(input.next<std::uint8_t>() % 24);
            const wire::Bytes bytes = writer.bytes(input.bytes(256)).build();
            dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
            processor.SlotNewOrModifiedScanRanges(model.setRanges(input));
        }
        require(std::equal(model.samples().begin(), model.samples().end(), map->GetValues().begin(),
                           map->GetValues().end()));
    }
    return 0;
}
