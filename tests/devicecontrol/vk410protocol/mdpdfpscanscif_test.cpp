// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "support/dfscan_receiver.h"
#include "support/listener.h"
#include "support/not_accepted_reasons.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <limits>
#include <stdexcept>

using support::DfTrace;
using support::EffectLog;
using support::scanRange;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Sample = values::DFSpectrumSample;
namespace dfflag = support::dfflag;

namespace {

constexpr std::uint32_t unusable = 2;
constexpr std::uint32_t blanked = 4;

// Looks at the fields after the processor had them.
class Looking : public IMassDataProcessor {
public:
    explicit Looking(IMassDataProcessor& first)
        : m_first(first)
    {}
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool available) override
    {
        m_first.SetAttribute(data, attribute, available);
        const std::size_t count = data->extHeader ? data->extHeader->Count() & 0xFFFFU : 0;
        fields.clear();
        for (const short* const field :
             {data->selBit11, data->selBit12, data->selBit13, data->selBit15, data->selBit18})
            fields.push_back(field ? support::copied<short>(field, count) : std::vector<short>{});
    }
    std::vector<std::vector<short>> fields; // short-time level, azimuth, quality, level, elevation

private:
    IMassDataProcessor& m_first;
};

class MdpDFPScanSCIFTest : public testing::Test {
protected:
    MdpDFPScanSCIFTest()
    {
        tree->Add("/RX/KRT", map);
        processor.Init("/RX");
        dispatcher.RegisterTagProcessor(&looking, TAG_5301, 0);
        dispatcher.RegisterTagProcessor(&looking, TAG_501, 0);
    }
    void setRanges(const ScanRangeContainer& ranges)
    {
        processor.SlotNewOrModifiedScanRanges(ranges);
        log.clear();
    }
    void setFourChannels() { setRanges({scanRange(100'000'000, 100'075'000, 25'000, 7)}); }
    void receive(const DfTrace& trace)
    {
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(trace.bytes())});
    }
    [[nodiscard]] const Sample& at(unsigned id) const { return *map->FindChannelValue(id); }

    EffectLog log;
    support::TraceCapture traces;
    support::FreshValueTree tree;
    std::shared_ptr<support::RecordingDFSpectrumMap> map =
        std::make_shared<support::RecordingDFSpectrumMap>(log, "map", QStringLiteral("RXBEARINGMAPPING"));
    MdpDFPScanSCIF processor;
    Looking looking{processor};
    VK410Processor dispatcher{false};
};

using MdpDFPScanSCIFAccept = MdpDFPScanSCIFTest;
using MdpDFPScanSCIFGrid = MdpDFPScanSCIFTest;
using MdpDFPScanSCIFSamples = MdpDFPScanSCIFTest;
using MdpDFPScanSCIFPosition = MdpDFPScanSCIFTest;
using MdpDFPScanSCIFTimes = MdpDFPScanSCIFTest;
using MdpDFPScanSCIFFailure = MdpDFPScanSCIFTest;

TEST_F(MdpDFPScanSCIFAccept, TracesATraceWithoutOptionalHeaderUnderMask0x20)
{
    setFourChannels();
    DfTrace bare;
    bare.optHeaderSize = 0;
    receive(bare);
    ASSERT_EQ(traces.records().size(), 1U);
    EXPECT_EQ(traces.records()[0].message,
              "An error has occurred while trying to set dfpan data: Optional header is not set.");
    EXPECT_EQ(traces.records()[0].file, "devicecontrol/vk410protocol/mdpdfpscanscif");
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    receive(bare);
    EXPECT_EQ(traces.records().size(), 1U);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanSCIFAccept, DropsUnknownRangesNormalAttributesAndAllWithoutAMapSilently)
{
    support::NotAcceptedReasons observer;
    processor.SetMassDataObserver(&observer);
    receive({}); // no ranges yet
    setFourChannels();
    DfTrace bare;
    bare.optHeaderSize = 0;
    receive(bare);
    traces.take();
    DfTrace other;
    other.jobId = 8;
    receive(other);
    DfTrace normal;
    normal.tag = 501;
    receive(normal);
    tree->Remove("/RX/KRT/RXBEARINGMAPPING");
    processor.Init("/RX");
    processor.SlotNewOrModifiedScanRanges({scanRange(100'000'000, 100'075'000, 25'000, 7)});
    DfTrace noValue;
    noValue.azimuth = {32'766};
    receive(noValue);
    EXPECT_THAT(looking.fields[1], ElementsAre(32'766));
    EXPECT_THAT(observer.reasons,
                ElementsAre("no scan range has this job id", "no optional header",
                            "no scan range has this job id", "not of the extended form", "there is no map"));
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanSCIFAccept, NeedsNoModeOfTheReceiver)
{
    setFourChannels();
    receive({});
    EXPECT_THAT(log.take(),
                ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4", "map HasChanged 10"));
}

TEST_F(MdpDFPScanSCIFAccept, TakesAShortHeaderForRangeZero)
{
    setRanges({scanRange(100'000'000, 100'075'000, 25'000, 0)});
    DfTrace trace;
    trace.optHeaderSize = 40;
    trace.flags = unusable;
    receive(trace);
    EXPECT_EQ(map->GetTimeStamp(), 0U);
    EXPECT_EQ(at(0).getValidity(), Sample::Validity::Valid); // no flags
    EXPECT_EQ(at(1).getAzimuth(), 18'000);
}

TEST_F(MdpDFPScanSCIFGrid, IsLaidOutFromTheScanRangesInTheirOrder)
{
    processor.SlotNewOrModifiedScanRanges({nullptr, scanRange(100'000'000, 100'100'000, 25'000, 7),
                                           scanRange(200'000'000, 200'050'000, 12'500, 8)});
    EXPECT_THAT(log.take(), ElementsAre("map SetChannelRangeDefinition 10 10", "map HasChanged 10"));
    const auto& ranges = map->GetChannelRangeDefinition().GetRanges();
    ASSERT_EQ(ranges.size(), 2U);
    EXPECT_EQ(ranges[0], (values::ChannelRange{0, 5, 100e6, 25e3, ""}));
    EXPECT_EQ(ranges[1], (values::ChannelRange{5, 5, 200e6, 12.5e3, ""}));
    DfTrace trace;
    trace.jobId = 8;
    trace.startFrequency = 200'025'000;
    trace.stepNumerator = 12'500;
    receive(trace);
    EXPECT_THAT(log.take(), testing::Contains("map SetChannelValues 7+4"));
}

TEST_F(MdpDFPScanSCIFGrid, TakesTheFirstRangeOfAJobThatComesTwice)
{
    setRanges(
        {scanRange(100'000'000, 100'075'000, 25'000, 7), scanRange(200'000'000, 200'075'000, 25'000, 7)});
    receive({});
    EXPECT_EQ(at(0).getAzimuth(), 9000);
    EXPECT_EQ(at(4).getAzimuth(), 0);
}

TEST_F(MdpDFPScanSCIFGrid, ReplacesGridAndRangesAtOnce)
{
    setFourChannels();
    setRanges({scanRange(100'000'000, 100'025'000, 25'000, -2)});
    EXPECT_EQ(map->GetChannelRangeDefinition().GetChannelCount(), 2U);
    receive({});
    EXPECT_THAT(log.take(), IsEmpty());
    DfTrace trace;
    trace.jobId = -2; // sign-extended
    receive(trace);
    EXPECT_EQ(at(1).getAzimuth(), 18'000);
}

TEST_F(MdpDFPScanSCIFGrid, ThatTheMapRefusesIsTracedAndLeavesNoRangeKnown)
{
    setFourChannels();
    map->SetMemoryLimit(1'000);
    setRanges({scanRange(100'000'000, 200'000'000, 25'000, 7)});
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("while trying to set the scan ranges")));
    receive({});
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(MdpDFPScanSCIFSamples, CarryATenthOfTheQualityAndTenTimesTheRest)
{
    setFourChannels();
    DfTrace trace;
    trace.azimuth = {900, 6554, -1, 3599};
    trace.quality = {999, -19, 5, 10};
    trace.level = {-1234, 3277, 5, 6};
    trace.shortTimeLevel = {8, 9, 10, 11};
    trace.elevation = {-900, 450, 0, 1};
    trace.fieldStrength = {100, 100, 100, 100}; // not read
    receive(trace);
    using Fields = Sample::Fields;
    constexpr auto valid = Sample::Validity::Valid;
    EXPECT_EQ(at(0).fields(), (Fields{valid, 99, 9000, -12'340, 80, values::noLevel, -9000, 0}));
    EXPECT_EQ(at(1).fields(), (Fields{valid, -1, 4, -32'766, 90, values::noLevel, 4500, 0}));
    EXPECT_EQ(at(2).fields(), (Fields{valid, 0, 65'526, 50, 100, values::noLevel, 0, 0}));
    EXPECT_EQ(at(3).fields(), (Fields{valid, 1, 35'990, 60, 110, values::noLevel, 10, 0}));
}

TEST_F(MdpDFPScanSCIFSamples, TakeTheShortTimeLevelWhereThereIsNoOther)
{
    setFourChannels();
    DfTrace trace;
    trace.shortTimeLevel = {1, 2, 3, 32'766};
    receive(trace);
    EXPECT_EQ(at(0).getLevel(), 10);
    EXPECT_EQ(at(0).getShortTimeLevel(), 10);
    EXPECT_EQ(at(3).getLevel(), -20); // levels know no "no value" here
    trace.shortTimeLevel.clear();
    trace.level = {5};
    trace.azimuth = {1};
    receive(trace);
    EXPECT_EQ(at(0).getLevel(), 50);
    EXPECT_EQ(at(0).getShortTimeLevel(), values::noLevel);
}

TEST_F(MdpDFPScanSCIFSamples, WriteZeroOverMissingAzimuthsAndQualitiesInTheDatagramOnly)
{
    setFourChannels();
    for (const bool littleEndian : {false, true}) {
        DfTrace trace;
        trace.littleEndian = littleEndian;
        for (auto* const field :
             {&trace.shortTimeLevel, &trace.azimuth, &trace.quality, &trace.level, &trace.elevation})
            *field = {32'766, 100};
        receive(trace);
        EXPECT_THAT(looking.fields[0], ElementsAre(32'766, 100));
        EXPECT_THAT(looking.fields[1], ElementsAre(0, 100));
        EXPECT_THAT(looking.fields[2], ElementsAre(0, 100));
        EXPECT_THAT(looking.fields[3], ElementsAre(32'766, 100));
        EXPECT_THAT(looking.fields[4], ElementsAre(32'766, 100));
        EXPECT_EQ(at(0).getAzimuth(), 0);
        EXPECT_EQ(at(0).getQuality(), 0);
        EXPECT_EQ(at(0).getElevation(), 0);
        EXPECT_EQ(at(1).getElevation(), 1000);
    }
}

TEST_F(MdpDFPScanSCIFSamples, HaveTheValidityOfTheFlags)
{
    setFourChannels();
    DfTrace trace;
    const auto validityOf = [&](std::uint32_t flags) {
        trace.flags = flags;
        receive(trace);
        return at(2).getValidity();
    };
    EXPECT_EQ(validityOf(0), Sample::Validity::Valid);
    EXPECT_EQ(validityOf(1), Sample::Validity::Valid);
    EXPECT_EQ(validityOf(unusable), Sample::Validity::Unusable);
    EXPECT_EQ(validityOf(blanked), Sample::Validity::Blanked);
    EXPECT_EQ(validityOf(unusable | blanked), Sample::Validity::Unusable);
}

TEST_F(MdpDFPScanSCIFSamples, OfTheLow16BitsOfTheCountAreWritten)
{
    setFourChannels();
    DfTrace trace;
    trace.count = 0x10003;
    trace.azimuth = {1, 2, 3};
    receive(trace);
    EXPECT_EQ(at(2).getAzimuth(), 30);
    EXPECT_THAT(log.take(), testing::Contains("map SetChannelValues 0+3"));
}

TEST_F(MdpDFPScanSCIFPosition, MovesUpWithAStartFrequencyAboveThatOfTheRangeOnly)
{
    setRanges({scanRange(100'000'000, 101'000'000, 25'000, 7)});
    const auto positionOf = [this](qint64 start, qint32 firstChannel) {
        DfTrace trace;
        trace.startFrequency = start;
        trace.firstChannel = firstChannel;
        trace.stepNumerator = 50'000;
        trace.stepDenominator = 2;
        receive(trace);
        return log.take().at(1);
    };
    EXPECT_EQ(positionOf(100'050'000, 0), "map SetChannelValues 2+4");
    EXPECT_EQ(positionOf(100'012'500, 3), "map SetChannelValues 4+4");
    EXPECT_EQ(positionOf(100'012'499, 3), "map SetChannelValues 3+4");
    EXPECT_EQ(positionOf(99'000'000, 3), "map SetChannelValues 3+4");
    EXPECT_EQ(positionOf(100'050'000, -1), "map SetChannelValues 1+4");
}

TEST_F(MdpDFPScanSCIFPosition, LeavesTheStoreOutAndNothingElseWhereNumbersGiveNone)
{
    setFourChannels();
    DfTrace trace;
    trace.startFrequency = 100'050'000;
    trace.stepNumerator = 0;
    trace.flags = dfflag::endOfSweep;
    receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("map SetTimeStamp 5000", "map HasChanged 10", "map SetEndOfScan 5000"));
    trace.startFrequency = std::numeric_limits<qint64>::max();
    trace.stepNumerator = 1;
    trace.stepDenominator = 2;
    receive(trace);
    EXPECT_THAT(log.take(),
                ElementsAre("map SetTimeStamp 5000", "map HasChanged 10", "map SetEndOfScan 5000"));
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanSCIFTimes, AreRoundedAndTakenAsUnsigned)
{
    setFourChannels();
    const auto stampOf = [this](qint64 deviceStamp) {
        DfTrace trace;
        trace.stamp = deviceStamp;
        receive(trace);
        return map->GetTimeStamp();
    };
    EXPECT_EQ(stampOf(1'499), 1U);
    EXPECT_EQ(stampOf(1'500), 2U);
    EXPECT_EQ(stampOf(-1), 18'446'744'073'709'552U);
}

TEST_F(MdpDFPScanSCIFTimes, EndASweepWithTheOffsetAddedBehindTheNotification)
{
    setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::endOfSweep;
    trace.averagingTimeOffset = -5'001;
    receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4",
                                        "map HasChanged 10", "map SetEndOfScan 18446744073709551615"));
}

TEST_F(MdpDFPScanSCIFFailure, OfTheStoreIsTracedAndTheMapIsNotifiedAllTheSame)
{
    setFourChannels();
    map->failing = {"SetChannelValues"};
    DfTrace trace;
    trace.flags = dfflag::endOfSweep;
    receive(trace);
    EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4",
                                        "map HasChanged 10", "map SetEndOfScan 5000"));
    ASSERT_EQ(traces.records().size(), 1U);
    EXPECT_EQ(traces.records()[0].message,
              "An error has occurred while trying to set dfpan data to the value "
              "map: SetChannelValues failed");
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    receive(trace);
    EXPECT_EQ(traces.records().size(), 1U);
}

TEST_F(MdpDFPScanSCIFFailure, OfAnotherKindPassesOn)
{
    setFourChannels();
    support::Listener listener{log};
    listener.onUpdate = [](Observable*) { throw std::runtime_error("an observer's own"); };
    map->AddObserver(&listener);
    EXPECT_THROW(receive({}), std::runtime_error);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MdpDFPScanSCIFFailure, OfTheGridsFrequencyIsTracedToo)
{
    setRanges({scanRange(200, 190, 10.0, 7)}); // half a channel: none, but known
    receive({});
    EXPECT_THAT(log.take(), ElementsAre("map SetTimeStamp 5000", "map HasChanged 10"));
    EXPECT_EQ(traces.records().size(), 1U);
}

} // namespace
