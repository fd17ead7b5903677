// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/dfscan_receiver.h"
#include "support/fixed_clock.h"
#include "support/ifpan_receiver.h"
#include "support/listener.h"
#include "support/not_accepted_reasons.h"
#include "support/recording_filler.h"
#include "support/recording_map.h"
#include "support/trace_capture.h"
#include "support/value_tree.h"
#include "support/zerospan_receiver.h"
#include "values/value.h"
#include <QDataStream>
#include <functional>
#include <gmock/gmock.h>
#include <limits>
#include <random>

using support::EffectLog;
using support::RecordingFiller;
using support::TraceCapture;
using support::ZeroSpanTrace;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Axis = values::ValueNumeric<qint64>;

namespace {

class MdpZeroSpanTest : public testing::Test {
protected:
    MdpZeroSpan& processor()
    {
        if (!m_processor) {
            m_processor = std::make_unique<MdpZeroSpan>(levelFiller, bit23Filler);
            m_processor->Init("/RX");
            m_dispatcher.RegisterTagProcessor(m_processor.get(), TAG_1801, 0);
        }
        return *m_processor;
    }
    void receive(const ZeroSpanTrace& trace)
    {
        processor();
        m_dispatcher.ProcessDatagram(new UdpDatagram{support::received(trace.bytes())});
    }
    std::shared_ptr<Axis> axis(const char* name)
    {
        return tree->Find<Axis>(QStringLiteral("/RX/ZeroSpan/") + QLatin1String(name));
    }

    EffectLog log;
    TraceCapture traces;
    support::FreshValueTree tree;
    support::FixedClock clock{4711};
    support::RecordingLevelMap levels{log, "levels"};
    support::RecordingLevelMap seconds{log, "seconds"};
    std::shared_ptr<RecordingFiller> levelFiller = std::make_shared<RecordingFiller>(log, &levels, "level");
    std::shared_ptr<RecordingFiller> bit23Filler = std::make_shared<RecordingFiller>(log, &seconds, "bit23");

private:
    std::unique_ptr<MdpZeroSpan> m_processor;
    VK410Processor m_dispatcher{false};
};

using MdpZeroSpanInit = MdpZeroSpanTest;
using MdpZeroSpanHeader = MdpZeroSpanTest;
using MdpZeroSpanGrid = MdpZeroSpanTest;
using MdpZeroSpanScaling = MdpZeroSpanTest;
using MdpZeroSpanAccept = MdpZeroSpanTest;

TEST_F(MdpZeroSpanInit, CreatesItsTwoValuesWithAllOf64Bits)
{
    processor();
    for (const char* const name : {"XStart", "XStop"}) {
        ASSERT_TRUE(axis(name)) << name;
        EXPECT_EQ(axis(name)->GetMin(), std::numeric_limits<qint64>::min());
        EXPECT_EQ(axis(name)->GetMax(), std::numeric_limits<qint64>::max());
        EXPECT_EQ(axis(name)->GetStep(), 1);
    }
}

TEST_F(MdpZeroSpanInit, TakesValuesThatAreThereAndSetsTheirLimits)
{
    const auto start = tree->Create<Axis>("/RX/ZeroSpan", "XStart");
    start->SetMinMax(0, 5, 2);
    receive({});
    EXPECT_EQ(start->GetValue(), 1000);
    EXPECT_EQ(start->GetMax(), std::numeric_limits<qint64>::max());
}

TEST_F(MdpZeroSpanInit, KeepsAnUnlistedValueWhereAnotherKindHasTheName)
{
    tree->Create<values::Value<bool>>("/RX/ZeroSpan", "XStart");
    receive({});
    EXPECT_FALSE(axis("XStart"));
    EXPECT_EQ(axis("XStop")->GetValue(), 1400);
    EXPECT_THAT(log.take(), Contains(HasSubstr("level SetRangeDefinition")));
}

TEST_F(MdpZeroSpanAccept, TracesATraceWithoutOptionalHeaderUnderMask0x20)
{
    ZeroSpanTrace bare;
    bare.optHeaderSize = 0;
    receive(bare);
    ASSERT_EQ(traces.records().size(), 1U);
    EXPECT_EQ(traces.records()[0].message, "Mass data contains no optional header.");
    EXPECT_EQ(traces.records()[0].file, "devicecontrol/vk410protocol/mdpzerospan");
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    receive(bare);
    EXPECT_EQ(traces.records().size(), 1U);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpZeroSpanAccept, IgnoresATraceWithoutValuesSilently)
{
    ZeroSpanTrace empty;
    empty.levels.clear();
    receive(empty);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpZeroSpanAccept, SaysWhyItDropsATrace)
{
    support::NotAcceptedReasons observer;
    processor().SetMassDataObserver(&observer);
    ZeroSpanTrace bare;
    bare.optHeaderSize = 0;
    receive(bare);
    ZeroSpanTrace empty;
    empty.levels.clear();
    receive(empty);
    receive({});
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor(), TAG_5301, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(support::DfTrace{}.bytes())});
    EXPECT_THAT(observer.reasons, ElementsAre("no optional header", "no values", "not a trace of levels"));
}

TEST_F(MdpZeroSpanAccept, IgnoresATraceWithoutEitherField)
{
    const wire::Bytes bytes = wire::DatagramWriter{}
                                  .attribute(1801)
                                  .selectors(2)
                                  .count(1)
                                  .optHeader(wire::Bytes(96))
                                  .bytes({1, 2, 3, 4})
                                  .build();
    processor();
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor(), TAG_1801, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpZeroSpanGrid, IsLaidWithTheFirstTraceWhichIsWrittenToo)
{
    receive({});
    EXPECT_THAT(log.take(),
                ElementsAre("level SetRangeDefinition 0+5 at 1000 by 100 10", "levels SetTimeStamp 4711",
                            "level SetData 1000..1400 x5", "level EndOfScan"));
    EXPECT_EQ(axis("XStart")->GetValue(), 1000);
    EXPECT_EQ(axis("XStop")->GetValue(), 1400);
    EXPECT_THAT(levelFiller->levels, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(MdpZeroSpanGrid, IsKeptAndNotPublishedAgainForTheSameAxis)
{
    receive({});
    axis("XStart")->SetValue(7);
    log.clear();
    receive({});
    EXPECT_THAT(log.take(),
                ElementsAre("levels SetTimeStamp 4711", "level SetData 1000..1400 x5", "level EndOfScan"));
    EXPECT_EQ(axis("XStart")->GetValue(), 7);
}

TEST_F(MdpZeroSpanGrid, IsLaidBeforeTheAxisIsPublished)
{
    processor();
    support::ValueListener listener{log};
    axis("XStart")->AddObserver(&listener);
    axis("XStop")->AddObserver(&listener);
    receive({});
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("SetRangeDefinition"), "XStart 1000", "XStop 1400",
                                        HasSubstr("SetTimeStamp"), HasSubstr("SetData"), "level EndOfScan"));
}

struct AxisCase {
    const char* name;
    ZeroSpanTrace trace;
};
class MdpZeroSpanNewAxis : public MdpZeroSpanTest, public testing::WithParamInterface<AxisCase> {};

TEST_P(MdpZeroSpanNewAxis, RebuildsTheGridAndWritesTheTraceIntoIt)
{
    receive({});
    log.clear();
    receive(GetParam().trace);
    const auto effects = log.take();
    ASSERT_EQ(effects.size(), 4U);
    EXPECT_THAT(effects[0], HasSubstr("level SetRangeDefinition"));
    EXPECT_THAT(effects[2], HasSubstr("level SetData"));
    EXPECT_EQ(axis("XStart")->GetValue(), GetParam().trace.xStart);
}
INSTANTIATE_TEST_SUITE_P(Changes, MdpZeroSpanNewAxis,
                         testing::Values(AxisCase{"Start", {1'001, 399}}, AxisCase{"Stop", {1'000, 401}},
                                         AxisCase{"Count", {1'000, 400, 0, {1, 2, 3}}}),
                         [](const auto& each) { return each.param.name; });

TEST_F(MdpZeroSpanGrid, SnapsAStopThatDiffersByRoundingOnly)
{
    // Seven values over 10 units: 6 x (10 / 6) is not exactly 10 behind this start.
    ZeroSpanTrace trace;
    trace.levels.resize(7);
    levelFiller->takesGrids = false;
    const double last = 1010.0 - 3e-11; // within 6 x 1e-11
    levelFiller->grid.AddRangeDefinition(0, 7, 1000.0, (last - 1000.0) / 6, "");
    const double fMax = levelFiller->grid.ChannelIdToFrequency(6);
    ASSERT_NE(fMax, 1010.0);
    trace.xSpan = 10;
    receive(trace);
    std::ostringstream expected;
    expected.precision(17);
    expected << "level SetData 1000.." << fMax << " x7";
    EXPECT_THAT(log.take(), ElementsAre("levels SetTimeStamp 4711", expected.str(), "level EndOfScan"));
}

TEST_F(MdpZeroSpanGrid, DoesNotSnapBeyondTheTolerance)
{
    ZeroSpanTrace trace;
    trace.levels.resize(7);
    trace.xSpan = 10;
    levelFiller->takesGrids = false;
    levelFiller->grid.AddRangeDefinition(0, 7, 1000.0, (1010.0 - 1e-9 - 1000.0) / 6, "");
    receive(trace);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("SetRangeDefinition"), HasSubstr("SetTimeStamp"),
                                        "level SetData 1000..1010 x7", "level EndOfScan"));
}

TEST_F(MdpZeroSpanGrid, SnapsToTheGridThatWasThereBeforeTheRebuild)
{
    // Another count: rebuilt; the stop is within the tolerance of the old grid's last channel.
    ZeroSpanTrace trace;
    trace.levels.resize(7);
    trace.xSpan = 10;
    const double last = 1010.0 - 3e-11;
    levelFiller->grid.AddRangeDefinition(0, 6, 1000.0, (last - 1000.0) / 5, "");
    const double fMax = levelFiller->grid.ChannelIdToFrequency(5);
    receive(trace);
    std::ostringstream expected;
    expected.precision(17);
    expected << "level SetData 1000.." << fMax << " x7";
    EXPECT_THAT(log.take(), Contains(expected.str()));
}

TEST_F(MdpZeroSpanGrid, ThatTheFillerDoesNotTakeIsNotWritten)
{
    levelFiller->takesGrids = false;
    receive({});
    EXPECT_THAT(log.take(), ElementsAre("level SetRangeDefinition 0+5 at 1000 by 100 10"));
}

TEST_F(MdpZeroSpanGrid, OfOneValueHasAnInfiniteStepOrNone)
{
    ZeroSpanTrace trace;
    trace.levels = {1};
    receive(trace);
    EXPECT_THAT(log.take(), Contains("level SetRangeDefinition 0+1 at 1000 by inf 10"));
    levelFiller->grid = {};
    trace.xSpan = 0;
    receive(trace);
    EXPECT_THAT(log.take(),
                Contains(testing::MatchesRegex("level SetRangeDefinition 0.1 at 1000 by -?nan 10")));
}

TEST_F(MdpZeroSpanGrid, TakesTheStartAsSignedAndStopAndSpanAsUnsigned)
{
    ZeroSpanTrace trace;
    trace.xStart = -8;
    trace.xSpan = 4;
    receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("level SetRangeDefinition 0+5 at -8 by 1 10", HasSubstr("SetTimeStamp"),
                            "level SetData -8..1.8446744073709552e+19 x5", "level EndOfScan"));
    EXPECT_EQ(axis("XStop")->GetValue(), -4);
}

TEST_F(MdpZeroSpanGrid, WrapsTheSumOfStartAndSpan)
{
    ZeroSpanTrace trace;
    trace.xStart = std::numeric_limits<qint64>::max();
    trace.xSpan = 2;
    receive(trace);
    EXPECT_EQ(axis("XStop")->GetValue(), std::numeric_limits<qint64>::min() + 1);
}

TEST_F(MdpZeroSpanHeader, IsReadInBothByteOrders)
{
    for (const bool littleEndian : {false, true}) {
        ZeroSpanTrace trace;
        trace.littleEndian = littleEndian;
        trace.stamp = 0x0102030405060708;
        trace.xStart = 0x0203040506;
        levelFiller->grid = {};
        receive(trace);
        EXPECT_THAT(log.take(), ElementsAre(HasSubstr("SetRangeDefinition 0+5 at 8640529670 by 100 10"),
                                            "levels SetTimeStamp 72623859790382", HasSubstr("SetData"),
                                            HasSubstr("EndOfScan")));
        EXPECT_THAT(levelFiller->levels, ElementsAre(1, 2, 3, 4, 5));
    }
}

TEST_F(MdpZeroSpanHeader, OfFortyBytesHasAnAxisButNoStamp)
{
    ZeroSpanTrace trace;
    trace.optHeaderSize = 40;
    trace.stamp = 5'000'000;
    receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("level SetRangeDefinition 0+5 at 1000 by 100 10", "levels SetTimeStamp 4711",
                            HasSubstr("SetData"), HasSubstr("EndOfScan")));
}

TEST_F(MdpZeroSpanHeader, DividesTheStampUnsigned)
{
    ZeroSpanTrace trace;
    trace.stamp = -1;
    receive(trace);
    EXPECT_THAT(log.take(), Contains("levels SetTimeStamp 18446744073709551"));
}

TEST_F(MdpZeroSpanHeader, ReadsOnEveryInputWhatAStreamReads)
{
    std::mt19937 random{1801};
    processor();
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor(), TAG_1801, 0);
    for (int round = 0; round < 2'000; ++round) {
        wire::Bytes header(1 + random() % 110);
        for (unsigned char& byte : header)
            byte = static_cast<unsigned char>(random() % 3 == 0 ? 0 : random());
        const bool littleEndian = random() % 2 != 0;
        const wire::Bytes bytes = wire::DatagramWriter{}
                                      .attribute(1801)
                                      .selectors(1U | (littleEndian ? 0x20000000U : 0U))
                                      .count(2)
                                      .optHeader(header)
                                      .items<short>({1, 2})
                                      .build();
        levelFiller->grid = {};
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});

        QDataStream stream(QByteArray(reinterpret_cast<const char*>(header.data()),
                                      static_cast<int>(std::min<std::size_t>(header.size(), 96))));
        stream.setByteOrder(littleEndian ? QDataStream::LittleEndian : QDataStream::BigEndian);
        qint32 word = 0;
        qint64 xSpan = 0;
        qint64 xStart = 0;
        qint64 other = 0;
        qint64 stamp = 0;
        stream >> word >> word >> word >> word >> word >> word >> xSpan >> xStart >> other >> stamp;
        const auto xStop = static_cast<qint64>(static_cast<quint64>(xStart) + static_cast<quint64>(xSpan));
        ASSERT_EQ(axis("XStart")->GetValue(), xStart);
        ASSERT_EQ(axis("XStop")->GetValue(), xStop);
        const quint64 mapStamp = stamp != 0 ? static_cast<quint64>(stamp) / 1000 : 4711;
        ASSERT_THAT(log.take(), Contains("levels SetTimeStamp " + std::to_string(mapStamp)));
    }
}

TEST_F(MdpZeroSpanScaling, BringsFullScaleToAThousand)
{
    ZeroSpanTrace trace;
    trace.levels.clear();
    trace.second = {32767, -32767, 0, 16384, -16384, 16, 17, -16, -32768};
    receive(trace);
    EXPECT_THAT(bit23Filler->levels, ElementsAre(1000, -999, 0, 500, -499, 0, 1, 0, -999));
    EXPECT_THAT(log.take(),
                ElementsAre(HasSubstr("bit23 SetRangeDefinition 0+9"), "seconds SetTimeStamp 4711",
                            HasSubstr("bit23 SetData"), "bit23 EndOfScan"));
}

TEST_F(MdpZeroSpanScaling, WritesTheLevelsFirstEachWithAGridOfItsOwn)
{
    ZeroSpanTrace trace;
    trace.second = {10'000, 20'000, 30'000, 0, 1};
    receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre(HasSubstr("level SetRangeDefinition"), HasSubstr("levels SetTimeStamp"),
                            HasSubstr("level SetData"), "level EndOfScan",
                            HasSubstr("bit23 SetRangeDefinition"), HasSubstr("seconds SetTimeStamp"),
                            HasSubstr("bit23 SetData"), "bit23 EndOfScan"));
    EXPECT_THAT(levelFiller->levels, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(bit23Filler->levels, ElementsAre(305, 610, 916, 0, 0));
}

TEST_F(MdpZeroSpanScaling, SkipsTheFieldOfAnEmptyFiller)
{
    bit23Filler = nullptr;
    ZeroSpanTrace trace;
    trace.second = {1, 2, 3, 4, 5};
    receive(trace);
    EXPECT_EQ(log.take().size(), 4U);
}

TEST_F(MdpZeroSpanAccept, FillsWithoutAMappingAndWithoutValues)
{
    const auto bare = std::make_shared<RecordingFiller>(log);
    MdpZeroSpan unbound{bare, nullptr};
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&unbound, TAG_1801, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(ZeroSpanTrace{}.bytes())});
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("SetRangeDefinition"), "filler SetData 1000..1400 x5",
                                        "filler EndOfScan"));
}

TEST_F(MdpZeroSpanAccept, CopiesShareTheirFillers)
{
    MdpZeroSpan copy{processor()};
    MdpZeroSpan assigned{nullptr, nullptr};
    assigned = copy;
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&assigned, TAG_1801, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(ZeroSpanTrace{}.bytes())});
    EXPECT_THAT(log.take(), Contains("level SetData 1000..1400 x5"));
    EXPECT_EQ(axis("XStop")->GetValue(), 1400);
}

TEST_F(MdpZeroSpanGrid, SurvivesATraceFromInsideItsNotification)
{
    support::Once feeder{[this] {
        ZeroSpanTrace inner;
        inner.xStart = 5000;
        inner.levels = {9, 9};
        receive(inner);
    }};
    processor();
    axis("XStart")->AddObserver(&feeder);
    ZeroSpanTrace outer;
    outer.second = {1, 2, 3, 4, 5};
    receive(outer);
    EXPECT_EQ(axis("XStop")->GetValue(), 1400);
    EXPECT_THAT(log.take(), Contains("bit23 SetData 1000..1400 x5"));
}

TEST_F(MdpZeroSpanGrid, TakesANegativeSpanAsUnsigned)
{
    ZeroSpanTrace trace;
    trace.xSpan = -4;
    receive(trace);
    EXPECT_THAT(log.take(), Contains("level SetRangeDefinition 0+5 at 1000 by 4.6116860184273879e+18 10"));
}

TEST_F(MdpZeroSpanScaling, SkipsTheLevelsOfAnEmptyLevelFiller)
{
    levelFiller = nullptr;
    ZeroSpanTrace trace;
    trace.second = {1, 2, 3, 4, 5};
    receive(trace);
    EXPECT_THAT(log.take(), testing::Each(testing::Not(HasSubstr("level "))));
}

} // namespace
