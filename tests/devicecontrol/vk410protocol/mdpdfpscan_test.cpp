// SPDX-License-Identifier: MIT
#include "support/dfscan_receiver.h"
#include "support/not_accepted_reasons.h"
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

class MdpDFPScanTest : public testing::Test {
protected:
    EffectLog log;
    TraceCapture traces;
    support::DfReceiver rx{log};
    support::NotAcceptedReasons observer;

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
using MdpDFPScanOrder = MdpDFPScanTest;
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

TEST_F(MdpDFPScanInit, SkipsValuesOfAnotherType)
{
    const QString text = QStringLiteral("text");
    for (const char* const name :
         {"FREQUENCY", "POLARFREQUENCY", "DEMODUALTIONFREQUENCY", "KRT/DFTIMESTAMP", "KRT/SWEEPTIME",
          "KRT/SPECTRUMAVERAGINGTIME", "KRT/DFALTUSED", "KRT/DFALTWATSONWATT", "KRT/QUALITYTHRESHOLD",
          "KRT/RXBEARINGMAPPING", "GPSCOMPASS/UsePitchRollBlanking"}) {
        const QString path = QStringLiteral("/RX/") + QLatin1String(name);
        rx.tree->Remove(path);
        const auto slash = path.lastIndexOf('/');
        rx.tree->Create<values::Value<QString>>(path.left(slash), path.mid(slash + 1), text);
    }
    rx.setFourChannels();
    rx.commands->SelectKey(28);
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::overflow | dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("receive plain from 100000000 by 25000 span 75000 at 5000 x4", "SignalOverflow"));
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

TEST_F(MdpDFPScanAccept, KeepsNothingOfATraceThatItDrops)
{
    rx.setFourChannels({{100, 200}});
    watchAll();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::method(3) | dfflag::endOfSweep;
    trace.sweepTime = 9'000;
    trace.jobId = 8;
    rx.receive(trace); // the job is not known
    trace.jobId = 7;
    rx.commands->SelectKey(27);
    rx.receive(trace);
    EXPECT_THAT(log.take(), IsEmpty());
    rx.commands->SelectKey(23);
    trace.flags = dfflag::endOfSweep;
    rx.receive(trace);
    EXPECT_THAT(rx.altUsed->GetList(), ElementsAre(0));
    EXPECT_EQ(rx.averagingTime->GetValue(), 0);
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

TEST_F(MdpDFPScanTimes, AndMethodsOfASweepOutliveNewScanRanges)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::endOfSweep;
    rx.receive(trace);
    trace.flags = dfflag::method(4);
    trace.stamp = 6'000'000;
    rx.receive(trace);
    rx.setFourChannels();
    trace.flags = dfflag::method(2) | dfflag::endOfSweep;
    trace.stamp = 6'500'000;
    rx.receive(trace);
    EXPECT_THAT(rx.altUsed->GetList(), ElementsAre(4, 2));
    EXPECT_EQ(rx.averagingTime->GetValue(), 500);
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
