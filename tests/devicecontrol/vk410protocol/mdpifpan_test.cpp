// SPDX-License-Identifier: MIT
#include "support/dfscan_receiver.h"
#include "support/ifpan_receiver.h"
#include "support/not_accepted_reasons.h"
#include "support/trace_capture.h"
#include <QDataStream>
#include <QMetaMethod>
#include <gmock/gmock.h>
#include <limits>
#include <random>

using support::EffectLog;
using support::IfpanReceiver;
using support::IfpanTrace;
using support::TraceCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using values::ValueSelection;

namespace {

class MdpIfpanTest : public testing::Test {
protected:
    /// The grid of a trace is there already.
    void primed(const IfpanTrace& trace = {})
    {
        rx.receive(trace);
        log.clear();
    }
    EffectLog log;
    TraceCapture traces;
    IfpanReceiver rx{log};
};

using MdpIfpanAccept = MdpIfpanTest;
using MdpIfpanHeader = MdpIfpanTest;
using MdpIfpanFollow = MdpIfpanTest;
using MdpIfpanRange = MdpIfpanTest;
using MdpIfpanGrid = MdpIfpanTest;
using MdpIfpanLevels = MdpIfpanTest;
using MdpIfpanWidening = MdpIfpanTest;
using MdpIfpanSignal = MdpIfpanTest;
using MdpIfpanUnbound = MdpIfpanTest;

TEST_F(MdpIfpanAccept, DropsATraceWithoutOptionalHeaderValuesOrLevels)
{
    support::NotAcceptedReasons observer;
    rx.processor().SetMassDataObserver(&observer);
    IfpanTrace bare;
    bare.optHeaderSize = 0;
    rx.receive(bare);
    IfpanTrace empty;
    empty.levels.clear();
    rx.receive(empty);
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&rx.processor(), TAG_5301, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(support::DfTrace{}.bytes())});
    EXPECT_THAT(observer.reasons, ElementsAre("no optional header", "no values", "not a trace of levels"));
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpIfpanAccept, BindsDfEnabledWithTheFirstTraceAfterItExists)
{
    rx.tree->Remove("/RX/KRT/DF_ENABLED");
    rx.processor();
    const auto late = rx.tree->Create<ValueSelection>(
        "/RX/KRT", "DF_ENABLED", std::vector<ValueSelection::Entry>{{0, "OFF"}, {1, "ON"}});
    EXPECT_EQ(late->ObserverCount(), 0U);
    rx.receive({});
    EXPECT_EQ(late->ObserverCount(), 1U);
}

TEST_F(MdpIfpanAccept, DropsAnAttributeWhoseCountIsNotThatOfLevels)
{
    // A host that registers the processor for extended attributes by mistake must not make it read too far.
    DataPointers data{};
    unsigned char header[60]{};
    auto* const attribute = reinterpret_cast<UdpDatagramAttribute*>(header);
    header[4] = 0xFF;
    data.extHeader = reinterpret_cast<UdpDatagramExtAttribute*>(header);
    rx.processor().SetAttribute(&data, attribute, true);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpIfpanHeader, IsReadInBothByteOrders)
{
    for (const bool littleEndian : {false, true}) {
        IfpanTrace trace;
        trace.centre = 0x1'2345'6789;
        trace.span = 2000;
        trace.stamp = 0x0102030405060708;
        trace.littleEndian = littleEndian;
        rx.receive(trace);
        EXPECT_THAT(log.take(),
                    Contains("signal x5 at 4886718345 stamp 72623859790382856 4886717345..4886719345"));
        EXPECT_THAT(rx.signalled, ElementsAre(1, 2, 3, 4, 5));
    }
}

TEST_F(MdpIfpanHeader, TakesTheLowHalfOfTheCentreFrequencyAsUnsigned)
{
    IfpanTrace trace;
    trace.centre = 3'000'000'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains(HasSubstr("at 3000000000 ")));
}

TEST_F(MdpIfpanHeader, OfTwentyBytesHasNoStampAndNoStep)
{
    IfpanTrace trace;
    trace.optHeaderSize = 20;
    trace.stamp = 5'000'000;
    trace.numerator = 7;
    trace.denominator = 1;
    rx.answers.deviceStamp = true;
    primed(trace);
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("levels SetTimeStamp 4711", "filler SetData 99999500..100000500 x5",
                            "filler EndOfScan", "signal x5 at 100000000 stamp 0 99999500..100000500"));
    EXPECT_DOUBLE_EQ(rx.filler->grid.GetRanges().front().step, 250.0);
}

/// What a bounded stream reads of a header, as the signal and the grid show it.
struct StreamHeader {
    qint32 low = 0, span = 0, high = 0, word = 0, numerator = 0, denominator = 0;
    qint16 half = 0;
    qint64 stamp = 0;
};

StreamHeader readByStream(const QByteArray& bytes, bool littleEndian)
{
    StreamHeader header;
    QDataStream stream(bytes);
    stream.setByteOrder(littleEndian ? QDataStream::LittleEndian : QDataStream::BigEndian);
    stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
    stream >> header.low >> header.span >> header.half >> header.half >> header.word >> header.high >>
        header.word >> header.word >> header.word >> header.stamp >> header.numerator >> header.denominator >>
        header.half;
    return header;
}

TEST_F(MdpIfpanHeader, ReadsOnEveryInputWhatAStreamReads)
{
    std::mt19937 random{501};
    size_t stamp = 0;
    double realFreq = 0;
    double extent = 0;
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&rx.processor(), TAG_501, 0);
    QObject::connect(
        &rx.processor(), &MdpIfpan::signalTraceData,
        [&](const std::vector<short>&, double real, size_t outputStamp, double fMin, double fMax) {
            realFreq = real;
            stamp = outputStamp;
            extent = fMax - fMin;
        });
    for (int round = 0; round < 2'000; ++round) {
        wire::Bytes header(1 + random() % 60);
        for (unsigned char& byte : header)
            byte = static_cast<unsigned char>(random() % 3 == 0 ? 0 : random());
        // Without a high half the frequencies are small enough for the span to be seen to the hertz.
        if (round % 2 == 0 && header.size() > 16)
            std::fill(header.begin() + 16,
                      header.begin() + std::min<long>(20, static_cast<long>(header.size())), 0);
        const bool littleEndian = random() % 2 != 0;
        const wire::Bytes bytes = wire::DatagramWriter{}
                                      .attribute(501)
                                      .selectors(1U | (littleEndian ? 0x20000000U : 0U))
                                      .count(2)
                                      .optHeader(header)
                                      .items<short>({1, 2})
                                      .build();
        rx.filler->grid = {};
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});

        const std::size_t taken = std::min<std::size_t>(header.size(), 50);
        const StreamHeader expected = readByStream(
            QByteArray(reinterpret_cast<const char*>(header.data()), static_cast<int>(taken)), littleEndian);
        const quint64 centre =
            quint64{static_cast<quint32>(expected.high)} << 32U | static_cast<quint32>(expected.low);
        ASSERT_EQ(realFreq, static_cast<double>(centre));
        ASSERT_EQ(stamp, static_cast<quint64>(expected.stamp));
        if (expected.high == 0) {
            ASSERT_EQ(extent, 2.0 * (static_cast<quint32>(expected.span) / 2));
        }
        if (expected.denominator != 0) {
            ASSERT_EQ(rx.filler->grid.GetRanges().front().step,
                      static_cast<double>(expected.numerator) / expected.denominator);
        }
    }
}

TEST_F(MdpIfpanFollow, MirrorsSpanThenFrequencyWhenFollowing)
{
    rx.follow->SelectKey(3);
    rx.processor();
    rx.watch(rx.span);
    rx.watch(rx.frequency);
    rx.span->SelectKey(1e6);
    log.clear();
    IfpanTrace trace;
    trace.centre = 100'000'001;
    trace.span = 49'000;
    rx.receive(trace);
    const auto effects = log.take();
    ASSERT_GE(effects.size(), 2U);
    EXPECT_EQ(effects[0], "IFPANSPAN 50 kHz");
    EXPECT_EQ(effects[1], "FREQUENCY 100000001");
}

TEST_F(MdpIfpanFollow, LeavesWhatDiffersByLessThanOneHertz)
{
    rx.follow->SelectKey(3);
    rx.frequency->SetValue(100e6 + 0.5);
    rx.processor();
    rx.watch(rx.frequency);
    rx.watch(rx.span);
    rx.receive({});
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("FREQUENCY"))));
}

TEST_F(MdpIfpanFollow, ChangesFrequencyAsItsOriginatorAndSpanAsNobodys)
{
    // The processor observes neither; DRVCOMMANDS shows who is left out. Here: frequency's observers are
    // called.
    rx.follow->SelectKey(3);
    rx.processor();
    IfpanTrace trace;
    trace.centre = 98'000'000;
    rx.receive(trace);
    EXPECT_EQ(rx.frequency->GetValue(), 98e6);
}

TEST_F(MdpIfpanFollow, LeavesEverythingAloneWhenNotFollowing)
{
    rx.processor();
    rx.watch(rx.frequency);
    rx.watch(rx.span);
    IfpanTrace trace;
    trace.centre = 98'000'000;
    trace.span = 1'000'000;
    rx.receive(trace);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    EXPECT_EQ(rx.span->GetValue(), 1000);
}

TEST_F(MdpIfpanRange, OfAnOddSpanLosesItsLastHertz)
{
    IfpanTrace trace;
    trace.span = 1001;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("signal x5 at 100000000 stamp 0 99999500..100000500"));
}

TEST_F(MdpIfpanRange, IncludesTheOffsetOfFrequency)
{
    rx.frequency->SetOffset(1e6);
    rx.receive({});
    EXPECT_THAT(log.take(), Contains("signal x5 at 101000000 stamp 0 100999500..101000500"));
}

TEST_F(MdpIfpanRange, TakesTheSpanAsUnsigned)
{
    IfpanTrace trace;
    trace.span = 3'000'000'000;
    trace.centre = 2'000'000'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("signal x5 at 2000000000 stamp 0 500000000..3500000000"));
}

TEST_F(MdpIfpanGrid, TheFirstTraceSetsTheGridAndWritesNothing)
{
    rx.receive({});
    EXPECT_THAT(log.take(), ElementsAre("filler SetRangeDefinition 0+5 at 99999500 by 250 10",
                                        "signal x5 at 100000000 stamp 0 99999500..100000500"));
    rx.receive({});
    EXPECT_THAT(log.take(),
                ElementsAre("levels SetTimeStamp 4711", "filler SetData 99999500..100000500 x5",
                            "filler EndOfScan", "signal x5 at 100000000 stamp 0 99999500..100000500"));
}

TEST_F(MdpIfpanGrid, TakesItsStepFromTheHeaderWhereThereIsOne)
{
    IfpanTrace trace;
    trace.numerator = 12'501;
    trace.denominator = 50;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("filler SetRangeDefinition 0+5 at 99999500 by 250.02000000000001 10"));
}

TEST_F(MdpIfpanGrid, IsRebuiltAndWrittenWithTheSameTraceWhenItWasThere)
{
    primed();
    IfpanTrace wider;
    wider.span = 2000;
    rx.receive(wider);
    EXPECT_THAT(log.take(),
                ElementsAre("filler SetRangeDefinition 0+5 at 99999000 by 500 10", "levels SetTimeStamp 4711",
                            "filler SetData 99999000..100001000 x5", "filler EndOfScan",
                            "signal x5 at 100000000 stamp 0 99999000..100001000"));
}

TEST_F(MdpIfpanGrid, IsKeptWithinATenthOfAHertzAtBothEdges)
{
    const auto rebuilds = [this](double start, double step) {
        rx.filler->grid = values::ChannelRangeDefinition();
        rx.filler->grid.AddRangeDefinition(0, 5, start, step, "");
        log.clear();
        rx.receive({});
        return !log.take()[0].compare(0, 25, "filler SetRangeDefinition");
    };
    EXPECT_FALSE(rebuilds(99'999'500.0, 250.0));
    EXPECT_FALSE(rebuilds(99'999'500.0 + 0.0999999, 250.0 - 0.02));
    EXPECT_TRUE(rebuilds(99'999'500.0 + 0.1000001, 250.0 - 0.025));
    EXPECT_TRUE(rebuilds(99'999'500.0, 250.0 + 0.0251));
}

TEST_F(MdpIfpanGrid, IsRebuiltForAnotherChannelCount)
{
    primed();
    IfpanTrace finer;
    finer.levels.resize(9);
    rx.receive(finer);
    EXPECT_THAT(log.take(), Contains("filler SetRangeDefinition 0+9 at 99999500 by 125 10"));
}

TEST_F(MdpIfpanGrid, IsKeptForAnotherChannelCountWhileTheTuningWheelIsInUse)
{
    primed();
    rx.wheel->SetValue(true);
    IfpanTrace finer;
    finer.levels.resize(9);
    rx.receive(finer);
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("SetRangeDefinition"))));
}

TEST_F(MdpIfpanGrid, IsRebuiltWhenItHasRangesWithoutChannels)
{
    rx.filler->grid.AddRangeDefinition(0, 0, 1.0, 1.0, "");
    rx.receive({});
    EXPECT_THAT(log.take(), ElementsAre("filler SetRangeDefinition 0+5 at 99999500 by 250 10",
                                        "levels SetTimeStamp 4711", "filler SetData 99999500..100000500 x5",
                                        "filler EndOfScan", HasSubstr("signal")));
}

TEST_F(MdpIfpanGrid, SelectsTheClosestStepWhenItIsRebuiltWhileFollowing)
{
    rx.follow->SelectKey(3);
    rx.processor();
    rx.step->SelectKey(12'500);
    rx.watch(rx.step);
    IfpanTrace trace;
    trace.span = 100'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("IFSTEP 25 kHz", "filler SetRangeDefinition 0+5 at 99950000 by 25000 10",
                            HasSubstr("signal")));
}

TEST_F(MdpIfpanGrid, OfOneValueHasAnInfiniteStepOrNone)
{
    IfpanTrace trace;
    trace.levels = {7};
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("filler SetRangeDefinition 0+1 at 99999500 by inf 10"));
    rx.filler->grid = {};
    trace.span = 0;
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                Contains(testing::MatchesRegex("filler SetRangeDefinition 0.1 at 100000000 by -?nan 10")));
    EXPECT_THAT(rx.signalled, ElementsAre(7));
}

TEST_F(MdpIfpanGrid, WhoseEdgesAreNotNumbersIsKept)
{
    IfpanTrace trace;
    trace.levels = {7};
    primed(trace); // the step is infinite, so even the first edge is 0 times infinity
    trace.centre = 50'000'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("SetRangeDefinition"))));
}

TEST_F(MdpIfpanLevels, AreStampedByTheDeviceInWholeMicrosecondsWhenAsked)
{
    rx.answers.deviceStamp = true;
    IfpanTrace trace;
    trace.stamp = 1'999;
    primed(trace);
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("levels SetTimeStamp 1"));
    trace.stamp = -1; // unsigned
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("levels SetTimeStamp 18446744073709551"));
}

TEST_F(MdpIfpanLevels, AreStampedByTheClockOtherwise)
{
    IfpanTrace trace;
    trace.stamp = 1'999;
    primed(trace);
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("levels SetTimeStamp 4711"));
}

TEST_F(MdpIfpanLevels, ThatAreNotThereAreHandedOnAsNull)
{
    IfpanTrace trace;
    trace.selectors = 0;
    primed(trace);
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("levels SetTimeStamp 4711", "filler SetData 99999500..100000500 x5 null",
                            "filler EndOfScan", "signal x0 at 100000000 stamp 0 99999500..100000500"));
}

struct WideningCase {
    std::uint32_t span;
    std::size_t count;
    int expected;
};
class MdpIfpanWideningBySpan : public MdpIfpanTest, public testing::WithParamInterface<WideningCase> {};

TEST_P(MdpIfpanWideningBySpan, GridTraceAndSignalHaveThatCount)
{
    IfpanTrace trace;
    trace.span = GetParam().span;
    trace.levels.assign(GetParam().count, 3);
    primed(trace);
    rx.receive(trace);
    const std::string count = "x" + std::to_string(GetParam().expected);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("SetTimeStamp"), testing::EndsWith(count),
                                        "filler EndOfScan", HasSubstr("signal " + count + " ")));
    EXPECT_EQ(rx.filler->grid.GetChannelCount(), static_cast<unsigned>(GetParam().expected));
    EXPECT_EQ(rx.signalled.size(), static_cast<std::size_t>(GetParam().expected));
}
INSTANTIATE_TEST_SUITE_P(Spans, MdpIfpanWideningBySpan,
                         testing::Values(WideningCase{5'000, 25, 26}, WideningCase{50'000, 25, 26},
                                         WideningCase{500'000, 25, 26}, WideningCase{5'000'000, 25, 26},
                                         WideningCase{50'000, 24, 24}, WideningCase{50'000, 26, 26},
                                         WideningCase{40'000, 25, 25}, WideningCase{50'001, 25, 25}),
                         [](const auto& each) {
                             return std::to_string(each.param.span) + "HzWith" +
                                    std::to_string(each.param.count);
                         });

TEST_F(MdpIfpanWidening, RepeatsTheLastValueWhereTheDatagramEnds)
{
    IfpanTrace trace;
    trace.span = 50'000;
    trace.levels.resize(25);
    trace.levels[24] = -99;
    primed(trace);
    rx.receive(trace);
    ASSERT_EQ(rx.filler->levels.size(), 26U);
    EXPECT_EQ(rx.filler->levels[25], -99);
    EXPECT_EQ(rx.signalled[25], -99);
}

TEST_F(MdpIfpanSignal, ComesOnceAtTheEndWithTheRawStamp)
{
    IfpanTrace trace;
    trace.stamp = 123'456'789;
    primed(trace);
    rx.receive(trace);
    const auto effects = log.take();
    EXPECT_EQ(effects.back(), "signal x5 at 100000000 stamp 123456789 99999500..100000500");
    EXPECT_EQ(
        std::count_if(effects.begin(), effects.end(), [](const auto& e) { return e.find("signal") == 0; }),
        1);
}

TEST(MdpIfpanMetaObject, NamesItsSignalAndParameters)
{
    const QMetaObject& meta = MdpIfpan::staticMetaObject;
    const int index = meta.indexOfSignal("signalTraceData(std::vector<short>,double,size_t,double,double)");
    ASSERT_GE(index, 0);
    EXPECT_EQ(meta.method(index).parameterNames(),
              (QList<QByteArray>{"level", "realFreq", "outputTimestamp", "fMin", "fMax"}));
}

TEST_F(MdpIfpanUnbound, WithoutAnyValueStillFillsAndSignals)
{
    MdpIfpan bare{nullptr, rx.filler};
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&bare, TAG_501, 0);
    int signalsSeen = 0;
    QObject::connect(&bare, &MdpIfpan::signalTraceData, [&] { ++signalsSeen; });
    for (int i = 0; i < 2; ++i)
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(IfpanTrace{}.bytes())});
    EXPECT_THAT(log.take(),
                ElementsAre("filler SetRangeDefinition 0+5 at 99999500 by 250 10", "levels SetTimeStamp 4711",
                            "filler SetData 99999500..100000500 x5", "filler EndOfScan"));
    EXPECT_EQ(signalsSeen, 2);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpIfpanUnbound, WithoutAFillerStillSignals)
{
    MdpIfpan bare{nullptr, nullptr};
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&bare, TAG_501, 0);
    int signalsSeen = 0;
    QObject::connect(&bare, &MdpIfpan::signalTraceData, [&] { ++signalsSeen; });
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(IfpanTrace{}.bytes())});
    EXPECT_EQ(signalsSeen, 1);
}

TEST_F(MdpIfpanUnbound, AFillerWithoutAMappingIsFilledUnstamped)
{
    rx.filler = std::make_shared<support::RecordingFiller>(log);
    primed();
    rx.receive({});
    EXPECT_THAT(log.take(), ElementsAre("filler SetData 99999500..100000500 x5", "filler EndOfScan",
                                        HasSubstr("signal")));
}

} // namespace
