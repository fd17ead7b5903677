// SPDX-License-Identifier: MIT
// What the IF panorama processor does with the receiver's values: binding, scans, replay, bearing map.
#include "nqbase/nqexception.h"
#include "support/ifpan_receiver.h"
#include "support/listener.h"
#include "support/trace_capture.h"
#include <functional>
#include <gmock/gmock.h>

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

class MdpIfpanValues : public testing::Test {
protected:
    static IfpanTrace tunedTo(std::uint64_t centre)
    {
        IfpanTrace trace;
        trace.centre = centre;
        return trace;
    }
    EffectLog log;
    TraceCapture traces;
    IfpanReceiver rx{log};
};

using MdpIfpanInit = MdpIfpanValues;
using MdpIfpanScan = MdpIfpanValues;
using MdpIfpanReplay = MdpIfpanValues;

TEST_F(MdpIfpanInit, ObservesItsSixValuesAndNoOthers)
{
    rx.processor();
    for (const Observable* const value :
         std::initializer_list<const Observable*>{rx.commands.get(), rx.searchScan.get(), rx.mScan.get(),
                                                  rx.wheel.get(), rx.dfEnabled.get(), rx.replay.get()})
        EXPECT_EQ(value->ObserverCount(), 1U);
    for (const Observable* const value : std::initializer_list<const Observable*>{
             rx.frequency.get(), rx.span.get(), rx.step.get(), rx.afc.get(), rx.follow.get(),
             rx.endOfScan.get(), rx.enabled.get()})
        EXPECT_EQ(value->ObserverCount(), 0U);
}

TEST_F(MdpIfpanInit, SetsTheTuningWheelToNotInUse)
{
    rx.wheel->SetValue(true);
    rx.processor();
    EXPECT_FALSE(rx.wheel->GetValue());
}

TEST_F(MdpIfpanInit, MayComeAgainForAnotherReceiverAndLetsTheOldOneGo)
{
    rx.processor().Init("/OTHER", "/NOWHERE");
    EXPECT_EQ(rx.commands->ObserverCount(), 0U);
    EXPECT_EQ(rx.replay->ObserverCount(), 0U);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpIfpanInit, WithOnlyAPathStoresItAndBindsDfEnabledWithTheNextTrace)
{
    MdpIfpan processor{nullptr, nullptr};
    static_cast<IMassDataProcessor&>(processor).Init("/RX");
    EXPECT_EQ(rx.commands->ObserverCount(), 0U);
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(IfpanTrace{}.bytes())});
    EXPECT_EQ(rx.dfEnabled->ObserverCount(), 1U);
}

TEST_F(MdpIfpanInit, ReleasesItsRegistrationsWhenItDies)
{
    {
        MdpIfpan processor{nullptr, nullptr};
        processor.Init("/RX", "/FOLLOW");
        EXPECT_EQ(rx.commands->ObserverCount(), 1U);
    }
    EXPECT_EQ(rx.commands->ObserverCount(), 0U);
}

TEST_F(MdpIfpanScan, ASearchHoldsThenRetunesWhenTheTraceLiesElsewhere)
{
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    rx.watch(rx.searchScan);
    rx.watch(rx.frequency);
    rx.receive(tunedTo(100'000'000));
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("SEARCHSCANMODE"))));
    rx.receive(tunedTo(100'000'001));
    const auto effects = log.take();
    EXPECT_EQ(effects[0], "SEARCHSCANMODE HOLD");
    EXPECT_EQ(effects[1], "FREQUENCY 100000001");
}

TEST_F(MdpIfpanScan, ASearchFollowsTheSpanInsteadWhereConfigured)
{
    rx.answers.spanFollowed = true;
    rx.processor();
    rx.commands->SelectKey(28);
    rx.searchScan->SelectText("RUN");
    IfpanTrace trace = tunedTo(98'000'000);
    trace.span = 900'000;
    rx.receive(trace);
    EXPECT_EQ(rx.span->GetValue(), 1e6);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    EXPECT_EQ(rx.searchScan->GetCurrentKeyText(), "RUN");
}

TEST_F(MdpIfpanScan, ASearchWithoutAHoldEntryStillRetunes)
{
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    rx.searchScan->SetEntries({{0, "IDLE"}, {1, "RUN"}});
    rx.receive(tunedTo(99'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 99e6);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpIfpanScan, BeginsWithSearchScanModeUnderCommands5And28Only)
{
    rx.processor();
    for (const double command : {0.0, 3.0, 6.0, 7.0}) {
        rx.searchScan->SelectText("IDLE");
        rx.commands->SelectKey(command);
        rx.searchScan->SelectText("RUN");
        rx.receive(tunedTo(90'000'000));
        EXPECT_EQ(rx.frequency->GetValue(), 100e6) << command;
    }
}

TEST_F(MdpIfpanScan, EndsWithIdleOrAnotherCommand)
{
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    rx.searchScan->SelectText("IDLE");
    rx.receive(tunedTo(90'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    rx.searchScan->SelectText("RUN");
    rx.commands->SelectKey(28); // still a search
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 91e6);
    rx.commands->SelectKey(3);
    rx.receive(tunedTo(92'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 91e6);
}

TEST_F(MdpIfpanScan, AMemoryScanHoldsThenRetunes)
{
    rx.processor();
    rx.mScan->SelectText("HOLD"); // before the command: not active
    rx.receive(tunedTo(90'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    rx.commands->SelectKey(7);
    rx.mScan->SelectText("RUN");
    rx.watch(rx.mScan);
    rx.watch(rx.frequency);
    log.clear();
    rx.receive(tunedTo(91'000'000));
    const auto effects = log.take();
    EXPECT_EQ(effects[0], "MSCANMODE HOLD");
    EXPECT_EQ(effects[1], "FREQUENCY 91000000");
    rx.mScan->SelectText("IDLE");
    rx.receive(tunedTo(92'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 91e6);
}

TEST_F(MdpIfpanScan, AMemoryScanEndsWithAnotherCommand)
{
    rx.processor();
    rx.commands->SelectKey(7);
    rx.mScan->SelectText("RUN");
    rx.commands->SelectKey(6);
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
}

TEST_F(MdpIfpanScan, ASearchGoesBeforeAMemoryScan)
{
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    rx.mScan->SelectText("RUN"); // not under command 7: not active
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.searchScan->GetCurrentKeyText(), "HOLD");
    EXPECT_EQ(rx.mScan->GetCurrentKeyText(), "RUN");
}

TEST_F(MdpIfpanScan, IgnoresOtherChangeCodes)
{
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN", &rx.processor()); // not told
    rx.searchScan->HasChanged(changecode::entriesChanged);
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    rx.searchScan->HasChanged(changecode::valueChanged);
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.frequency->GetValue(), 91e6);
}

TEST_F(MdpIfpanReplay, BringsTheSettingsBackWhenItStopsUnderStop)
{
    rx.processor();
    rx.span->SelectKey(50'000);
    rx.step->SelectKey(12'500);
    rx.replay->SelectKey(3);
    rx.frequency->SetValue(5e6);
    rx.span->SelectKey(1e6);
    rx.step->SelectKey(250);
    rx.watch(rx.frequency);
    rx.watch(rx.span);
    rx.watch(rx.step);
    for (const double stop : {0.0, 1.0}) { // "STOP" and "stop"
        rx.commands->SelectKey(stop);
        rx.replay->SelectKey(3, &rx.processor()); // saved only once
        rx.replay->SelectKey(0);
        EXPECT_THAT(log.take(), ElementsAre("FREQUENCY 100000000", "IFPANSPAN 50 kHz", "IFSTEP 12.5 kHz"));
        rx.frequency->SetValue(5e6);
        rx.span->SelectKey(1e6);
        rx.step->SelectKey(250);
        log.clear();
    }
}

TEST_F(MdpIfpanReplay, RestoresOnlyWhatDiffers)
{
    rx.processor();
    rx.replay->SelectKey(3);
    rx.span->SelectKey(1e6);
    rx.watch(rx.frequency);
    rx.watch(rx.span);
    rx.watch(rx.step);
    rx.replay->SelectKey(0);
    EXPECT_THAT(log.take(), ElementsAre("IFPANSPAN 1 kHz"));
}

TEST_F(MdpIfpanReplay, RestoresNothingUnderAnotherCommandOrWithoutASavedState)
{
    rx.processor();
    rx.replay->SelectKey(1);
    rx.replay->SelectKey(0);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    rx.replay->SelectKey(3);
    rx.frequency->SetValue(5e6);
    rx.commands->SelectKey(3);
    rx.replay->SelectKey(0);
    EXPECT_EQ(rx.frequency->GetValue(), 5e6);
}

TEST_F(MdpIfpanReplay, SavesAndRestoresTheSettingsThatThereAre)
{
    for (const QString missing : {"IFPANSPAN", "IFSTEP", "FREQUENCY"}) {
        SCOPED_TRACE(missing.toStdString());
        IfpanReceiver own{log};
        own.tree->Remove("/RX/" + missing);
        own.processor();
        own.span->SelectKey(50'000);
        own.step->SelectKey(12'500);
        own.replay->SelectKey(3);
        own.span->SelectKey(1e6);
        own.step->SelectKey(250);
        own.frequency->SetValue(5e6);
        own.replay->SelectKey(0);
        EXPECT_EQ(own.span->GetCurrentKey(), missing == "IFPANSPAN" ? 1e6 : 50'000);
        EXPECT_EQ(own.step->GetCurrentKey(), missing == "IFSTEP" ? 250 : 12'500);
        EXPECT_EQ(own.frequency->GetValue(), missing == "FREQUENCY" ? 5e6 : 100e6);
    }
}

TEST_F(MdpIfpanReplay, LooksTheCommandUpAfresh)
{
    rx.processor();
    rx.replay->SelectKey(3);
    rx.frequency->SetValue(5e6);
    rx.commands->SelectKey(3);
    rx.tree->Remove("/RX/DRVCOMMANDS");
    rx.tree->Create<ValueSelection>("/RX", "DRVCOMMANDS", std::vector<ValueSelection::Entry>{{0, "STOP"}});
    rx.replay->SelectKey(0);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
}

class MdpIfpanBearing : public MdpIfpanValues {
protected:
    std::shared_ptr<support::RecordingBearingMap> addMap(const char* group)
    {
        auto map = std::make_shared<support::RecordingBearingMap>(log, "bearings",
                                                                  QStringLiteral("RXBEARINGMAPPING"));
        rx.tree->Add(group, map);
        return map;
    }
    void SetUp() override
    {
        rx.answers.bearingMap = true;
        rx.commands->SelectText("WFFM");
    }
    std::vector<std::string> bearingEffects()
    {
        std::vector<std::string> found;
        for (const std::string& effect : log.take()) {
            if (effect.rfind("bearings", 0) == 0)
                found.push_back(effect);
        }
        return found;
    }
};

TEST_F(MdpIfpanBearing, TakesTenTimesTheLevelsInWffm)
{
    const auto map = addMap("/RX");
    IfpanTrace trace;
    trace.levels = {1, -2, 6554, 3276, 3277};
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(),
                ElementsAre("bearings SetChannelRangeDefinition 5 10", "bearings HasChanged 10",
                            "bearings SetTimeStamp 4711", "bearings SetChannelValues 0+5",
                            "bearings HasChanged 10", "bearings EndOfScan"));
    const auto values = map->GetValues();
    ASSERT_EQ(values.size(), 5U);
    EXPECT_EQ(values[0], (values::Bearing{0, 10, 0, 0, 0}));
    EXPECT_EQ(values[1], (values::Bearing{0, -20, 0, 0, 0}));
    EXPECT_EQ(values[2].level, 4); // 65540 modulo 65536
    EXPECT_EQ(values[3].level, 32760);
    EXPECT_EQ(values[4].level, -32766);
}

TEST_F(MdpIfpanBearing, ComesBeforeTheLevelsAndTheSignal)
{
    const auto map = addMap("/RX");
    rx.receive({});
    log.clear();
    rx.receive({});
    EXPECT_THAT(log.take(), ElementsAre("bearings SetTimeStamp 4711", "bearings SetChannelValues 0+5",
                                        "bearings HasChanged 10", "bearings EndOfScan",
                                        "levels SetTimeStamp 4711", "filler SetData 99999500..100000500 x5",
                                        "filler EndOfScan", HasSubstr("signal")));
}

TEST_F(MdpIfpanBearing, StaysAloneWithoutWffmOrWithDirectionFindingOn)
{
    const auto map = addMap("/RX");
    rx.dfEnabled->SelectText("ON");
    rx.receive({});
    rx.dfEnabled->SelectText("AUTO");
    rx.answers.dfForced = true;
    rx.receive({});
    rx.answers.dfForced = false;
    rx.commands->SelectText("FFM");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), IsEmpty());
    rx.commands->SelectText("WFFM");
    rx.dfEnabled->SelectText("OFF");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelValues 0+5"));
}

TEST_F(MdpIfpanBearing, HasTheUnwidenedCount)
{
    const auto map = addMap("/RX");
    IfpanTrace trace;
    trace.span = 50'000;
    trace.levels.assign(25, 1);
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelValues 0+25"));
    EXPECT_DOUBLE_EQ(map->GetChannelRangeDefinition().GetRanges().front().step, 50'000.0 / 24);
}

TEST_F(MdpIfpanBearing, KeepsItsGridWithinTheRelativeEpsilon)
{
    const auto map = addMap("/RX");
    IfpanTrace trace;
    trace.numerator = 250;
    trace.denominator = 1;
    rx.receive(trace);
    log.clear();
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Not(Contains(HasSubstr("SetChannelRangeDefinition"))));
    trace.numerator = 251;
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelRangeDefinition 5 10"));
    trace.centre += 1;
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelRangeDefinition 5 10"));
    trace.levels.resize(6);
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelRangeDefinition 6 10"));
}

TEST_F(MdpIfpanBearing, GetsItsGridAgainAfterDirectionFindingWasSwitchedOff)
{
    const auto map = addMap("/RX");
    rx.dfEnabled->SelectText("AUTO");
    rx.receive({});
    log.clear();
    rx.dfEnabled->SelectText("OFF");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelRangeDefinition 5 10"));
    rx.receive({});
    EXPECT_THAT(bearingEffects(), Not(Contains(HasSubstr("SetChannelRangeDefinition"))));
}

TEST_F(MdpIfpanBearing, ShrinkingAndGrowingTracesWriteExactlyTheirChannels)
{
    const auto map = addMap("/RX");
    for (const std::size_t count : {5U, 3U, 9U}) {
        IfpanTrace trace;
        trace.levels.assign(count, 2);
        rx.receive(trace);
        EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelValues 0+" + std::to_string(count)));
    }
}

TEST_F(MdpIfpanBearing, IsZeroWithoutLevels)
{
    const auto map = addMap("/RX");
    IfpanTrace trace;
    trace.selectors = 0;
    rx.receive(trace);
    EXPECT_EQ(map->GetValues()[0], (values::Bearing{0, 0, 0, 0, 0}));
}

TEST_F(MdpIfpanBearing, ReportsAFailedWriteThenNotifiesAndEndsTheScan)
{
    const auto map = addMap("/RX");
    map->failing = {"SetChannelValues"};
    rx.processor();
    TraceCapture capture{0x20};
    rx.receive({});
    EXPECT_THAT(bearingEffects(), Contains("bearings EndOfScan"));
    ASSERT_EQ(capture.records().size(), 1U);
    EXPECT_THAT(capture.records()[0].message.toStdString(),
                testing::MatchesRegex("an error has occured while trying to set dfpan data to the valuemap: "
                                      "SetChannelValues failed File: recording_map Line: [0-9]+"));
    EXPECT_EQ(capture.records()[0].file, "devicecontrol/vk410protocol/mdpifpan");
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    rx.receive({});
    EXPECT_EQ(capture.records().size(), 1U);
}

TEST_F(MdpIfpanBearing, LiesBelowKrtWhereConfiguredAndIsBoundLate)
{
    rx.answers.dfPath = true;
    rx.receive({}); // not there yet: nothing changes
    EXPECT_THAT(bearingEffects(), IsEmpty());
    const auto map = addMap("/RX/KRT");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), Contains("bearings SetChannelRangeDefinition 5 10"));
}

TEST_F(MdpIfpanBearing, IsNotBoundLateElsewhere)
{
    rx.receive({});
    const auto map = addMap("/RX");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), IsEmpty());
}

TEST_F(MdpIfpanBearing, IsNotBoundAtAllWithoutTheConfiguration)
{
    rx.answers.bearingMap = false;
    const auto map = addMap("/RX");
    rx.receive({});
    EXPECT_THAT(bearingEffects(), IsEmpty());
}

TEST_F(MdpIfpanBearing, HoldsTenScansWithoutHoldTimeForReadersOfTheReceiversOwnMap)
{
    const auto map = addMap("/RX");
    map->SetRealTimeBufferDepth(3);
    map->SetHoldTime(5);
    rx.processor();
    EXPECT_EQ(map->GetRealTimeBufferDepth(), 10U);
    EXPECT_EQ(map->GetHoldTime(), 0U);
}

TEST_F(MdpIfpanBearing, GivesAnotherMapItsGridWithTheNextTrace)
{
    const auto first = addMap("/RX");
    rx.receive({});
    rx.tree->Remove("/RX/RXBEARINGMAPPING");
    const auto second = addMap("/RX");
    rx.processor().Init("/RX", "/FOLLOW");
    log.clear();
    rx.receive({});
    EXPECT_EQ(second->GetChannelRangeDefinition().GetChannelCount(), 5U);
    EXPECT_EQ(second->GetValues()[0].level, 10);
}

TEST_F(MdpIfpanBearing, IsStampedByTheDeviceWhenAsked)
{
    rx.answers.deviceStamp = true;
    const auto map = addMap("/RX");
    IfpanTrace trace;
    trace.stamp = 9'999;
    rx.receive(trace);
    EXPECT_THAT(bearingEffects(), Contains("bearings SetTimeStamp 9"));
}

TEST_F(MdpIfpanBearing, SurvivesANewInitFromInsideItsNotifications)
{
    const auto map = addMap("/RX");
    support::Once mover{[this] { rx.processor().Init("/NOWHERE", "/NOWHERE"); }};
    rx.processor();
    map->AddObserver(&mover);
    rx.receive({}); // told about its grid
    EXPECT_THAT(bearingEffects(), Contains("bearings EndOfScan"));
    rx.processor().Init("/RX", "/FOLLOW");
    rx.receive({});
    map->AddObserver(&mover);
    rx.receive({}); // told about its contents
    EXPECT_THAT(bearingEffects(), Contains("bearings EndOfScan"));
}

TEST_F(MdpIfpanBearing, AGridThatTheMapRefusedIsTriedAgain)
{
    const auto map = addMap("/RX");
    map->SetMemoryLimit(10);
    EXPECT_THROW(rx.receive({}), NQException);
    map->SetMemoryLimit(values::MappingBase::defaultMemoryLimit);
    rx.receive({});
    EXPECT_EQ(map->GetChannelRangeDefinition().GetChannelCount(), 5U);
}

TEST_F(MdpIfpanScan, WithoutFrequencyNothingIsHeldBecauseNothingCanBeCompared)
{
    rx.tree->Remove("/RX/FREQUENCY");
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    rx.receive(tunedTo(91'000'000));
    EXPECT_EQ(rx.searchScan->GetCurrentKeyText(), "RUN");
}

TEST_F(MdpIfpanScan, IgnoresAChangeOfNothing)
{
    rx.tree->Remove("/RX/SEARCHSCANMODE");
    rx.processor().Update(nullptr, changecode::valueChanged);
    EXPECT_THAT(traces.take(), IsEmpty());
}

} // namespace
