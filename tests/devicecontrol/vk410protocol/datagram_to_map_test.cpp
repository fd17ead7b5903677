// SPDX-License-Identifier: MIT
// From the bytes of a datagram to the contents of the maps, through dispatcher, processor, filler and value
// framework.
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "support/ifpan_receiver.h"
#include "support/trace_capture.h"
#include "support/zerospan_receiver.h"
#include <gmock/gmock.h>

using support::IfpanTrace;
using support::ZeroSpanTrace;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DatagramToMap : public testing::TestWithParam<bool> {
protected:
    void send(const wire::Bytes& bytes)
    {
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    }
    static std::vector<short> contents(const values::LevelMap& map)
    {
        return {map.GetValues().begin(), map.GetValues().end()};
    }

    support::FreshValueTree tree;
    support::TraceCapture traces;
    values::LevelMap map;
    values::LevelMap mirror;
    values::LevelMap seconds;
    std::shared_ptr<FastLevelMapFiller> filler = std::make_shared<FastLevelMapFiller>(&map, &mirror);
    VK410Processor dispatcher{false};
};

TEST_P(DatagramToMap, AnIfPanoramaFillsTheLevelMapAndItsMirror)
{
    MdpIfpan processor{nullptr, filler};
    processor.Init("/RX", "/FOLLOW");
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    IfpanTrace trace;
    trace.littleEndian = GetParam();
    send(trace.bytes());
    EXPECT_THAT(contents(map), ElementsAre(32766, 32766, 32766, 32766, 32766));
    EXPECT_EQ(map.GetScanCount(), 0U);
    send(trace.bytes());
    EXPECT_THAT(contents(map), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(contents(mirror), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(map.GetScanCount(), 1U);
    EXPECT_EQ(map.GetChannelRangeDefinition().ChannelIdToFrequency(0), 99'999'500.0);
    EXPECT_EQ(map.GetChannelRangeDefinition().ChannelIdToFrequency(4), 100'000'500.0);

    trace.centre = 200'000'000;
    trace.levels = {-5, -6, -7};
    send(trace.bytes());
    EXPECT_THAT(contents(map), ElementsAre(-5, -6, -7));
    EXPECT_EQ(map.GetChannelRangeDefinition().ChannelIdToFrequency(1), 200'000'000.0);
}

TEST_P(DatagramToMap, AWidenedIfPanoramaFills26Channels)
{
    MdpIfpan processor{nullptr, filler};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    IfpanTrace trace;
    trace.littleEndian = GetParam();
    trace.span = 50'000;
    trace.levels.assign(25, 8);
    send(trace.bytes());
    send(trace.bytes());
    EXPECT_THAT(contents(map), testing::AllOf(testing::SizeIs(26), testing::Each(8)));
}

TEST_P(DatagramToMap, AnIfPanoramaWithAnOddOptionalHeaderFillsFromAnOddAddress)
{
    MdpIfpan processor{nullptr, filler};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    IfpanTrace trace;
    trace.littleEndian = GetParam();
    trace.optHeaderSize = 41;
    send(trace.bytes());
    send(trace.bytes());
    EXPECT_THAT(contents(map), ElementsAre(1, 2, 3, 4, 5));
}

TEST_P(DatagramToMap, AZeroSpanTraceFillsBothMapsOverTime)
{
    MdpZeroSpan processor{filler, std::make_shared<FastLevelMapFiller>(&seconds, nullptr)};
    processor.Init("/RX");
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    ZeroSpanTrace trace;
    trace.littleEndian = GetParam();
    trace.second = {32767, 0, -32767, 16384, 1};
    trace.stamp = 7'000;
    for (int i = 0; i < 2; ++i) {
        send(trace.bytes());
        EXPECT_THAT(contents(map), ElementsAre(1, 2, 3, 4, 5));
        EXPECT_THAT(contents(seconds), ElementsAre(1000, 0, -999, 500, 0));
    }
    EXPECT_EQ(map.GetEndOfScanTimeStamp(), 7U);
    EXPECT_EQ(map.GetChannelRangeDefinition().ChannelIdToFrequency(4), 1400.0);
    EXPECT_EQ(map.GetScanCount(), 2U);
}

TEST_P(DatagramToMap, AZeroSpanTraceWhoseStopIsRoundedIsAcceptedOfEveryLength)
{
    MdpZeroSpan processor{filler, nullptr};
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    for (std::size_t count = 2; count < 2'000; count += 7) {
        ZeroSpanTrace trace;
        trace.littleEndian = GetParam();
        trace.xStart = 1'234'567;
        trace.xSpan = 1'000'003;
        trace.levels.assign(count, 5);
        send(trace.bytes());
        send(trace.bytes());
        ASSERT_THAT(contents(map), testing::AllOf(testing::SizeIs(count), testing::Each(5))) << count;
    }
}

TEST_P(DatagramToMap, ASingleZeroSpanValueIsRejected)
{
    MdpZeroSpan processor{filler, nullptr};
    dispatcher.RegisterTagProcessor(&processor, TAG_1801, 0);
    ZeroSpanTrace trace;
    trace.littleEndian = GetParam();
    trace.levels = {5};
    send(trace.bytes());
    EXPECT_THAT(contents(map), ElementsAre(32766));
    EXPECT_EQ(map.GetScanCount(), 1U);
    EXPECT_THAT(traces.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, DatagramToMap, testing::Bool(),
                         [](const auto& each) { return each.param ? "HostOrder" : "NetworkOrder"; });

} // namespace
