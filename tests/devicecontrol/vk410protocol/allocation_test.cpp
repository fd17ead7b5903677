// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "nqbase/errorhandler.h"
#include "support/allocation_count.h"
#include "support/delivered.h"
#include "support/dfscan_receiver.h"
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

// A direction-finding scan of many channels, with suppress and blanking ranges that it meets.
class DfScan {
public:
    DfScan()
    {
        namespace flag = support::dfflag;
        trace.azimuth.assign(1601, 900);
        trace.level.assign(1601, 4);
        trace.span = 1600 * 25'000;
        trace.flags = flag::valid | flag::blanking | flag::method(3);
        ranges = {support::scanRange(100'000'000, 100'000'000 + 1600 * 25'000, 25'000, 7)};
    }

    std::size_t allocationsWithin(IMassDataProcessor& processor) const
    {
        VK410Processor dispatcher{false};
        dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);
        for (int warmUp = 0; warmUp < 3; ++warmUp)
            allocationsOf(dispatcher, trace.bytes());
        return allocationsOf(dispatcher, trace.bytes());
    }

    support::FreshValueTree tree;
    std::shared_ptr<values::DFSpectrumMap> map =
        tree->Create<values::DFSpectrumMap>("/RX/KRT", "RXBEARINGMAPPING");
    support::DfTrace trace;
    ScanRangeContainer ranges;
};

TEST(Allocations, AreNoneForADirectionFindingScanWithinASweep)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    DfScan scan;
    scan.tree->Create<values::ValueSelection>("/RX", "DRVCOMMANDS",
                                              std::vector<values::ValueSelection::Entry>{{23, "DF"}});
    const auto status = scan.tree->Create<values::ValueFrequencyItemMap<values::BlankingRangeItem>>(
        "/INTERFACES/Blanking/Ranges", "List");
    const auto store = scan.tree->Create<values::ValueCommentedRangeMap>("/INTERFACES/Blanking",
                                                                         "BlankingRangesFrequencyStore");
    MdpDFPScan processor{nullptr};
    processor.Init("/RX");
    processor.SlotNewOrModifiedScanRanges(scan.ranges);
    store->AddRange(101e6, 102e6);
    FreqStore::Instance()->GetLocalSuppressRange()->AddRange(110e6, 111e6);
    EXPECT_EQ(scan.allocationsWithin(processor), 0U);
    EXPECT_EQ(scan.map->FindChannelValue(1600)->getAzimuth(), 9000);
    EXPECT_EQ(scan.map->FindChannelValue(50)->getValidity(), values::DFSpectrumSample::Validity::Blanked);
    EXPECT_TRUE(status->FindItem(1)->IsBlanked());
    scan.trace.superResolutionCount = 2;
    scan.trace.waves = {std::vector<short>(3202, 5)};
    EXPECT_EQ(scan.allocationsWithin(processor), 0U);
    EXPECT_EQ(scan.map->FindChannelValue(1600)->getSuperResolutionSample()->getLevel(1), 50);
}

TEST(Allocations, AreOneForADirectionFindingScanOfTheScifVariant)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "this build has an allocator of its own";
    const DfScan scan;
    MdpDFPScanSCIF processor;
    processor.Init("/RX");
    processor.SlotNewOrModifiedScanRanges(scan.ranges);
    EXPECT_EQ(scan.allocationsWithin(processor), 1U);
    EXPECT_EQ(scan.map->FindChannelValue(1600)->getAzimuth(), 9000);
}

} // namespace
