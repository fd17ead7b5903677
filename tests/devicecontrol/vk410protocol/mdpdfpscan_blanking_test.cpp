// SPDX-License-Identifier: MIT
#include "support/dfscan_receiver.h"
#include "support/listener.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <limits>

using support::DfTrace;
using support::EffectLog;
using support::scanRange;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using values::BlankingRangeItem;
namespace dfflag = support::dfflag;

namespace {

class MdpDFPScanBlankingTest : public testing::Test {
protected:
    // Status of each blanking range, in words.
    [[nodiscard]] std::vector<std::string> status() const
    {
        std::vector<std::string> lines;
        for (const auto& [id, item] : rx.status->GetItems())
            lines.push_back(std::to_string(id) + ": " + item.ToText().toStdString());
        return lines;
    }
    static DfTrace blanked(qint64 stamp = 5'000, std::int32_t firstChannel = 0)
    {
        DfTrace trace;
        trace.flags = dfflag::valid | dfflag::blanking;
        trace.stamp = stamp * 1'000;
        trace.firstChannel = firstChannel;
        return trace;
    }

    EffectLog log;
    support::TraceCapture traces;
    support::DfReceiver rx{log};
};

using MdpDFPScanSuppressing = MdpDFPScanBlankingTest;
using MdpDFPScanBlanking = MdpDFPScanBlankingTest;
using MdpDFPScanBlankingStore = MdpDFPScanBlankingTest;
using MdpDFPScanBlankingStatus = MdpDFPScanBlankingTest;

TEST_F(MdpDFPScanSuppressing, HappensInEveryBlockAndSilently)
{
    rx.localSuppress->AddRange(100'025'000, 100'025'000);
    rx.globalSuppress->AddRange(100'070'000, 1e9);
    rx.setFourChannels();
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1212");
    EXPECT_THAT(log.take(), Not(Contains("SignalFrequencyBlanking")));
}

TEST_F(MdpDFPScanSuppressing, FollowsChangesOfBothKindsOfRange)
{
    rx.setFourChannels();
    rx.localSuppress->SetRange(1, 100'000'000, 100'000'000);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "2111");
    rx.globalSuppress->SetRange(1, 100'050'000, 100'050'000);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "2121");
    rx.localSuppress->RemoveRange(1);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1121");
    rx.globalSuppress->Clear();
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanSuppressing, IgnoresOtherChangeCodes)
{
    rx.setFourChannels();
    rx.receive({});
    rx.processor().Update(rx.localSuppress.get(), 10);
    rx.processor().Update(nullptr, 3);
    rx.processor().Update(rx.commands.get(), 3);
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanSuppressing, LeavesUnusableSamplesAsTheyAre)
{
    rx.localSuppress->AddRange(0, 1e9);
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::overflow;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "0000");
}

TEST_F(MdpDFPScanSuppressing, BlanksTheOverlapOfTwoJobsInBothAsSoonAsAnyRangeExists)
{
    rx.setRanges(
        {scanRange(100'000'000, 100'075'000, 25'000, 7), scanRange(100'050'000, 100'125'000, 25'000, 8)});
    DfTrace second;
    second.jobId = 8;
    second.startFrequency = 100'050'000;
    rx.receive({});
    rx.receive(second);
    EXPECT_EQ(rx.validities(), "11111111");
    rx.localSuppress->AddRange(9e9, 9e9);
    rx.receive({});
    rx.receive(second);
    EXPECT_EQ(rx.validities(), "11222211");
}

TEST_F(MdpDFPScanSuppressing, CountsChannelsFromTheHeadersFirstChannelAlsoANegativeOne)
{
    rx.localSuppress->AddRange(100'000'000, 100'025'000);
    rx.setFourChannels();
    DfTrace trace;
    trace.firstChannel = 1;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "0211");
    trace.firstChannel = -2;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "2211");
}

TEST_F(MdpDFPScanBlanking, MarksSamplesOfReportedBlocksOnlyAndSignalsOnce)
{
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.blankingRanges->SetRange(2, 100'050'000, 100'075'000);
    rx.setFourChannels();
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
    EXPECT_THAT(log.take(), Not(Contains("SignalFrequencyBlanking")));
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "2122");
    EXPECT_THAT(log.take(), Contains("SignalFrequencyBlanking").Times(1));
}

TEST_F(MdpDFPScanBlanking, DoesNotSignalWhenNoSampleIsInARange)
{
    rx.blankingRanges->SetRange(1, 100'100'000, 100'200'000);
    rx.setFourChannels();
    rx.receive(blanked());
    EXPECT_THAT(log.take(), Not(Contains("SignalFrequencyBlanking")));
}

TEST_F(MdpDFPScanBlanking, NeitherChangesNorCountsUnusableSamples)
{
    rx.blankingRanges->SetRange(1, 100'000'000, 100'075'000);
    rx.setFourChannels();
    DfTrace trace = blanked();
    trace.flags |= dfflag::overflow;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "0000");
    EXPECT_THAT(log.take(), Not(Contains("SignalFrequencyBlanking")));
}

TEST_F(MdpDFPScanBlanking, CountsSamplesThatASuppressRangeHasBlanked)
{
    rx.localSuppress->AddRange(0, 1e9);
    rx.blankingRanges->SetRange(1, 100'000'000, 100'075'000);
    rx.setFourChannels();
    rx.receive(blanked());
    EXPECT_THAT(log.take(), Contains("SignalFrequencyBlanking"));
}

TEST_F(MdpDFPScanBlanking, FollowsChangesOfTheStore)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "2111");
    rx.blankingRanges->SetRange(1, 100'025'000, 100'025'000);
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "1211");
    rx.blankingRanges->Clear();
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanBlanking, OfFrequenciesTruncatesThemToWholeHertz)
{
    // 99,999,999.9 is below the scan range when it is truncated, 100,000,000.9 is not.
    rx.blankingRanges->SetRange(1, -5.5, 99'999'999.9);
    rx.setFourChannels();
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "1111");
    rx.blankingRanges->SetRange(1, 1.0, 100'000'000.9);
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "2111");
}

TEST_F(MdpDFPScanBlankingStore, RangesGetAStatusWithTheFirstChangeAndNotBefore)
{
    rx.blankingRanges->SetRange(1, 100'000'000.7, 100'010'000.7);
    rx.setFourChannels();
    EXPECT_THAT(status(), IsEmpty());
    rx.blankingRanges->SetRange(2, 5, 6);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-100010000 Hz open @0", "2: 5-6 Hz open @0"));
}

TEST_F(MdpDFPScanBlankingStore, RangesWhoseStopIsBelowOneHertzAreSkipped)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 0, 0.9);
    EXPECT_THAT(status(), IsEmpty());
    rx.blankingRanges->SetRange(1, 0, 1);
    EXPECT_THAT(status(), ElementsAre("1: 0-1 Hz open @0"));
    rx.blankingRanges->SetRange(1, 0, 0.9); // its former status stays
    EXPECT_THAT(status(), ElementsAre("1: 0-1 Hz open @0"));
}

TEST_F(MdpDFPScanBlankingStore, RemovalsAndClearingReachTheList)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 1, 2);
    rx.blankingRanges->SetRange(2, 3, 4);
    rx.blankingRanges->RemoveRange(1);
    EXPECT_THAT(status(), ElementsAre("2: 3-4 Hz open @0"));
    rx.blankingRanges->Clear();
    EXPECT_THAT(status(), IsEmpty());
    rx.blankingRanges->SetRange(3, 100'000'000, 100'000'000); // jobs are found again after clearing
    rx.receive(blanked());
    EXPECT_THAT(status(), ElementsAre("3: 100000000-100000000 Hz blanked @5000"));
}

TEST_F(MdpDFPScanBlankingStore, ChangesOfARangeResetItsStatus)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.receive(blanked());
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'001);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-100000001 Hz open @0"));
}

TEST_F(MdpDFPScanBlankingStore, IsFollowedAtTwoChangeCodesOnly)
{
    rx.setFourChannels();
    // Whoever makes a change is not told about it: the processor seems to make these itself.
    rx.blankingRanges->SetRange(1, 1, 2, {}, &rx.processor());
    rx.processor().Update(rx.blankingRanges.get(), 10);
    EXPECT_THAT(status(), IsEmpty());
    rx.processor().Update(rx.blankingRanges.get(), 3);
    EXPECT_THAT(status(), ElementsAre("1: 1-2 Hz open @0"));
    rx.blankingRanges->SetRange(2, 3, 4, {}, &rx.processor());
    rx.processor().Update(rx.blankingRanges.get(), 7);
    EXPECT_EQ(status().size(), 2U);
}

TEST_F(MdpDFPScanBlankingStore, UnknownKindsAreTracedAndSkipped)
{
    rx.setFourChannels();
    rx.blankingRanges->AppendChange({4, 1});
    EXPECT_THAT(traces.take(), ElementsAre("MdpDFPScan::Update() -> JOBXMLMAP unhandeled change id 4 "
                                           "(devicecontrol/vk410protocol/mdpdfpscan:603)"));
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    rx.blankingRanges->AppendChange({0, 1});
    EXPECT_THAT(traces.take(), IsEmpty());
    rx.blankingRanges->SetRange(1, 1, 2);
    EXPECT_THAT(status(), ElementsAre("1: 1-2 Hz open @0"));
}

TEST_F(MdpDFPScanBlankingStore, AnAddedRangeThatIsGoneAgainIsSkipped)
{
    rx.setFourChannels();
    rx.blankingRanges->AppendChange({values::RangeChange::addedOrChanged, 12});
    EXPECT_THAT(status(), IsEmpty());
    rx.blankingRanges->AppendChange({values::RangeChange::removed, 0xFFFFFFFF});
    EXPECT_THAT(status(), IsEmpty());
}

TEST_F(MdpDFPScanBlankingStore, RebuildsTheListOnlyWhenTheLogHasForgottenChanges)
{
    rx.blankingRanges->SetChangeLogLength(2);
    for (unsigned id = 1; id <= 5; ++id)
        rx.blankingRanges->SetRange(id, 100'000'000, 100'000'000 + id);
    rx.status->SetItem(77, BlankingRangeItem{1, 2, 3, true});
    rx.processor();
    rx.setFourChannels();
    rx.blankingRanges->SetRange(6, 0, 0.5); // a stop of 0 is not skipped here
    EXPECT_EQ(status().size(), 6U);
    EXPECT_EQ(status()[0], "1: 100000000-100000001 Hz open @0");
    EXPECT_EQ(status()[5], "6: 0-0 Hz open @0");
    rx.blankingRanges->SetRange(6, 0, 7); // from here on the log is followed again
    EXPECT_EQ(status()[5], "6: 0-7 Hz open @0");
    // Nobody has looked at which job range 7 belongs to: its change was among the forgotten ones.
    rx.blankingRanges->SetChangeLogLength(0);
    rx.blankingRanges->SetRange(7, 100'000'000, 100'000'000);
    rx.blankingRanges->SetChangeLogLength(1);
    rx.blankingRanges->SetRange(6, 0, 8);
    EXPECT_EQ(status().size(), 7U);
    rx.receive(blanked());
    EXPECT_EQ(status()[6], "7: 100000000-100000000 Hz open @0");
    EXPECT_EQ(status()[4], "5: 100000000-100000005 Hz blanked @5000");
}

TEST_F(MdpDFPScanBlankingStore, WithAnEmptyLogIsNotFollowed)
{
    rx.setFourChannels();
    rx.blankingRanges->SetChangeLogLength(0);
    rx.blankingRanges->SetRange(1, 1, 2);
    EXPECT_THAT(status(), IsEmpty());
}

TEST_F(MdpDFPScanBlankingStore, MayChangeWhileItIsFollowed)
{
    rx.setFourChannels();
    support::Listener adder{log};
    adder.onUpdate = [this](Observable*) {
        if (rx.blankingRanges->GetCount() < 4)
            rx.blankingRanges->AddRange(10, 20);
    };
    rx.status->AddObserver(&adder);
    rx.blankingRanges->SetRange(1, 1, 2);
    EXPECT_THAT(status(), ElementsAre("1: 1-2 Hz open @0", "2: 10-20 Hz open @0", "3: 10-20 Hz open @0",
                                      "4: 10-20 Hz open @0"));
}

TEST_F(MdpDFPScanBlankingStatus, IsSetByABlockThatReportsBlankingAndOverlaps)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 99'000'000, 100'000'000);  // ends where the block begins
    rx.blankingRanges->SetRange(2, 100'075'000, 101'000'000); // begins where the block ends
    rx.blankingRanges->SetRange(3, 100'075'001, 101'000'000); // outside the job's scan range
    rx.receive({});
    EXPECT_THAT(status(), Not(Contains(testing::HasSubstr("blanked"))));
    rx.watch(rx.status);
    log.clear();
    rx.receive(blanked());
    EXPECT_THAT(status(),
                ElementsAre("1: 99000000-100000000 Hz blanked @5000",
                            "2: 100075000-101000000 Hz blanked @5000", "3: 100075001-101000000 Hz open @0"));
    EXPECT_THAT(log.take(), Contains("List 7").Times(2));
    rx.receive(blanked(6'000)); // what is set keeps its stamp
    EXPECT_EQ(status()[0], "1: 99000000-100000000 Hz blanked @5000");
    EXPECT_THAT(log.take(), Not(Contains("List 7")));
}

TEST_F(MdpDFPScanBlankingStatus, IsOpenedAgainWhenAWholeSweepDidNotReportIt)
{
    rx.setRanges({scanRange(100'000'000, 100'175'000, 25'000, 7)});
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.blankingRanges->SetRange(2, 100'150'000, 100'150'000);
    const auto notBlanked = [](qint64 stamp, int first) {
        DfTrace trace = blanked(stamp, first);
        trace.flags = dfflag::valid;
        return trace;
    };
    rx.receive(blanked(1, 0)); // remembered as the first of the sweep
    rx.receive(blanked(2, 4));
    EXPECT_THAT(status(),
                ElementsAre("1: 100000000-100000000 Hz blanked @1", "2: 100150000-100150000 Hz blanked @2"));
    rx.receive(notBlanked(3, 0)); // restart: both were hit
    rx.receive(blanked(4, 4));
    EXPECT_THAT(status(),
                ElementsAre("1: 100000000-100000000 Hz blanked @1", "2: 100150000-100150000 Hz blanked @2"));
    rx.receive(notBlanked(5, 0)); // restart: the second block's report made both count as hit
    rx.receive(notBlanked(6, 4));
    rx.receive(notBlanked(7, 0)); // restart: nothing was reported
    EXPECT_THAT(status(),
                ElementsAre("1: 100000000-100000000 Hz open @7", "2: 100150000-100150000 Hz open @7"));
}

TEST_F(MdpDFPScanBlankingStatus, StaysWhereALaterBlockReportsARangeWithALowerNumber)
{
    rx.setRanges({scanRange(100'000'000, 100'175'000, 25'000, 7)});
    rx.blankingRanges->SetRange(1, 100'150'000, 100'150'000);
    rx.blankingRanges->SetRange(2, 100'000'000, 100'000'000);
    rx.receive(blanked(1, 0));
    rx.receive(blanked(2, 4));
    DfTrace restart = blanked(3, 0);
    restart.flags = dfflag::valid;
    rx.receive(restart);
    EXPECT_THAT(status(),
                ElementsAre("1: 100150000-100150000 Hz blanked @2", "2: 100000000-100000000 Hz blanked @1"));
}

TEST_F(MdpDFPScanBlankingStatus, TakesTwoBlocksWithTheSameFirstChannelForTwoSweeps)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.receive(blanked(1));
    DfTrace trace = blanked(2);
    trace.flags = dfflag::valid;
    rx.receive(trace);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-100000000 Hz blanked @1")); // hit in the sweep before
    trace.stamp = 3'000;
    rx.receive(trace);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-100000000 Hz open @3"));
}

TEST_F(MdpDFPScanBlankingStatus, RestartIsThatOfTheFirstJobSeenSinceScanRangesArrived)
{
    const ScanRangeContainer ranges{scanRange(100'000'000, 100'075'000, 25'000, 7),
                                    scanRange(200'000'000, 200'075'000, 25'000, 8)};
    rx.setRanges(ranges);
    rx.blankingRanges->SetRange(1, 100'000'000, 200'000'000);
    DfTrace other;
    other.jobId = 8;
    rx.receive(blanked(1));
    rx.receive(other);
    rx.receive(other); // not the remembered job: no restart
    EXPECT_THAT(status(), ElementsAre("1: 100000000-200000000 Hz blanked @1"));
    rx.setRanges(ranges); // the next block is the first again
    rx.receive(other);
    DfTrace open;
    open.stamp = 9'000;
    rx.receive(open);
    rx.receive(open);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-200000000 Hz blanked @1"));
    other.stamp = 10'000;
    rx.receive(other); // forgets that it was hit
    rx.receive(other);
    EXPECT_THAT(status(), ElementsAre("1: 100000000-200000000 Hz open @10"));
}

TEST_F(MdpDFPScanBlankingStatus, CutsABlockAtTheStopFrequencyUnlessItIsTheFirst)
{
    // The blanking range touches the scan range, and goes on far behind it.
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'075'000, 200'000'000);
    rx.status->SetItem(1, BlankingRangeItem{100'100'000, 200'000'000, 0, false});
    DfTrace wide = blanked(1, 1);
    wide.span = 1'000'000;
    rx.receive(wide);
    EXPECT_FALSE(rx.status->FindItem(1)->IsBlanked());
    wide.firstChannel = 0;
    rx.receive(wide);
    EXPECT_TRUE(rx.status->FindItem(1)->IsBlanked());
}

TEST_F(MdpDFPScanBlankingStatus, IsLeftAloneByBlocksWhoseFrequenciesAreNoNumbers)
{
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.status->SetItem(1, BlankingRangeItem{0, 200'000'000, 0, false});
    DfTrace trace = blanked();
    trace.stepDenominator = 0; // 0 times infinity
    rx.receive(trace);
    EXPECT_FALSE(rx.status->FindItem(1)->IsBlanked());
    trace.startFrequency = std::numeric_limits<qint64>::max();
    trace.stepDenominator = 1;
    trace.span = std::numeric_limits<std::int32_t>::max();
    rx.receive(trace);
    EXPECT_FALSE(rx.status->FindItem(1)->IsBlanked());
}

TEST_F(MdpDFPScanBlankingStatus, SkipsRangesThatHaveNone)
{
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.setFourChannels(); // no change since: nobody has entered the range in the list
    rx.receive(blanked());
    EXPECT_THAT(status(), IsEmpty());
    EXPECT_EQ(rx.validities(), "2111");
}

TEST_F(MdpDFPScanBlankingStatus, IsNotNeededForChannelsToBeBlanked)
{
    rx.tree->Remove("/INTERFACES/Blanking/Ranges/List");
    rx.setFourChannels();
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000);
    rx.receive(blanked());
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "2111");
    rx.blankingRanges->Clear();
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanBlankingStatus, IsNotNeededWhenTheLogHasForgottenChanges)
{
    rx.tree->Remove("/INTERFACES/Blanking/Ranges/List");
    rx.setFourChannels();
    rx.blankingRanges->SetChangeLogLength(0);
    rx.blankingRanges->SetRange(1, 100'000'000, 100'000'000); // forgotten at once
    rx.blankingRanges->SetChangeLogLength(1);
    rx.blankingRanges->SetRange(2, 100'025'000, 100'025'000); // tells that something was forgotten
    rx.blankingRanges->SetRange(3, 100'050'000, 100'050'000); // followed again
    EXPECT_TRUE(rx.status->GetItems().empty());
    rx.receive(blanked());
    EXPECT_EQ(rx.validities(), "2221");
}

TEST_F(MdpDFPScanBlankingStatus, MayChangeWhileItIsWritten)
{
    rx.setFourChannels();
    for (unsigned id = 1; id <= 8; ++id)
        rx.blankingRanges->SetRange(id, 100'000'000, 100'000'000);
    support::Listener remover{log};
    remover.onUpdate = [this](Observable*) { rx.blankingRanges->Clear(); };
    rx.status->AddObserver(&remover);
    rx.receive(blanked());
    EXPECT_THAT(status(), IsEmpty());
}

TEST_F(MdpDFPScanBlankingStatus, MayChangeWhileASweepRestarts)
{
    rx.setFourChannels();
    for (unsigned id = 1; id <= 4; ++id)
        rx.blankingRanges->SetRange(id, 100'000'000, 100'000'000);
    rx.receive(blanked(1));
    DfTrace open;
    rx.receive(open); // forgets the hits
    support::Listener remover{log};
    remover.onUpdate = [this](Observable*) { rx.status->RemoveItem(2); };
    rx.status->AddObserver(&remover);
    rx.receive(open);
    EXPECT_THAT(status(),
                ElementsAre("1: 100000000-100000000 Hz open @5000", "3: 100000000-100000000 Hz open @5000",
                            "4: 100000000-100000000 Hz open @5000"));
}

} // namespace
