// SPDX-License-Identifier: MIT
// Histories that are kept once per process: every test here is a process of its own (ctest runs them one by
// one), and begins with histories that nobody has touched.
#include "support/ifpan_receiver.h"
#include <gmock/gmock.h>

using support::EffectLog;
using support::IfpanReceiver;
using support::IfpanTrace;
using testing::Contains;
using testing::ElementsAre;

namespace {

class MdpIfpanStatics : public testing::Test {
protected:
    void tuneTo(std::uint64_t centre)
    {
        IfpanTrace trace;
        trace.centre = centre;
        rx.receive(trace);
    }
    std::vector<std::string> singles()
    {
        std::vector<std::string> found;
        for (const std::string& effect : log.take()) {
            if (effect.find("SetSingleData") != std::string::npos)
                found.push_back(effect);
        }
        return found;
    }
    EffectLog log;
    IfpanReceiver rx{log};
};

TEST_F(MdpIfpanStatics, AfcIsFollowedWhileNobodyElseChangesTheFrequency)
{
    rx.answers.afc = true;
    rx.commands->SelectKey(3);
    rx.afc->SetValue(true);
    tuneTo(100'000'100);
    EXPECT_EQ(rx.frequency->GetValue(), 100'000'100.0);
    tuneTo(100'000'200);
    EXPECT_EQ(rx.frequency->GetValue(), 100'000'200.0);
    rx.frequency->SetValue(90e6); // the operator
    tuneTo(100'000'300);
    EXPECT_EQ(rx.frequency->GetValue(), 90e6);
    tuneTo(90'000'000); // the device has arrived there
    tuneTo(90'000'050);
    EXPECT_EQ(rx.frequency->GetValue(), 90'000'050.0);
}

TEST_F(MdpIfpanStatics, AfcLeavesWhatDiffersByLessThanOneHertz)
{
    rx.answers.afc = true;
    rx.commands->SelectKey(3);
    rx.afc->SetValue(true);
    rx.frequency->SetValue(100e6 + 0.5);
    tuneTo(100'000'000);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6 + 0.5);
}

TEST_F(MdpIfpanStatics, AfcNeedsConfigurationCommandAndValue)
{
    tuneTo(101'000'000);
    rx.answers.afc = true;
    tuneTo(101'000'000);
    rx.commands->SelectKey(3);
    tuneTo(101'000'000);
    EXPECT_EQ(rx.frequency->GetValue(), 100e6);
    rx.afc->SetValue(true);
    tuneTo(101'000'000); // only now is the history initialised, with FREQUENCY as it stands
    EXPECT_EQ(rx.frequency->GetValue(), 101e6);
}

TEST_F(MdpIfpanStatics, AfcTakesANumberOrASelectionOfOneAsOn)
{
    rx.tree->Remove("/RX/AFC");
    rx.tree->Create<values::ValueNumeric<int>>("/RX", "AFC", 1);
    rx.answers.afc = true;
    rx.commands->SelectKey(3);
    tuneTo(100'000'100);
    EXPECT_EQ(rx.frequency->GetValue(), 100'000'100.0);
}

TEST_F(MdpIfpanStatics, AfcSharesItsHistoryBetweenProcessors)
{
    rx.answers.afc = true;
    rx.commands->SelectKey(3);
    rx.afc->SetValue(true);
    tuneTo(100'000'100); // the history now says 100.0001 MHz
    rx.frequency->SetValue(50e6);

    MdpIfpan second{std::make_unique<support::IfpanConfig>(rx.answers), nullptr};
    second.Init("/RX", "/FOLLOW");
    VK410Processor dispatcher{false};
    dispatcher.RegisterTagProcessor(&second, TAG_501, 0);
    IfpanTrace trace;
    trace.centre = 50'000'100;
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(trace.bytes())});
    EXPECT_EQ(rx.frequency->GetValue(), 50e6); // a history of its own would have followed
}

TEST_F(MdpIfpanStatics, EverySecondWrapOfASearchRaisesEndOfScan)
{
    rx.answers.endOfSearch = true;
    rx.answers.spanFollowed = true;
    rx.enabled->SetValue(true);
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    std::vector<int> raisedAt;
    int step = 0;
    for (const std::uint64_t megahertz : {1, 2, 3, 1, 2, 3, 1, 2, 3, 1}) {
        tuneTo(megahertz * 1'000'000);
        if (rx.endOfScan->GetValue())
            raisedAt.push_back(step);
        rx.endOfScan->SetValue(false);
        ++step;
    }
    EXPECT_THAT(raisedAt, ElementsAre(3, 9)); // the first and the third fall
}

TEST_F(MdpIfpanStatics, AWrapCountsAlsoWhileThePriorityScanIsNotEnabled)
{
    rx.answers.endOfSearch = true;
    rx.answers.spanFollowed = true;
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    tuneTo(2'000'000);
    tuneTo(1'000'000); // would have raised it
    EXPECT_FALSE(rx.endOfScan->GetValue());
    rx.enabled->SetValue(true);
    tuneTo(2'000'000);
    tuneTo(1'000'000);
    EXPECT_FALSE(rx.endOfScan->GetValue());
    tuneTo(2'000'000);
    tuneTo(1'000'000);
    EXPECT_TRUE(rx.endOfScan->GetValue());
}

TEST_F(MdpIfpanStatics, EndOfSearchNeedsBothOfItsValues)
{
    rx.tree->Remove("/RX/PRIORITYSCAN/ENABLED");
    rx.answers.endOfSearch = true;
    rx.answers.spanFollowed = true;
    rx.processor();
    rx.commands->SelectKey(5);
    rx.searchScan->SelectText("RUN");
    tuneTo(2'000'000);
    tuneTo(1'000'000);
    EXPECT_FALSE(rx.endOfScan->GetValue());
}

TEST_F(MdpIfpanStatics, AMemorySearchWritesTheMiddleLevelAndStartsAgainWhenItComesRound)
{
    rx.answers.mSearch = true;
    rx.commands->SelectKey(6);
    for (const std::uint64_t megahertz : {10, 10, 20, 10})
        tuneTo(megahertz * 1'000'000);
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 10000000 3", "filler SetSingleData 10000000 3",
                                       "filler SetSingleData 20000000 3", "filler SetSingleData 10000000 3",
                                       "filler SetSingleData 0 0"));
    tuneTo(20'000'000); // the list began again with 10 MHz: 20 is new
    tuneTo(10'000'000);
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 20000000 3", "filler SetSingleData 10000000 3",
                                       "filler SetSingleData 0 0"));
}

TEST_F(MdpIfpanStatics, AMemorySearchStampsWithTheClockWhateverIsConfigured)
{
    rx.answers.mSearch = true;
    rx.answers.deviceStamp = true;
    rx.commands->SelectKey(7);
    IfpanTrace trace;
    trace.stamp = 9'000'000;
    rx.receive(trace);
    EXPECT_THAT(log.take(), Contains("levels SetTimeStamp 4711"));
}

TEST_F(MdpIfpanStatics, AMemorySearchNeedsConfigurationCommandAndLevels)
{
    rx.commands->SelectKey(6);
    tuneTo(10'000'000);
    rx.answers.mSearch = true;
    rx.commands->SelectKey(5);
    tuneTo(10'000'000);
    rx.commands->SelectKey(6);
    IfpanTrace without;
    without.selectors = 0;
    rx.receive(without);
    EXPECT_TRUE(singles().empty());
}

TEST_F(MdpIfpanStatics, AMemorySearchTakesTheFrequencyWithItsOffset)
{
    rx.answers.mSearch = true;
    rx.commands->SelectKey(6);
    rx.frequency->SetOffset(1e6);
    tuneTo(10'000'000);
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 11000000 3"));
}

TEST_F(MdpIfpanStatics, AMemorySearchForgetsItsFrequenciesWithANewInit)
{
    rx.answers.mSearch = true;
    rx.commands->SelectKey(6);
    tuneTo(10'000'000);
    tuneTo(20'000'000);
    rx.processor().Init("/RX", "/FOLLOW");
    tuneTo(10'000'000);
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 10000000 3", "filler SetSingleData 20000000 3",
                                       "filler SetSingleData 10000000 3"));
}

TEST_F(MdpIfpanStatics, AMemorySearchRemembersABoundedNumberOfFrequencies)
{
    rx.answers.mSearch = true;
    rx.commands->SelectKey(6);
    constexpr std::uint64_t limit = 65'536;
    for (std::uint64_t i = 0; i <= limit; ++i) {
        tuneTo(1'000 + i);
        log.clear();
    }
    tuneTo(1'000 + limit); // the same again: no visit
    tuneTo(500);           // neither this one
    tuneTo(1'000 + limit); // nor that one was remembered
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 66536 3", "filler SetSingleData 500 3",
                                       "filler SetSingleData 66536 3"));
    tuneTo(1'000);
    EXPECT_THAT(singles(), ElementsAre("filler SetSingleData 1000 3", "filler SetSingleData 0 0"));
}

} // namespace
