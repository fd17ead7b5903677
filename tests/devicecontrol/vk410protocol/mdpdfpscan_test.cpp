// SPDX-License-Identifier: MIT
#include "support/dfscan_receiver.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <limits>

using support::DfTrace;
using support::EffectLog;
using support::scanRange;
using support::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
namespace dfflag = support::dfflag;

namespace {

class NotAcceptedReasons : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport&) override {}
    void AttributeDone(const AttributeReport&) override {}
    void AttributeNotAccepted(const char* reason) override { reasons.emplace_back(reason); }
    void StreamBroken(quint32) override {}
    void MirrorClientCut(qint64) override {}
    std::vector<std::string> reasons;
};

class MdpDFPScanTest : public testing::Test {
protected:
    EffectLog log;
    TraceCapture traces;
    support::DfReceiver rx{log};
    NotAcceptedReasons observer;

    void watchAll()
    {
        rx.watch(rx.polarFrequency);
        rx.watch(rx.frequency);
        rx.watch(rx.demodulationFrequency);
        rx.watch(rx.dfTimestamp);
        rx.watch(rx.sweepTime);
        rx.watch(rx.averagingTime);
        rx.watch(rx.altUsed);
        rx.watch(rx.watsonWatt);
    }
};

using MdpDFPScanInit = MdpDFPScanTest;
using MdpDFPScanAccept = MdpDFPScanTest;
using MdpDFPScanHeader = MdpDFPScanTest;
using MdpDFPScanTimes = MdpDFPScanTest;
using MdpDFPScanFrequencies = MdpDFPScanTest;
using MdpDFPScanGrid = MdpDFPScanTest;
using MdpDFPScanPosition = MdpDFPScanTest;
using MdpDFPScanOrder = MdpDFPScanTest;
using MdpDFPScanFailure = MdpDFPScanTest;
using MdpDFPScanAttitude = MdpDFPScanTest;

TEST_F(MdpDFPScanInit, KeepsTheMapsSamplesAfterTheEndOfAScan)
{
    EXPECT_FALSE(rx.map->getKeepScanDataAfterEndOfScan());
    rx.processor();
    EXPECT_TRUE(rx.map->getKeepScanDataAfterEndOfScan());
}

TEST_F(MdpDFPScanInit, ObservesTheThreeRangeMapsOnly)
{
    rx.processor();
    EXPECT_EQ(rx.localSuppress->ObserverCount(), 1U);
    EXPECT_EQ(rx.globalSuppress->ObserverCount(), 1U);
    EXPECT_EQ(rx.blankingRanges->ObserverCount(), 1U);
    EXPECT_EQ(rx.status->ObserverCount(), 0U);
    EXPECT_EQ(rx.commands->ObserverCount(), 0U);
}

TEST_F(MdpDFPScanInit, WorksWithoutAnyValueButTheMode)
{
    for (const char* const name : {"/RX/KRT", "/RX/GPSCOMPASS", "/INTERFACES", "/FREQSTORE", "/RX/FREQUENCY",
                                   "/RX/POLARFREQUENCY", "/RX/DEMODUALTIONFREQUENCY"})
        rx.tree->Remove(QString::fromLatin1(name));
    rx.setFourChannels();
    rx.commands->SelectKey(28);
    DfTrace trace;
    trace.flags = dfflag::overflow | dfflag::blanking | dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("SignalOverflow", "SignalBlanking", "SignalInvalid"));
}

TEST_F(MdpDFPScanAccept, TracesATraceWithoutOptionalHeaderUnderMask0x20)
{
    rx.setFourChannels();
    DfTrace bare;
    bare.optHeaderSize = 0;
    rx.receive(bare);
    EXPECT_THAT(
        traces.take(),
        ElementsAre("Mass data contains no optional header. (devicecontrol/vk410protocol/mdpdfpscan:99)"));
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    rx.receive(bare);
    EXPECT_THAT(traces.take(), IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanAccept, TakesTheFiveModesOfDirectionFindingScansOnly)
{
    rx.setFourChannels();
    std::vector<int> taken;
    for (const int mode : {22, 23, 24, 25, 26, 27, 28, 29}) {
        rx.commands->SelectKey(mode);
        rx.receive({});
        if (!log.take().empty())
            taken.push_back(mode);
    }
    EXPECT_THAT(taken, ElementsAre(23, 24, 25, 26, 28));
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanAccept, SaysWhyItDropsATrace)
{
    rx.processor().SetMassDataObserver(&observer);
    rx.setFourChannels();
    DfTrace bare;
    bare.optHeaderSize = 0;
    rx.receive(bare);
    DfTrace unknownJob;
    unknownJob.jobId = 8;
    rx.receive(unknownJob);
    DfTrace normalForm;
    normalForm.tag = 501;
    rx.receive(normalForm);
    rx.commands->SelectKey(22);
    rx.receive({});
    EXPECT_THAT(observer.reasons,
                ElementsAre("no optional header", "no scan range has this job id", "not of the extended form",
                            "the receiver is in no mode of direction-finding scans"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanAccept, DropsEverythingWithoutAMode)
{
    rx.tree->Remove("/RX/DRVCOMMANDS");
    rx.setFourChannels();
    rx.receive({});
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanAccept, DropsEverythingUntilScanRangesArrive)
{
    rx.receive({});
    EXPECT_THAT(log.take(), IsEmpty());
    rx.setFourChannels();
    rx.receive({});
    EXPECT_EQ(rx.at(0).getAzimuth(), 9000);
}

TEST_F(MdpDFPScanHeader, IsReadInBothByteOrders)
{
    rx.setRanges({scanRange(0, 1'000'000, 100'000, static_cast<quint32>(-2))});
    for (const bool littleEndian : {false, true}) {
        DfTrace trace;
        trace.littleEndian = littleEndian;
        trace.startFrequency = 0x1122334455;
        trace.firstChannel = -3;
        trace.stepNumerator = 0x01020304;
        trace.stepDenominator = -4;
        trace.span = 0x0A0B0C0D;
        trace.stamp = 0x0102030405060708;
        trace.sweepTime = 0x1112131415161718;
        trace.jobId = -2;
        rx.receive(trace);
        ASSERT_FALSE(log.effects().empty());
        EXPECT_EQ(log.take().front(),
                  "receive plain from 73600911000 by -4227265 span 168496141 at 72623859790383 x4");
        EXPECT_EQ(rx.dfTimestamp->GetValue(), 72'623'859'790'383);
        EXPECT_EQ(rx.sweepTime->GetValue(), 1'230'066'625'199'609);
        EXPECT_THAT(*rx.receiver.fields[0], ElementsAre(900, 1800, 2700, 3599));
    }
}

TEST_F(MdpDFPScanHeader, ReadsWhatIsCutOffAsZero)
{
    rx.setRanges({scanRange(100'000'000, 100'075'000, 25'000, 0)});
    DfTrace trace;
    trace.jobId = 0;
    for (std::size_t size = 1; size <= wire::dfscan::size; ++size) {
        trace.optHeaderSize = size;
        log.clear();
        rx.receive(trace);
        EXPECT_EQ(rx.dfTimestamp->GetValue(), size < 68 ? 0 : 5000) << size;
        // Without a set bit 0 the trace is not valid.
        EXPECT_EQ(log.effects().front().rfind("receive", 0) == 0, size >= 52) << size;
    }
}

TEST_F(MdpDFPScanHeader, IgnoresWhatLiesBehindTheKnownFields)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.optHeaderSize = 90;
    rx.receive(trace);
    EXPECT_EQ(rx.at(3).getAzimuth(), 35'990);
}

TEST_F(MdpDFPScanTimes, AreRoundedAndTakenAsSigned)
{
    rx.setFourChannels();
    const auto stampOf = [this](qint64 deviceStamp) {
        DfTrace trace;
        trace.stamp = deviceStamp;
        rx.receive(trace);
        return rx.dfTimestamp->GetValue();
    };
    EXPECT_EQ(stampOf(1'499), 1);
    EXPECT_EQ(stampOf(1'500), 2);
    EXPECT_EQ(stampOf(-1'499), 0); // (-1499 + 500) / 1000, toward zero
    EXPECT_EQ(stampOf(-1'500), -1);
    EXPECT_EQ(stampOf(std::numeric_limits<qint64>::max()), 9'223'372'036'854'776);
    EXPECT_EQ(stampOf(std::numeric_limits<qint64>::min()), -9'223'372'036'854'775);
    EXPECT_EQ(rx.map->GetTimeStamp(), static_cast<quint64>(-9'223'372'036'854'775));
}

TEST_F(MdpDFPScanTimes, TruncateTheSweepTime)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.sweepTime = -1'999;
    rx.receive(trace);
    EXPECT_EQ(rx.sweepTime->GetValue(), -1);
}

TEST_F(MdpDFPScanTimes, MeasureTheAveragingTimeFromTheBlockBehindAnEndOfSweepToTheNextEnd)
{
    rx.setFourChannels();
    const auto averagingTimeAt = [this](qint64 stamp, std::uint32_t flags) {
        DfTrace trace;
        trace.stamp = stamp * 1000;
        trace.flags = flags;
        trace.averagingTimeOffset = 7;
        rx.receive(trace);
        return rx.averagingTime->GetValue();
    };
    EXPECT_EQ(averagingTimeAt(100, dfflag::endOfSweep), 0); // no start is known yet
    EXPECT_EQ(averagingTimeAt(200, 0), 0);
    EXPECT_EQ(averagingTimeAt(250, 0), 0);
    EXPECT_EQ(averagingTimeAt(300, dfflag::endOfSweep), 107);
    EXPECT_EQ(averagingTimeAt(400, dfflag::endOfSweep), 7); // a sweep of one block begins and ends with it
}

TEST_F(MdpDFPScanTimes, MeasuresTheAveragingTimeIn32BitsWithoutSign)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::endOfSweep;
    rx.receive(trace);
    trace.averagingTimeOffset = -1;
    rx.receive(trace);
    EXPECT_EQ(rx.averagingTime->GetValue(), 0xFFFFFFFF);
}

TEST_F(MdpDFPScanTimes, MarkTheEndOfAScanWithTheOffsetAdded)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::endOfSweep;
    trace.averagingTimeOffset = -30;
    rx.receive(trace);
    EXPECT_EQ(rx.map->GetEndOfScanTimeStamp(), 4'970U);
    EXPECT_EQ(rx.map->GetScanCount(), 1U);
}

TEST_F(MdpDFPScanTimes, WrapWhereTheOffsetLeadsBelowZero)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.stamp = 0;
    trace.flags = dfflag::endOfSweep;
    trace.averagingTimeOffset = std::numeric_limits<std::int32_t>::min();
    rx.receive(trace);
    EXPECT_EQ(rx.map->GetEndOfScanTimeStamp(), 0xFFFFFFFF80000000U);
}

TEST_F(MdpDFPScanTest, CollectsTheDfMethodsOfASweepInTheOrderOfTheirAppearance)
{
    rx.setFourChannels();
    rx.watch(rx.altUsed);
    DfTrace trace;
    for (const unsigned method : {5U, 0U, 5U, 7U}) {
        trace.flags = dfflag::method(method);
        rx.receive(trace);
    }
    EXPECT_THAT(rx.altUsed->GetList(), IsEmpty());
    trace.flags = dfflag::method(1) | dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(rx.altUsed->GetList(), ElementsAre(5, 0, 7, 1));
    trace.flags = dfflag::method(2) | dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(rx.altUsed->GetList(), ElementsAre(2));
}

TEST_F(MdpDFPScanTest, TellsWatsonWattInEveryModeButOnlyFromValidTraces)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::method(1);
    rx.receive(trace);
    EXPECT_FALSE(rx.watsonWatt->GetValue());
    for (const int mode : {23, 24, 25, 26, 28}) {
        rx.commands->SelectKey(mode);
        trace.flags = dfflag::valid | dfflag::method(1);
        rx.receive(trace);
        EXPECT_TRUE(rx.watsonWatt->GetValue());
        trace.flags = dfflag::valid | dfflag::method(2);
        rx.receive(trace);
        EXPECT_FALSE(rx.watsonWatt->GetValue());
    }
}

TEST_F(MdpDFPScanFrequencies, FollowTheTraceInSearchMode)
{
    rx.setFourChannels();
    rx.commands->SelectKey(28);
    DfTrace trace;
    trace.firstChannel = 2;
    trace.stepNumerator = 12'500;
    trace.stepDenominator = 2;
    rx.receive(trace);
    EXPECT_EQ(rx.polarFrequency->GetValue(), 100'012'500.0);
    EXPECT_EQ(rx.frequency->GetValue(), 0.0);
}

TEST_F(MdpDFPScanFrequencies, AreTakenFromThePolarFrequencyWithBit25AndTheTraceEndsThere)
{
    rx.setFourChannels();
    rx.commands->SelectKey(28);
    rx.polarFrequency->SetValue(433e6);
    watchAll();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::polar | dfflag::overflow | dfflag::blanking | dfflag::endOfSweep |
                  dfflag::method(1);
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("DFALTUSED 7", "DFTIMESTAMP 5000", "FREQUENCY 433000000",
                                        "DEMODUALTIONFREQUENCY 433000000", "DFALTWATSONWATT true",
                                        "receive plain from 100000000 by 25000 span 75000 at 5000 x4"));
}

TEST_F(MdpDFPScanFrequencies, EndAlsoAnInvalidTraceThereWithBit25)
{
    rx.setFourChannels({{100, 200}});
    rx.commands->SelectKey(28);
    DfTrace trace;
    trace.flags = dfflag::polar;
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("SignalAzimuthBlanking"));
}

TEST_F(MdpDFPScanFrequencies, StayInOtherModesWhateverBit25Says)
{
    rx.setFourChannels();
    rx.polarFrequency->SetValue(433e6);
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::polar;
    rx.receive(trace);
    EXPECT_EQ(rx.polarFrequency->GetValue(), 433e6);
    EXPECT_EQ(rx.frequency->GetValue(), 0.0);
    EXPECT_EQ(rx.at(0).getAzimuth(), 9000);
}

TEST_F(MdpDFPScanFrequencies, StayWhenTheStepIsNoNumber)
{
    rx.setFourChannels();
    rx.commands->SelectKey(28);
    rx.polarFrequency->SetValue(433e6);
    DfTrace trace;
    trace.stepNumerator = 0;
    trace.stepDenominator = 0;
    rx.receive(trace);
    EXPECT_EQ(rx.polarFrequency->GetValue(), 433e6);
}

TEST_F(MdpDFPScanOrder, IsStatusThenReceiverThenMapThenSignalsThenNotification)
{
    rx.usePitchRoll->SetValue(true);
    rx.roll->SetValue(11);
    rx.blankingRanges->SetRange(3, 100'025'000, 100'025'000);
    rx.setFourChannels({{0, 100}});
    rx.blankingRanges->SetRange(3, 100'025'000, 100'030'000);
    rx.commands->SelectKey(28);
    watchAll();
    rx.watch(rx.status);
    log.clear();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::blanking | dfflag::endOfSweep | dfflag::method(1);
    trace.sweepTime = 2'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("DFALTUSED 7", "DFTIMESTAMP 5000", "SWEEPTIME 2", "SignalAzimuthBlanking",
                            "POLARFREQUENCY 100000000", "DFALTWATSONWATT true",
                            "receive plain from 100000000 by 25000 span 75000 at 5000 x4",
                            "SignalRollPitchBlanking", "SignalFrequencyBlanking", "List 7",
                            "map SetTimeStamp 5000", "map SetChannelValues 0+4", "SignalBlanking",
                            "map HasChanged 10", "map SetEndOfScan 5000"));
}

TEST_F(MdpDFPScanOrder, OfAnInvalidOverflownBlockLeavesTheReceiverOut)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::overflow;
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4", "SignalOverflow",
                                        "SignalInvalid", "map HasChanged 10"));
    EXPECT_EQ(rx.at(0).getAzimuth(), 9000);
}

TEST_F(MdpDFPScanOrder, OfABlockWithoutChannelsIsTheSame)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.azimuth.clear();
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("receive plain from 100000000 by 25000 span 75000 at 5000 x0",
                            "map SetTimeStamp 5000", "map SetChannelValues 0+0 null", "map HasChanged 10"));
}

TEST_F(MdpDFPScanGrid, IsLaidOutFromTheScanRangesInTheirOrder)
{
    rx.processor().SlotNewOrModifiedScanRanges({scanRange(100'000'000, 100'100'000, 25'000, 7), nullptr,
                                                scanRange(200'000'000, 200'050'000, 12'500, 8)});
    EXPECT_THAT(log.take(), ElementsAre("map SetChannelRangeDefinition 10 10", "map HasChanged 10"));
    const auto& ranges = rx.map->GetChannelRangeDefinition().GetRanges();
    ASSERT_EQ(ranges.size(), 2U);
    EXPECT_EQ(ranges[0], (values::ChannelRange{0, 5, 100e6, 25e3, ""}));
    EXPECT_EQ(ranges[1], (values::ChannelRange{5, 5, 200e6, 12.5e3, ""}));
}

TEST_F(MdpDFPScanGrid, GivesARangeWithoutChannelsToNumbersThatAreNoCount)
{
    struct Case {
        const char* name;
        std::shared_ptr<ScanRange> range;
        bool known;
    };
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const std::vector<Case> cases{
        {"StepZero", scanRange(100, 200, 0.0, 1), false},
        {"StepZeroAndNoExtent", scanRange(100, 100, 0.0, 1), false},
        {"StepNotANumber", scanRange(100, 200, std::nan(""), 1), false},
        {"StepInfinite", scanRange(100, 200, infinity, 1), true}, // one channel
        {"StepNegative", scanRange(100, 200, -10.0, 1), false},
        {"StopBelowStart", scanRange(200, 100, 10.0, 1), false},
        {"JustBelowOneChannel", scanRange(200, 190, 10.0, 1), true},
        {"Everything", scanRange(0, std::numeric_limits<quint64>::max(), 1.0, 1), false},
        {"OneMoreThanFits", scanRange(0, 0x7FFFFFFE, 1.0, 1), false},
    };
    for (const Case& c : cases) {
        // Four channels in front, so that the last case is one too many behind them.
        rx.setRanges({scanRange(100'000'000, 100'075'000, 25'000, 7), c.range,
                      scanRange(300'000'000, 300'025'000, 25'000, 9)});
        EXPECT_EQ(rx.map->GetChannelRangeDefinition().GetRanges().size(), 3U) << c.name;
        DfTrace trace;
        trace.jobId = 1;
        rx.receive(trace);
        EXPECT_EQ(!log.take().empty(), c.known) << c.name;
        traces.take();
    }
}

TEST_F(MdpDFPScanGrid, KnowsAJobOfARangeWithoutChannels)
{
    rx.setRanges({scanRange(200, 190, 10.0, 1)}); // 0.5 of a channel
    DfTrace trace;
    trace.jobId = 1;
    rx.receive(trace);
    // There is no frequency to write at: the map refuses.
    EXPECT_THAT(log.take(), ElementsAre("receive plain from 100000000 by 25000 span 75000 at 5000 x4",
                                        "map SetTimeStamp 5000"));
    EXPECT_EQ(traces.take().size(), 1U);
}

TEST_F(MdpDFPScanGrid, TakesTheLastOffsetAndTheFirstRangeOfAJobThatComesTwice)
{
    rx.setRanges({scanRange(100'000'000, 100'075'000, 25'000, 7, {{10, 20}}),
                  scanRange(200'000'000, 200'075'000, 25'000, 7, {{30, 40}})});
    rx.receive({});
    EXPECT_EQ(rx.map->FindChannelValue(4)->getAzimuth(), 9000);
    EXPECT_EQ(rx.receiver.range.startFrequency, 100'000'000U);
}

TEST_F(MdpDFPScanGrid, ReplacesTheFormerJobs)
{
    rx.setFourChannels();
    rx.setRanges({scanRange(100'000'000, 100'075'000, 25'000, 8)});
    rx.receive({});
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanGrid, ThatTheMapRefusesIsTracedAndLeavesNoJobKnown)
{
    rx.setFourChannels();
    rx.map->SetMemoryLimit(1'000);
    rx.setRanges({scanRange(100'000'000, 200'000'000, 25'000, 7)});
    const auto lines = traces.take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].rfind("An error has occurred while trying to set the scan ranges: ", 0), 0U);
    rx.receive({});
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanPosition, IsTheJobsFirstChannelPlusTheTraces)
{
    rx.setRanges(
        {scanRange(100'000'000, 100'100'000, 25'000, 6), scanRange(200'000'000, 200'100'000, 25'000, 7)});
    DfTrace trace;
    trace.startFrequency = 200'000'000;
    trace.firstChannel = 1;
    rx.receive(trace);
    EXPECT_EQ(rx.map->FindChannelValue(5)->getAzimuth(), 0);
    EXPECT_EQ(rx.map->FindChannelValue(6)->getAzimuth(), 9000);
    EXPECT_EQ(rx.map->FindChannelValue(9)->getAzimuth(), 35'990);
}

TEST_F(MdpDFPScanPosition, MovesUpWithAStartFrequencyAboveThatOfTheRangeOnly)
{
    struct Case {
        qint64 start;
        qint32 firstChannel;
        const char* expected;
    };
    rx.setRanges({scanRange(100'000'000, 101'000'000, 25'000, 7)});
    for (const Case& c : std::vector<Case>{{100'050'000, 0, "map SetChannelValues 2+4"},
                                           {100'050'000, 3, "map SetChannelValues 5+4"},
                                           {100'012'499, 0, "map SetChannelValues 0+4"},
                                           {100'012'500, 0, "map SetChannelValues 1+4"},
                                           {99'000'000, 1, "map SetChannelValues 1+4"},
                                           {-1, 1, "map SetChannelValues 1+4"},
                                           {100'050'000, -1, "map SetChannelValues 1+4"},
                                           {100'000'000, -2, "map SetChannelValues -2+4"}}) {
        DfTrace trace;
        trace.startFrequency = c.start;
        trace.firstChannel = c.firstChannel;
        rx.receive(trace);
        EXPECT_THAT(log.take(), testing::Contains(c.expected)) << c.start << " " << c.firstChannel;
    }
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanPosition, LeavesTheStoreOutAndNothingElseWhereNumbersGiveNone)
{
    struct Case {
        const char* name;
        qint64 start;
        qint32 numerator;
        qint32 denominator;
    };
    rx.setRanges({scanRange(0, 75'000, 25'000, 7)});
    for (const Case& c : std::vector<Case>{
             {"StepZero", 50'000, 0, 1},
             {"NoNumber", 1, 0, 0},
             {"ProductBeyond64Bits", std::numeric_limits<qint64>::max(), 1, 2},
             {"ChannelBeyond64Bits", std::numeric_limits<qint64>::max(), 1, 1},
         }) {
        DfTrace trace;
        trace.startFrequency = c.start;
        trace.stepNumerator = c.numerator;
        trace.stepDenominator = c.denominator;
        trace.flags = dfflag::overflow | dfflag::endOfSweep;
        rx.receive(trace);
        EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "SignalOverflow", "SignalInvalid",
                                            "map HasChanged 10", "map SetEndOfScan 5000"))
            << c.name;
    }
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanFailure, OfTheStoreIsTracedAndEndsTheAttribute)
{
    rx.setFourChannels();
    rx.map->failing = {"SetChannelValues"};
    DfTrace trace;
    trace.flags = dfflag::overflow | dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4"));
    EXPECT_THAT(traces.take(),
                ElementsAre("An error has occurred while trying to set dfpan data to the valuemap: "
                            "SetChannelValues failed (devicecontrol/vk410protocol/mdpdfpscan:486)"));
}

TEST_F(MdpDFPScanFailure, OfEveryMapCallIsTracedUnderMask0x20Only)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::endOfSweep;
    for (const char* const call : {"SetTimeStamp", "SetChannelValues", "HasChanged", "SetEndOfScan"}) {
        rx.map->failing = {call};
        ErrorHandler::Instance()->SetTraceMask(0x20);
        rx.receive(trace);
        EXPECT_EQ(traces.take().size(), 1U) << call;
        ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
        rx.receive(trace);
        EXPECT_THAT(traces.take(), IsEmpty()) << call;
    }
}

TEST_F(MdpDFPScanFailure, OutsideTheGridIsTraced)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.firstChannel = 4;
    rx.receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("receive plain from 100100000 by 25000 span 75000 at 5000 x4",
                                        "map SetTimeStamp 5000", "map SetChannelValues 4+4"));
    EXPECT_EQ(traces.take().size(), 1U);
}

TEST_F(MdpDFPScanAttitude, BlanksBeyondAThresholdOfPitchOrRollAndNotAtIt)
{
    struct Case {
        double pitch;
        double roll;
        bool blanked;
    };
    rx.usePitchRoll->SetValue(true);
    rx.setFourChannels();
    for (const Case& c : std::vector<Case>{{20, 10, false},
                                           {-20, -10, false},
                                           {20.001, 0, true},
                                           {-20.001, 0, true},
                                           {0, 10.001, true},
                                           {0, -10.001, true}}) {
        rx.pitch->SetValue(c.pitch);
        rx.roll->SetValue(c.roll);
        log.clear();
        rx.receive({});
        EXPECT_EQ(rx.validities(), c.blanked ? "2222" : "1111") << c.pitch << " " << c.roll;
        EXPECT_EQ(testing::Value(log.take(), testing::Contains("SignalRollPitchBlanking")), c.blanked);
    }
    rx.pitchThreshold->SetValue(-20);
    rx.pitch->SetValue(20);
    rx.roll->SetValue(0);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
    rx.pitchThreshold->SetValue(std::numeric_limits<int>::min());
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanAttitude, IsAskedForOnceAtInit)
{
    rx.setFourChannels();
    rx.usePitchRoll->SetValue(true);
    rx.roll->SetValue(90);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanAttitude, ComesFromTheCompassOfTheReceiverNotOfItsControl)
{
    rx.path = QStringLiteral("/RX/KRTCTL/A/KRTCTL");
    const QString path = rx.path;
    rx.tree->Create<values::Value<bool>>(path + "/GPSCOMPASS", "UsePitchRollBlanking", true);
    rx.tree->Create<values::ValueNumeric<int>>(path + "/GPSCOMPASS", "RollThreshold", 5);
    rx.tree->Create<values::ValueNumeric<double>>("/RX/A/GPSCOMPASS/POSITION", "ROLL", 6.0);
    rx.tree->Add(path, rx.tree->Create<values::ValueSelection>(
                           "/X", "DRVCOMMANDS", std::vector<values::ValueSelection::Entry>{{23, "DF"}}));
    rx.setFourChannels();
    rx.receive({});
    EXPECT_THAT(log.take(), testing::Contains("SignalRollPitchBlanking"));
}

TEST_F(MdpDFPScanAttitude, WithoutAThresholdBlanksNothing)
{
    rx.usePitchRoll->SetValue(true);
    rx.tree->Remove("/RX/GPSCOMPASS/PitchThreshold");
    rx.tree->Remove("/RX/GPSCOMPASS/POSITION/ROLL");
    rx.setFourChannels();
    rx.pitch->SetValue(90);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanAttitude, DoesNotMakeAnOverflowUsable)
{
    rx.usePitchRoll->SetValue(true);
    rx.setFourChannels();
    rx.roll->SetValue(90);
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::overflow;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "0000");
}

TEST_F(MdpDFPScanTest, RunsABlockThatArrivesInsideAnother)
{
    rx.setFourChannels();
    DfTrace inner;
    inner.azimuth = {1, 2};
    inner.firstChannel = 2;
    bool once = true;
    QObject::connect(&rx.processor(), &MdpDFPScan::SignalFrequencyBlanking, [&] {
        if (std::exchange(once, false))
            rx.receive(inner);
    });
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    DfTrace outer;
    outer.flags = dfflag::valid | dfflag::blanking;
    outer.azimuth = {900, 1800};
    rx.receive(outer);
    EXPECT_FALSE(once);
    EXPECT_EQ(rx.at(0).getAzimuth(), 9000);
    EXPECT_EQ(rx.at(1).getAzimuth(), 18'000);
    EXPECT_EQ(rx.at(2).getAzimuth(), 10);
    EXPECT_EQ(rx.at(3).getAzimuth(), 20);
}

} // namespace
