// SPDX-License-Identifier: MIT
// Any sequence of IF panorama traces and value changes: the processor must survive it, and what it writes
// must fit.
#include "fuzz/input_bytes.h"
#include "support/ifpan_receiver.h"
#include <cstdlib>

namespace {

void changeValue(support::IfpanReceiver& rx, InputBytes& input)
{
    const double number = input.next<std::int32_t>();
    const auto pick = [&input](values::ValueSelection& selection) {
        const auto& entries = selection.GetEntries();
        selection.SelectKey(entries[input.next<std::uint8_t>() % entries.size()].key);
    };
    switch (input.next<std::uint8_t>() % 12) {
    case 0:
        return pick(*rx.commands);
    case 1:
        return pick(*rx.searchScan);
    case 2:
        return pick(*rx.mScan);
    case 3:
        return pick(*rx.dfEnabled);
    case 4:
        return pick(*rx.replay);
    case 5:
        return pick(*rx.follow);
    case 6:
        return rx.frequency->SetValue(number);
    case 7:
        return rx.frequency->SetOffset(number * 1e12);
    case 8:
        return rx.wheel->SetValue(number > 0);
    case 9:
        return rx.enabled->SetValue(number > 0);
    case 10:
        return rx.afc->SetValue(number > 0);
    default:
        rx.processor().Init("/RX", "/FOLLOW");
    }
}

void answer(support::IfpanAnswers& answers, std::uint8_t bits)
{
    answers = {(bits & 1) != 0,  (bits & 2) != 0,  (bits & 4) != 0,  (bits & 8) != 0,
               (bits & 16) != 0, (bits & 32) != 0, (bits & 64) != 0, (bits & 128) != 0};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    InputBytes input{data, size};
    support::EffectLog log;
    support::IfpanReceiver rx{log};
    values::LevelMap map;
    FastLevelMapFiller filler{&map, nullptr};
    const auto bearings = std::make_shared<values::BearingMap>(QStringLiteral("RXBEARINGMAPPING"));
    rx.tree->Add("/RX", bearings);
    answer(rx.answers, input.next<std::uint8_t>());
    MdpIfpan processor{std::make_unique<support::IfpanConfig>(rx.answers),
                       std::make_shared<FastLevelMapFiller>(filler)};
    processor.Init("/RX", "/FOLLOW");
    VK410Processor dispatcher{true};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    dispatcher.RegisterTagProcessor(&processor, TAG_401, 0);
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);

    for (int steps = 0; steps < 32 && !input.empty(); ++steps) {
        const auto kind = input.next<std::uint8_t>();
        if (kind % 4 == 0) {
            changeValue(rx, input);
            continue;
        }
        const unsigned tag = kind % 16 == 1 ? 401 : kind % 16 == 2 ? 5301 : 501;
        const auto header = input.bytes(input.next<std::uint8_t>() % 60);
        const auto trace = input.bytes(input.next<std::uint8_t>());
        wire::DatagramWriter writer;
        writer.attribute(tag).selectors(1U | (kind & 0x20U) << 24U).optHeader(header).bytes(trace);
        writer.count(kind >= 0xF0 ? input.next<std::uint16_t>()
                                  : static_cast<std::uint32_t>(trace.size() / 2));
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(writer.build())});
    }
    if (map.GetValues().size() != map.GetChannelRangeDefinition().GetChannelCount())
        std::abort();
    return 0;
}
