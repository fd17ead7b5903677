// SPDX-License-Identifier: MIT
// Any sequence of direction-finding traces, scan ranges and value changes: the processor must survive it,
// what it hands out must be readable to the last byte, and the map's samples must be such as a conversion can
// give.
#include "devicecontrol/vk410protocol/numbers.h"
#include "fuzz/input_bytes.h"
#include "support/dfscan_receiver.h"
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds)
        std::abort();
}

// Takes everything that it is handed into its hands.
class Reading : public IMassDataReceiver {
public:
    void ReceiveDfScanData(double, double, double, quint64, int channels, short* azimuth, short* quality,
                           short* fieldStrength, short* level, short* shortTimeLevel, short* elevation,
                           short* reserved, const ScanRange* range) override
    {
        for (const short* const field :
             {azimuth, quality, fieldStrength, level, shortTimeLevel, elevation, reserved})
            read(field, channels);
        sum += range->azimuthSectors.size();
    }
    void ReceiveDfScanDataSuperResolution(double, double, double, quint64, int channels, short* azimuth,
                                          short* quality, short* fieldStrength, short* level,
                                          short* shortTimeLevel, short* elevation, float* eigenValues,
                                          short* srLevel, short* srAzimuth, short* srQuality,
                                          short* srFieldStrength, short* srElevation, int waves, int eigens,
                                          const ScanRange* range) override
    {
        for (const short* const field : {azimuth, quality, fieldStrength, level, shortTimeLevel, elevation})
            read(field, channels);
        for (const short* const field : {srLevel, srAzimuth, srQuality, srFieldStrength, srElevation})
            read(field, channels * waves);
        read(eigenValues, channels * eigens);
        sum += range->azimuthSectors.size();
    }
    std::size_t sum = 0;

private:
    template <typename T>
    void read(const T* items, int count)
    {
        if (!items)
            return;
        for (const auto byte :
             support::copied<unsigned char>(items, static_cast<std::size_t>(count) * sizeof(T)))
            sum += byte;
    }
};

// Frequencies of a neighbourhood, so that ranges meet, and now and then any number.
double anyFrequency(InputBytes& input)
{
    const auto number = input.next<std::uint16_t>();
    if (number < 0xFF00)
        return 1000.0 + number % 512;
    return static_cast<double>(input.next<std::int64_t>()) * (number % 3 == 0 ? 1e6 : 0.5);
}

std::shared_ptr<ScanRange> anyScanRange(InputBytes& input)
{
    const auto kind = input.next<std::uint8_t>();
    if (kind == 0xFF)
        return nullptr;
    auto range = std::make_shared<ScanRange>();
    const auto start = numbers::saturated<quint64>(anyFrequency(input));
    range->startFrequency = start;
    range->stopFrequency = start + input.next<std::uint8_t>();
    range->step = kind % 16 == 0 ? input.next<double>() : 1.0 + kind % 8;
    range->jobId = input.next<std::uint8_t>() % 4;
    for (int sectors = kind >> 6; sectors > 0; --sectors)
        range->azimuthSectors.emplace_back(input.next<std::int16_t>(), input.next<std::int16_t>());
    return range;
}

void changeRanges(values::ValueCommentedRangeMap& ranges, InputBytes& input)
{
    const values::RangeId id = input.next<std::uint8_t>() % 8;
    switch (input.next<std::uint8_t>() % 6) {
    case 0:
        ranges.RemoveRange(id);
        return;
    case 1:
        return ranges.Clear();
    case 2:
        return ranges.SetChangeLogLength(input.next<std::uint8_t>() % 5);
    case 3:
        return ranges.AppendChange({input.next<std::int8_t>(), input.next<std::uint32_t>()});
    default: {
        const double start = anyFrequency(input);
        ranges.SetRange(id, start, start + input.next<std::uint8_t>());
    }
    }
}

void changeValue(support::DfReceiver& rx, MdpDFPScan& processor, InputBytes& input)
{
    const auto& modes = rx.commands->GetEntries();
    switch (input.next<std::uint8_t>() % 9) {
    case 0:
        return rx.commands->SelectKey(modes[input.next<std::uint8_t>() % modes.size()].key);
    case 1:
        return changeRanges(*rx.localSuppress, input);
    case 2:
        return changeRanges(*rx.globalSuppress, input);
    case 3:
        rx.status->RemoveItem(input.next<std::uint8_t>() % 8);
        return;
    case 4:
        rx.usePitchRoll->SetValue(input.next<std::uint8_t>() > 127);
        return processor.Init("/RX");
    case 5:
        return rx.roll->SetValue(input.next<std::int16_t>());
    case 6:
        return rx.qualityThreshold->SetValue(input.next<std::int16_t>());
    default:
        return changeRanges(*rx.blankingRanges, input);
    }
}

wire::Bytes anyTrace(InputBytes& input, std::uint8_t kind)
{
    support::DfTrace plausible;
    plausible.startFrequency = 1000 + input.next<std::uint8_t>();
    plausible.firstChannel = input.next<std::int8_t>() / 4;
    plausible.stepNumerator = 1 + kind % 8;
    plausible.span = input.next<std::uint8_t>();
    plausible.flags = input.next<std::uint32_t>();
    plausible.jobId = input.next<std::uint8_t>() % 4;
    plausible.superResolutionFields = input.next<std::uint8_t>();
    plausible.superResolutionCount = static_cast<std::int8_t>(input.next<std::int8_t>() / 32);
    plausible.eigenValueCount = static_cast<std::int8_t>(input.next<std::int8_t>() / 32);
    plausible.optHeaderSize = kind >= 0xE0 ? input.next<std::uint8_t>() % 90 : wire::dfscan::size;
    wire::Bytes header = plausible.header();
    if ((kind & 0x80U) != 0 && !header.empty()) { // damaged in places
        for (int damage = kind % 4; damage >= 0; --damage)
            header[input.next<std::uint8_t>() % header.size()] = input.next<std::uint8_t>();
    }
    const std::uint32_t hostOrder = (kind & 0x10U) != 0 ? wire::selector::hostOrderFlag : 0U;
    wire::DatagramWriter writer;
    writer.attribute(kind % 16 == 7 ? 501 : 5301)
        .selectors((input.next<std::uint32_t>() & 0x0004F800U) | hostOrder)
        .optHeader(header)
        .count(input.next<std::uint8_t>() % 24 + (kind == 0xF0 ? 0x10000U : 0U));
    return writer.bytes(input.bytes(input.next<std::uint16_t>() % 1024)).build();
}

void checkMap(const values::DFSpectrumMap& map)
{
    require(map.GetValues().size() == map.GetChannelRangeDefinition().GetChannelCount());
    for (const values::DFSpectrumSample& sample : map.GetValues()) {
        require(static_cast<int>(sample.getValidity()) <= 2);
        require(sample.fields().reserved == 0);
        require(sample.getQuality() >= -3276 && sample.getQuality() <= 3276);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    InputBytes input{data, size};
    support::EffectLog log;
    support::DfReceiver rx{log};
    rx.map->SetMemoryLimit(1U << 16U);
    Reading reading;
    MdpDFPScan processor{&reading};
    processor.Init("/RX");
    VK410Processor dispatcher{true};
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    for (int steps = 0; steps < 48 && !input.empty(); ++steps) {
        const auto kind = input.next<std::uint8_t>();
        if (kind % 8 == 0) {
            changeValue(rx, processor, input);
        } else if (kind % 8 == 1) {
            ScanRangeContainer ranges;
            for (int count = input.next<std::uint8_t>() % 5; count > 0; --count)
                ranges.push_back(anyScanRange(input));
            processor.SlotNewOrModifiedScanRanges(ranges);
        } else {
            dispatcher.ProcessDatagram(new UdpDatagram{support::received(anyTrace(input, kind))});
        }
        checkMap(*rx.map);
    }
    return 0;
}
