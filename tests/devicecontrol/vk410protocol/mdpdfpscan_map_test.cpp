// SPDX-License-Identifier: MIT
// Direction-finding scans and their map: the grid, the place of each trace on it, and what a map refuses.
#include "support/dfscan_receiver.h"
#include "support/listener.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <limits>
#include <stdexcept>

using support::DfTrace;
using support::EffectLog;
using support::scanRange;
using support::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
namespace dfflag = support::dfflag;

namespace {

class MdpDFPScanMapTest : public testing::Test {
protected:
    EffectLog log;
    TraceCapture traces;
    support::DfReceiver rx{log};
};

using MdpDFPScanGrid = MdpDFPScanMapTest;
using MdpDFPScanPosition = MdpDFPScanMapTest;
using MdpDFPScanFailure = MdpDFPScanMapTest;

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

TEST_F(MdpDFPScanFailure, OfAnotherKindPassesOnAndLeavesTheProcessorInOrder)
{
    rx.setFourChannels();
    support::Listener listener{log};
    listener.onUpdate = [](Observable*) { throw std::runtime_error("an observer's own"); };
    rx.map->AddObserver(&listener);
    EXPECT_THROW(rx.receive({}), std::runtime_error);
    EXPECT_THAT(traces.take(), IsEmpty());
    listener.onUpdate = nullptr;
    DfTrace next;
    next.azimuth = {10, 20, 30, 40};
    rx.receive(next);
    EXPECT_EQ(rx.at(3).getAzimuth(), 400);
}

} // namespace
