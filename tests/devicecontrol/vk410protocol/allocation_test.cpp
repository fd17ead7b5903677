// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "support/allocation_count.h"
#include "support/delivered.h"
#include "support/ifpan_receiver.h"
#include "support/zerospan_receiver.h"
#include <gtest/gtest.h>

using wire::DatagramWriter;

namespace {

class Counting : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override { ++attributes; }
    int attributes = 0;
};

std::size_t allocationsOf(VK410Processor& dispatcher, const wire::Bytes& bytes)
{
    auto* const datagram = new UdpDatagram{support::received(bytes)};
    const std::size_t before = support::allocationCount();
    dispatcher.ProcessDatagram(datagram);
    return support::allocationCount() - before;
}

TEST(Allocations, AreCounted)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    const std::size_t before = support::allocationCount();
    const auto one = std::make_unique<int>(1);
    const QByteArray two(100, 'x');
    EXPECT_EQ(support::allocationCount() - before, 2U);
    EXPECT_EQ(*one + two.size(), 101);
}

TEST(Allocations, AreNoneForWalkingAndDispatchingWithoutBit17)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    VK410Processor dispatcher{false};
    Counting counting;
    dispatcher.RegisterTagProcessor(&counting, TAG_101, 0);
    dispatcher.RegisterTagProcessor(&counting, TAG_301, 1);
    dispatcher.RegisterTagProcessor(&counting, TAG_5301, 2);
    const wire::Bytes bytes = DatagramWriter{}
                                  .attribute(101)
                                  .selectors(0x00BDFFFF)
                                  .count(100)
                                  .bytes(wire::Bytes(6000))
                                  .attribute(301, 1)
                                  .optHeader(wire::Bytes(34, 1))
                                  .attribute(777)
                                  .attribute(201)
                                  .attribute(5301, 2)
                                  .build();
    allocationsOf(dispatcher, bytes); // warm-up
    EXPECT_EQ(allocationsOf(dispatcher, bytes), 0U);
    EXPECT_EQ(counting.attributes, 6);
}

TEST(Allocations, AreOnePerArrayOfBit17)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    VK410Processor dispatcher{false};
    const wire::Bytes bytes =
        DatagramWriter{}.attribute(101).selectors(0x20000).count(100).bytes(wire::Bytes(400)).build();
    allocationsOf(dispatcher, bytes);
    EXPECT_EQ(allocationsOf(dispatcher, bytes), 1U);
}

TEST(Allocations, AreTheSignalsCopyAndAtMostOneIdVectorForAnIfPanorama)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    const support::FreshValueTree tree;
    values::LevelMap map;
    MdpIfpan processor{nullptr, std::make_shared<FastLevelMapFiller>(&map, nullptr)};
    processor.Init("/RX", "/FOLLOW");
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    support::IfpanTrace trace;
    trace.levels.assign(1601, 4);
    for (int warmUp = 0; warmUp < 3; ++warmUp)
        allocationsOf(dispatcher, trace.bytes());
    EXPECT_LE(allocationsOf(dispatcher, trace.bytes()), 2U);
    EXPECT_EQ(map.GetValues()[1600], 4);
}

TEST(Allocations, AreAtMostOneIdVectorForAZeroSpanTrace)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    const support::FreshValueTree tree;
    values::LevelMap map;
    MdpZeroSpan processor{std::make_shared<FastLevelMapFiller>(&map, nullptr), nullptr};
    processor.Init("/RX");
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    support::ZeroSpanTrace trace;
    trace.levels.assign(1601, 4);
    for (int warmUp = 0; warmUp < 3; ++warmUp)
        allocationsOf(dispatcher, trace.bytes());
    EXPECT_LE(allocationsOf(dispatcher, trace.bytes()), 1U);
}

} // namespace
