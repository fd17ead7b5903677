// SPDX-License-Identifier: MIT
// Any sequence of zero-span traces: the processor must survive it, and what it writes must fit.
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "fuzz/input_bytes.h"
#include "support/delivered.h"
#include "support/value_tree.h"
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    InputBytes input{data, size};
    const support::FreshValueTree tree;
    values::LevelMap levels;
    values::LevelMap seconds;
    MdpZeroSpan processor{std::make_shared<FastLevelMapFiller>(&levels, nullptr),
                          std::make_shared<FastLevelMapFiller>(&seconds, &levels)};
    processor.Init("/RX");
    VK410Processor dispatcher{true};
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    dispatcher.RegisterTagProcessor(&processor, TAG_401, 0);

    for (int steps = 0; steps < 32 && !input.empty(); ++steps) {
        const auto kind = input.next<std::uint8_t>();
        const auto header = input.bytes(input.next<std::uint8_t>() % 110);
        const auto trace = input.bytes(input.next<std::uint8_t>());
        const std::uint32_t fields =
            (kind & 1U) | ((kind & 2U) != 0 ? 0x800000U : 0U) | (kind & 0x20U) << 24U;
        const std::uint32_t count = static_cast<std::uint32_t>(trace.size()) / ((kind & 3U) == 3U ? 4 : 2);
        wire::DatagramWriter writer;
        writer.attribute((kind & 0x40U) != 0 ? 401 : 1801)
            .selectors(fields)
            .optHeader(header)
            .bytes(trace)
            .count(count);
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(writer.build())});
    }
    if (levels.GetValues().size() > levels.GetChannelRangeDefinition().GetMaxChannelId() + std::size_t{1})
        std::abort();
    return 0;
}
