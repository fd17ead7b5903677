// SPDX-License-Identifier: MIT
#include "tools/vk410/samples.h"
#include "toolkit/simulation/simulator.h"
#include "toolkit/support/capture_bytes.h"
#include "wire/optheader.h"

namespace support {
namespace {

wire::DatagramWriter panorama(std::uint16_t sequence, std::int64_t timeStamp)
{
    wire::OptHeaderWriter header{wire::ifpan::size};
    header.set(wire::ifpan::centreFrequencyLow, 98'500'000)
        .set(wire::ifpan::span, 300'000)
        .set(wire::ifpan::timeStamp, timeStamp)
        .set(wire::ifpan::stepNumerator, 100'000)
        .set(wire::ifpan::stepDenominator, 1);
    wire::DatagramWriter writer;
    writer.sequence(sequence).attribute(501).selectors(0x1).count(4).optHeader(header.bytes());
    writer.items<std::int16_t>({-120, 250, 245, -118});
    return writer;
}

} // namespace

Bytes sampleStream()
{
    const Bytes bad = wire::DatagramWriter{}
                          .sequence(8)
                          .attribute(101)
                          .selectors(0x00400001)
                          .count(2)
                          .bytes(Bytes(8))
                          .build();
    const Bytes others =
        wire::DatagramWriter{}.sequence(9).attribute(401, 2).bytes({0xCA, 0xFE}).attribute(9999).build();
    return joined({panorama(7, firstNs).build(), bad, others});
}

Bytes sampleDfStream()
{
    simulation::Simulator simulator{simulation::loadScene(VK410_DOCS "/samples/df.json"), 1};
    simulator.setLimit(4);
    std::vector<Bytes> blocks;
    while (std::optional<simulation::Emission> block = simulator.next())
        blocks.push_back(std::move(block->bytes));
    return joined(blocks);
}

Bytes sampleCapture()
{
    std::vector<CapturedPacket> packets;
    for (const std::uint16_t sequence : std::initializer_list<std::uint16_t>{7, 8, 10}) {
        const std::int64_t now = firstNs + (sequence - 7) * 50'000'000;
        packets.push_back(
            {ethernet(udpPacket(panorama(sequence, now).build(), {"192.0.2.1", "192.0.2.2", 40000, 5555})),
             now + 1'000'000,
             {}});
    }
    return capture(packets, linktype::ethernet);
}

} // namespace support
