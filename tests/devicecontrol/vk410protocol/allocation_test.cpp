// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "nqbase/errorhandler.h"
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

TEST(Allocations, AreNoMoreForAPathWithoutALeadingSlash)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    const support::FreshValueTree tree;
    values::LevelMap map;
    MdpIfpan processor{nullptr, std::make_shared<FastLevelMapFiller>(&map, nullptr)};
    processor.Init("RX", "FOLLOW");
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    for (int warmUp = 0; warmUp < 3; ++warmUp)
        allocationsOf(dispatcher, support::IfpanTrace{}.bytes());
    EXPECT_LE(allocationsOf(dispatcher, support::IfpanTrace{}.bytes()), 2U);
}

/// The loss text is composed and thrown away; composing it allocates.
class SequenceState : public testing::Test {
protected:
    bool composes(std::uint16_t sequence, std::size_t size = 16)
    {
        return allocationsOf(dispatcher, DatagramWriter{}.sequence(sequence).cutTo(size).build()) > 0;
    }
    void SetUp() override
    {
        if (!support::allocationCountWorks())
            GTEST_SKIP() << "this build has an allocator of its own";
        ErrorHandler::Instance()->SetTraceMask(0x40);
    }
    void TearDown() override { ErrorHandler::Instance()->SetTraceMask(0); }
    VK410Processor dispatcher{false};
};

TEST_F(SequenceState, ComposesALossForAGapOnly)
{
    EXPECT_FALSE(composes(7));
    EXPECT_TRUE(composes(10));
    EXPECT_FALSE(composes(11));
    EXPECT_TRUE(composes(3));
}

TEST_F(SequenceState, ComposesNothingUnderAnotherMask)
{
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFBF);
    EXPECT_FALSE(composes(7));
    EXPECT_FALSE(composes(10));
}

TEST_F(SequenceState, ComposesNothingFromTheLargestNumberToZero)
{
    EXPECT_FALSE(composes(65'535));
    EXPECT_FALSE(composes(0));
}

TEST_F(SequenceState, ComposesNothingAfterItWasInvalidated)
{
    EXPECT_FALSE(composes(7));
    dispatcher.invalidateSeqNumber();
    EXPECT_FALSE(composes(100));
}

TEST_F(SequenceState, ComposesNothingAfterADatagramThatIsTooShortForANumber)
{
    EXPECT_FALSE(composes(7));
    EXPECT_FALSE(composes(0, 9));
    EXPECT_FALSE(composes(100));
    EXPECT_TRUE(composes(200));
}

TEST_F(SequenceState, CountsDatagramsWithoutMagicToo)
{
    EXPECT_FALSE(composes(7));
    EXPECT_EQ(allocationsOf(dispatcher, DatagramWriter{}.magic(1).sequence(8).build()), 0U);
    EXPECT_FALSE(composes(9));
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
