// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "support/dfscan_receiver.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <limits>
#include <random>

using dfsamples::Sample;
using support::DfTrace;
using support::EffectLog;
using support::scanRange;
using testing::ElementsAre;
using testing::Optional;
namespace dfflag = support::dfflag;

namespace {

class MdpDFPScanSamplesTest : public testing::Test {
protected:
    template <typename Get>
    std::vector<int> each(Get get) const
    {
        std::vector<int> values;
        for (const Sample& sample : rx.map->GetValues())
            values.push_back(static_cast<int>((sample.*get)()));
        return values;
    }

    EffectLog log;
    support::TraceCapture traces;
    support::DfReceiver rx{log};
};

using MdpDFPScanSamples = MdpDFPScanSamplesTest;
using MdpDFPScanSectors = MdpDFPScanSamplesTest;
using MdpDFPScanSuperResolution = MdpDFPScanSamplesTest;

constexpr short lowest = std::numeric_limits<short>::min();

TEST_F(MdpDFPScanSamples, CarryATenthOfTheQualityAndTenTimesTheRest)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.azimuth = {0, 900, 3599, -1};
    trace.quality = {999, 9, -9, -19};
    trace.fieldStrength = {1, 2, 3, 4};
    trace.level = {-123, 5, 6, 7};
    trace.shortTimeLevel = {8, 9, 10, 11};
    trace.elevation = {-900, 450, 0, 1};
    rx.receive(trace);
    EXPECT_THAT(each(&Sample::getValidity), ElementsAre(1, 1, 1, 1));
    EXPECT_THAT(each(&Sample::getAzimuth), ElementsAre(0, 9000, 35'990, 65'526));
    EXPECT_THAT(each(&Sample::getQuality), ElementsAre(99, 0, 0, -1)); // toward zero
    EXPECT_THAT(each(&Sample::getFieldStrength), ElementsAre(10, 20, 30, 40));
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(-1230, 50, 60, 70));
    EXPECT_THAT(each(&Sample::getShortTimeLevel), ElementsAre(80, 90, 100, 110));
    EXPECT_THAT(each(&Sample::getElevation), ElementsAre(-9000, 4500, 0, 10));
}

TEST_F(MdpDFPScanSamples, WrapIn16Bits)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.azimuth = {6553, 6554, 32'767, lowest};
    trace.level = {3276, 3277, 32'767, lowest};
    rx.receive(trace);
    EXPECT_THAT(each(&Sample::getAzimuth), ElementsAre(65'530, 4, 65'526, 0));
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(32'760, -32'766, -10, 0));
}

TEST_F(MdpDFPScanSamples, TakeNoValueForZeroInAzimuthQualityAndElevationOnly)
{
    rx.setFourChannels();
    DfTrace trace;
    for (auto* const field : {&trace.azimuth, &trace.quality, &trace.fieldStrength, &trace.level,
                              &trace.shortTimeLevel, &trace.elevation})
        *field = {32'766, 32'766, 32'766, 32'766};
    rx.receive(trace);
    EXPECT_EQ(rx.at(3).fields(), (Sample::Fields{Sample::Validity::Valid, 0, 0, -20, -20, -20, 0, 0}));
    // The receiver gets the numbers as they came.
    EXPECT_THAT(rx.receiver.fields[0], Optional(ElementsAre(32'766, 32'766, 32'766, 32'766)));
    EXPECT_THAT(rx.receiver.fields[1], Optional(ElementsAre(32'766, 32'766, 32'766, 32'766)));
}

TEST_F(MdpDFPScanSamples, TakeTheShortTimeLevelWhereThereIsNoOther)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.shortTimeLevel = {1, 2, 3, 4};
    rx.receive(trace);
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(10, 20, 30, 40));
    EXPECT_THAT(each(&Sample::getShortTimeLevel), ElementsAre(10, 20, 30, 40));
    trace.shortTimeLevel.clear();
    trace.level = {5, 6, 7, 8};
    rx.receive(trace);
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(50, 60, 70, 80));
    EXPECT_THAT(each(&Sample::getShortTimeLevel), ElementsAre(32'766, 32'766, 32'766, 32'766));
}

TEST_F(MdpDFPScanSamples, HaveTheirDefaultsWhereTheTraceCarriesNoFieldWhateverTheLastOneCarried)
{
    rx.setFourChannels();
    DfTrace full;
    for (auto* const field : {&full.azimuth, &full.quality, &full.fieldStrength, &full.level,
                              &full.shortTimeLevel, &full.elevation})
        *field = {100, 100, 100, 100};
    full.superResolutionCount = 2;
    rx.receive(full);
    ASSERT_NE(rx.at(0).getSuperResolutionSample(), nullptr);
    DfTrace bare;
    bare.azimuth.clear();
    bare.count = 4;
    rx.receive(bare);
    Sample expected;
    expected.setValidity(Sample::Validity::Valid);
    EXPECT_EQ(rx.at(0), expected);
    EXPECT_EQ(rx.at(3), expected);
}

TEST_F(MdpDFPScanSamples, AreUnusableAfterAnOverflow)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::overflow;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "0000");
    EXPECT_EQ(rx.at(1).getAzimuth(), 18'000);
}

TEST_F(MdpDFPScanSamples, OfTheLow16BitsOfTheCountAreWritten)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.count = 0x50002;
    rx.receive(trace);
    EXPECT_THAT(each(&Sample::getAzimuth), ElementsAre(9000, 18'000, 0, 0));
}

// The loop over vectors beside one that anybody can read.
Sample plainSample(const dfsamples::RawFields& raw, Sample::Validity validity, std::size_t i)
{
    const auto item = [i](const short* items) { return numbers::item16(items, i); };
    const auto orZero = [](int value) { return value == 32'766 ? 0 : value; };
    Sample sample;
    sample.setValidity(validity);
    if (raw.quality)
        sample.setQuality(static_cast<qint16>(orZero(item(raw.quality)) / 10));
    if (raw.azimuth)
        sample.setAzimuth(static_cast<quint16>(orZero(item(raw.azimuth)) * 10));
    if (raw.level)
        sample.setLevel(static_cast<qint16>(item(raw.level) * 10));
    else if (raw.shortTimeLevel)
        sample.setLevel(static_cast<qint16>(item(raw.shortTimeLevel) * 10));
    if (raw.shortTimeLevel)
        sample.setShortTimeLevel(static_cast<qint16>(item(raw.shortTimeLevel) * 10));
    if (raw.fieldStrength)
        sample.setFieldStrength(static_cast<qint16>(item(raw.fieldStrength) * 10));
    if (raw.elevation)
        sample.setElevation(static_cast<qint16>(orZero(item(raw.elevation)) * 10));
    return sample;
}

// Wide vectors where the machine has them, and those that every machine has.
constexpr auto conversions = {dfsamples::convert, dfsamples::convertNarrow};

TEST(DfSamples, AreThoseOfThePlainLoopForEveryNumber)
{
    std::vector<short> all(65'536);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<short>(i);
    const dfsamples::RawFields raw{all.data(), all.data(), all.data(), all.data(), all.data(), all.data()};
    for (const auto convert : conversions) {
        std::vector<Sample> samples(all.size());
        convert(raw, Sample::Validity::Valid, samples);
        for (std::size_t i = 0; i < all.size(); ++i)
            ASSERT_EQ(samples[i], plainSample(raw, Sample::Validity::Valid, i)) << i;
    }
}

TEST(DfSamples, AreThoseOfThePlainLoopForEveryCountAlignmentAndChoiceOfFields)
{
    std::mt19937 random{4711};
    for (unsigned choice = 0; choice < 64; ++choice) {
        for (std::size_t count = 0; count < 50; ++count) {
            // Exactly as long as the fields, so that a read too far is noticed.
            std::vector<std::vector<unsigned char>> bytes(6);
            std::vector<const short*> field(6, nullptr);
            const std::size_t shift = random() % 2;
            for (std::size_t f = 0; f < 6; ++f) {
                bytes[f].resize(2 * count + shift);
                for (unsigned char& byte : bytes[f])
                    byte = static_cast<unsigned char>(random());
                if ((choice >> f & 1U) != 0)
                    field[f] = reinterpret_cast<const short*>(bytes[f].data() + shift);
            }
            const dfsamples::RawFields raw{field[0], field[1], field[2], field[3], field[4], field[5]};
            for (const auto convert : conversions) {
                std::vector<Sample> samples(count);
                convert(raw, Sample::Validity::Blanked, samples);
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_EQ(samples[i], plainSample(raw, Sample::Validity::Blanked, i))
                        << choice << " " << i;
            }
        }
    }
}

TEST_F(MdpDFPScanSectors, BlankAzimuthAndQualityInsideBothBoundsIncluded)
{
    rx.setRanges({scanRange(100'000'000, 100'125'000, 25'000, 7, {{900, 1800}})});
    DfTrace trace;
    trace.azimuth = {899, 900, 1350, 1800, 1801, 0};
    trace.quality = {500, 500, 500, 500, 500, 500};
    trace.level = {1, 2, 3, 4, 5, 6};
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "122211");
    EXPECT_THAT(each(&Sample::getAzimuth), ElementsAre(8990, 0, 0, 0, 18'010, 0));
    EXPECT_THAT(each(&Sample::getQuality), ElementsAre(50, 0, 0, 0, 50, 50));
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(10, 20, 30, 40, 50, 60));
}

TEST_F(MdpDFPScanSectors, AcrossNorthAreSplitInTheScanRangeItself)
{
    const auto range = scanRange(100'000'000, 100'075'000, 25'000, 7, {{3000, 300}, {500, 600}});
    rx.setRanges({range});
    using Sector = std::pair<double, double>;
    EXPECT_THAT(range->azimuthSectors, ElementsAre(Sector(3000, 3599), Sector(500, 600), Sector(0, 300)));
    DfTrace trace;
    trace.azimuth = {3000, 3599, 300, 301};
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "2221");
    rx.setRanges({range}); // once more: nothing is left to split
    EXPECT_EQ(range->azimuthSectors.size(), 3U);
}

TEST_F(MdpDFPScanSectors, BlankNothingInATraceWithoutAzimuths)
{
    rx.setFourChannels({{0, 3599}});
    DfTrace trace;
    trace.azimuth.clear();
    trace.level = {1, 2, 3, 4};
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "1111");
    EXPECT_THAT(each(&Sample::getLevel), ElementsAre(10, 20, 30, 40));
}

TEST_F(MdpDFPScanSectors, ThatAreEmptyDoNotSwitchBlankingOnAndBlankNothing)
{
    rx.setFourChannels({{500, 500}, {0, 0}});
    DfTrace trace;
    trace.azimuth = {500, 0, 499, 501};
    rx.receive(trace);
    EXPECT_THAT(log.take(), testing::Not(testing::Contains("SignalAzimuthBlanking")));
    EXPECT_EQ(rx.validities(), "1111");
    rx.setFourChannels({{500, 500}, {3000, 0}}); // its second half is empty
    rx.receive(trace);
    EXPECT_THAT(log.take(), testing::Contains("SignalAzimuthBlanking"));
    EXPECT_EQ(rx.validities(), "1111");
}

TEST_F(MdpDFPScanSectors, AreLimitedToTheCircleBeforeTheyAreSplit)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const auto range = scanRange(100'000'000, 100'075'000, 25'000, 7,
                                 {{4000, -5}, {-infinity, infinity}, {std::nan(""), 10}, {5000, 4000}});
    rx.setRanges({range});
    using Sector = std::pair<double, double>;
    EXPECT_THAT(range->azimuthSectors, ElementsAre(Sector(3599, 3599), Sector(0, 3599), Sector(0, 0),
                                                   Sector(3599, 3599), Sector(0, 0)));
}

TEST_F(MdpDFPScanSectors, SeeNoValueAsZero)
{
    rx.setFourChannels({{0, 10}});
    DfTrace trace;
    trace.azimuth = {32'766, 11, -1, 10};
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "2112");
}

TEST_F(MdpDFPScanSectors, OverrideAnOverflow)
{
    rx.setFourChannels({{900, 1800}});
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::overflow;
    rx.receive(trace);
    EXPECT_EQ(rx.validities(), "2200");
}

TEST_F(MdpDFPScanSectors, AreThoseOfTheTracesJobAndGoToTheReceiver)
{
    rx.setRanges({scanRange(100'000'000, 100'075'000, 25'000, 7, {{900, 900}}),
                  scanRange(200'000'000, 200'075'000, 25'000, 8, {{1700, 1900}})});
    rx.receive({});
    EXPECT_EQ(rx.receiver.range.jobId, 7U);
    EXPECT_EQ(rx.receiver.range.azimuthSectors.size(), 1U);
    DfTrace other;
    other.jobId = 8;
    rx.receive(other);
    EXPECT_EQ(rx.receiver.range.jobId, 8U);
    EXPECT_EQ(rx.receiver.range.startFrequency, 200'000'000U);
    EXPECT_EQ(rx.validities(), "11111211");
    EXPECT_THAT(log.take(), testing::Contains("SignalAzimuthBlanking").Times(2));
}

TEST_F(MdpDFPScanSectors, GoWithTheirScanRanges)
{
    rx.setFourChannels({{900, 1800}});
    rx.receive({});
    EXPECT_EQ(rx.validities(), "2211");
    EXPECT_THAT(log.take(), testing::Contains("SignalAzimuthBlanking"));
    rx.setFourChannels();
    rx.receive({});
    EXPECT_EQ(rx.validities(), "1111");
    EXPECT_THAT(log.take(), testing::Not(testing::Contains("SignalAzimuthBlanking")));
}

// Long blocks are filled piece by piece; nobody may see where a piece ends.
TEST_F(MdpDFPScanSamples, OfALongBlockAreThoseOfAShortOne)
{
    constexpr int count = 5'000;
    rx.setRanges({scanRange(100'000'000, 100'000'000 + (count - 1) * 1'000, 1'000, 7, {{1500, 1600}})});
    rx.localSuppress->AddRange(101'020'000, 101'030'000);  // channels 1020 to 1030
    rx.blankingRanges->AddRange(102'000'000, 104'096'000); // channels 2000 to 4096
    DfTrace trace;
    trace.flags = dfflag::valid | dfflag::blanking;
    trace.stepNumerator = 1'000;
    trace.superResolutionCount = 1;
    trace.waves = {{}, {}};
    for (std::vector<short>* const field : {&trace.azimuth, &trace.quality, &trace.level, &trace.waves[1]}) {
        field->resize(count);
        for (int i = 0; i < count; ++i)
            (*field)[static_cast<std::size_t>(i)] = static_cast<short>(i % 3600);
    }
    rx.receive(trace);
    for (int i = 0; i < count; ++i) {
        const Sample& sample = rx.at(static_cast<unsigned>(i));
        const int raw = i % 3600;
        const bool isInSector = raw >= 1500 && raw <= 1600;
        const bool isBlanked = isInSector || (i >= 1020 && i <= 1030) || (i >= 2000 && i <= 4096);
        ASSERT_EQ(sample.getValidity(), isBlanked ? Sample::Validity::Blanked : Sample::Validity::Valid) << i;
        ASSERT_EQ(sample.getAzimuth(), isInSector ? 0 : raw * 10) << i;
        ASSERT_EQ(sample.getQuality(), isInSector ? 0 : raw / 10) << i;
        ASSERT_EQ(sample.getLevel(), static_cast<qint16>(raw * 10)) << i;
        ASSERT_EQ(sample.getSuperResolutionSample()->getAzimuth(0), raw * 10) << i;
    }
    EXPECT_THAT(log.take(), testing::Contains("SignalFrequencyBlanking").Times(1));
}

TEST_F(MdpDFPScanSectors, WithoutAnyTheReceiverGetsNoScanRange)
{
    rx.setFourChannels();
    rx.receive({});
    const ScanRange& range = rx.receiver.range;
    EXPECT_EQ(range.startFrequency, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(range.stopFrequency, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(range.step, -1.0);
    EXPECT_EQ(range.auxiliaryValue, -1.0);
    EXPECT_EQ(range.jobId, 0xFFFFFFFFU);
    EXPECT_EQ(range.auxiliaryId, 0xFFFFFFFFU);
    EXPECT_TRUE(range.azimuthSectors.empty());
}

TEST_F(MdpDFPScanSamples, GoRawToTheReceiver)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.azimuth = {1, 2};
    trace.quality = {3, 4};
    trace.fieldStrength = {5, 6};
    trace.level = {7, 8};
    trace.shortTimeLevel = {9, 10};
    trace.elevation = {11, 12};
    trace.firstChannel = 2;
    rx.receive(trace);
    EXPECT_EQ(log.effects().front(), "receive plain from 100050000 by 25000 span 75000 at 5000 x2");
    for (int field = 0; field < 6; ++field)
        EXPECT_THAT(rx.receiver.fields[static_cast<std::size_t>(field)],
                    Optional(ElementsAre(2 * field + 1, 2 * field + 2)));
    EXPECT_EQ(rx.receiver.fields[6], std::nullopt);
    rx.receive({});
    EXPECT_EQ(rx.receiver.fields[1], std::nullopt);
}

TEST_F(MdpDFPScanSamples, OfATraceThatBeginsWithItsRangeNeedNoStep)
{
    rx.setFourChannels();
    DfTrace trace;
    trace.stepNumerator = 0;
    trace.stepDenominator = 0;
    rx.receive(trace);
    EXPECT_THAT(log.take(), testing::Contains("map SetChannelValues 0+4"));
}

TEST_F(MdpDFPScanSamples, WorkWithoutAReceiver)
{
    rx.hasReceiver = false;
    rx.setFourChannels();
    rx.receive({});
    EXPECT_THAT(log.take(),
                ElementsAre("map SetTimeStamp 5000", "map SetChannelValues 0+4", "map HasChanged 10"));
}

DfTrace superResolutionTrace(bool littleEndian)
{
    DfTrace trace;
    trace.littleEndian = littleEndian;
    trace.azimuth = {900, 1800};
    trace.superResolutionCount = 2;
    trace.eigenValueCount = 3;
    trace.eigenValues = {1.5F, -2.0F, 3e30F, 4.0F, 5.0F, 6.25F};
    trace.waves = {{1, 2, 3, 4},       {901, 902, 1803, 32'766}, {500, 32'766, 49, 80},
                   {21, 22, 23, 3277}, {-31, 32'766, 33, 34},    {7, 7, 7, 7}};
    return trace;
}

TEST_F(MdpDFPScanSuperResolution, ArraysReachTheReceiverRawInBothByteOrders)
{
    rx.setFourChannels();
    for (const bool littleEndian : {false, true}) {
        rx.receive(superResolutionTrace(littleEndian));
        EXPECT_EQ(log.take().front(), "receive super 2/3 from 100000000 by 25000 span 75000 at 5000 x2");
        EXPECT_THAT(rx.receiver.fields[0], Optional(ElementsAre(900, 1800)));
        EXPECT_THAT(rx.receiver.eigenValues, Optional(ElementsAre(1.5F, -2.0F, 3e30F, 4.0F, 5.0F, 6.25F)));
        EXPECT_THAT(rx.receiver.waves[0], Optional(ElementsAre(1, 2, 3, 4)));
        EXPECT_THAT(rx.receiver.waves[1], Optional(ElementsAre(901, 902, 1803, 32'766)));
        EXPECT_THAT(rx.receiver.waves[2], Optional(ElementsAre(500, 32'766, 49, 80)));
        EXPECT_THAT(rx.receiver.waves[3], Optional(ElementsAre(21, 22, 23, 3277)));
        EXPECT_THAT(rx.receiver.waves[4], Optional(ElementsAre(-31, 32'766, 33, 34)));
    }
}

TEST_F(MdpDFPScanSuperResolution, WavesHaveTheUnitsOfTheSample)
{
    rx.setFourChannels();
    rx.receive(superResolutionTrace(false));
    const auto* const first = rx.at(0).getSuperResolutionSample();
    const auto* const second = rx.at(1).getSuperResolutionSample();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->getCount(), 2);
    EXPECT_EQ(first->getLevel(1), 20);
    EXPECT_EQ(second->getLevel(0), 30);
    EXPECT_EQ(first->getAzimuth(0), 9010);
    EXPECT_EQ(second->getAzimuth(1), 0); // no value
    EXPECT_EQ(first->getQuality(0), 50);
    EXPECT_EQ(first->getQuality(1), 0); // no value
    EXPECT_EQ(second->getQuality(0), 4);
    EXPECT_EQ(first->getFieldStrength(0), 210);
    EXPECT_EQ(second->getFieldStrength(1), -32'766); // wrapped
    EXPECT_EQ(first->getElevation(0), -310);
    EXPECT_EQ(first->getElevation(1), 0); // no value
}

TEST_F(MdpDFPScanSuperResolution, FirstQualityOfAChannelBelowTheThresholdIsZero)
{
    rx.setFourChannels();
    rx.qualityThreshold->SetValue(80);
    rx.receive(superResolutionTrace(false));
    EXPECT_EQ(rx.at(0).getSuperResolutionSample()->getQuality(0), 50);
    EXPECT_EQ(rx.at(1).getSuperResolutionSample()->getQuality(0), 0); // 49
    EXPECT_EQ(rx.at(1).getSuperResolutionSample()->getQuality(1), 8); // only the first
    rx.qualityThreshold->SetValue(49);
    rx.receive(superResolutionTrace(false));
    EXPECT_EQ(rx.at(1).getSuperResolutionSample()->getQuality(0), 4);
}

TEST_F(MdpDFPScanSuperResolution, WithoutAThresholdKeepsEveryQuality)
{
    rx.tree->Remove("/RX/KRT/QUALITYTHRESHOLD");
    rx.setFourChannels();
    DfTrace trace = superResolutionTrace(false);
    trace.waves[2] = {-20, 1, 1, 1};
    rx.receive(trace);
    EXPECT_EQ(rx.at(0).getSuperResolutionSample()->getQuality(0), -2);
}

TEST_F(MdpDFPScanSuperResolution, ArraysOfAbsentBitsAreAbsent)
{
    rx.setFourChannels();
    DfTrace trace = superResolutionTrace(false);
    trace.eigenValues.clear();
    trace.waves = {{}, {901, 902, 1803, 1804}, {}, {}, {31, 32, 33, 34}};
    rx.receive(trace);
    EXPECT_EQ(rx.receiver.eigenValues, std::nullopt);
    EXPECT_EQ(rx.receiver.waves[0], std::nullopt);
    EXPECT_THAT(rx.receiver.waves[1], Optional(ElementsAre(901, 902, 1803, 1804)));
    EXPECT_EQ(rx.receiver.waves[2], std::nullopt);
    EXPECT_EQ(rx.receiver.waves[3], std::nullopt);
    EXPECT_THAT(rx.receiver.waves[4], Optional(ElementsAre(31, 32, 33, 34)));
    EXPECT_EQ(rx.at(0).getSuperResolutionSample()->getLevel(0), values::noLevel);
}

TEST_F(MdpDFPScanSuperResolution, ArraysThatDoNotFitAreAbsentAndAllBehindThem)
{
    rx.setFourChannels();
    DfTrace trace = superResolutionTrace(false);
    trace.waves = {{1, 2, 3, 4}};
    trace.superResolutionFields = 0x7F;
    trace.tail = wire::Bytes(15, 1); // one byte short of azimuth and quality
    rx.receive(trace);
    EXPECT_TRUE(rx.receiver.eigenValues);
    EXPECT_TRUE(rx.receiver.waves[0]);
    EXPECT_TRUE(rx.receiver.waves[1]);
    EXPECT_FALSE(rx.receiver.waves[2]);
    EXPECT_FALSE(rx.receiver.waves[3]);
    EXPECT_FALSE(rx.receiver.waves[4]);
    trace.superResolutionFields = 0x2;
    trace.eigenValues.clear();
    trace.waves = {{1, 2, 3}};
    trace.tail = {};
    rx.receive(trace);
    EXPECT_FALSE(rx.receiver.waves[0]);
    EXPECT_EQ(rx.at(0).getSuperResolutionSample()->getCount(), 2);
}

TEST_F(MdpDFPScanSuperResolution, ArraysAreAbsentWhereTheFieldsRunBeyondTheAttribute)
{
    rx.setFourChannels();
    DfTrace trace = superResolutionTrace(false);
    const std::size_t upToFields = wire::extended::headerSize + trace.optHeaderSize;
    trace.length = static_cast<std::uint32_t>(upToFields) - wire::extended::lengthExcludes;
    rx.receive(trace);
    EXPECT_THAT(rx.receiver.fields[0], Optional(ElementsAre(900, 1800)));
    EXPECT_FALSE(rx.receiver.eigenValues);
    for (const auto& waves : rx.receiver.waves)
        EXPECT_FALSE(waves);
}

TEST_F(MdpDFPScanSuperResolution, FormsFollowCountAndFields)
{
    struct Case {
        qint8 count;
        qint16 fields;
        const char* form;
        bool hasWaves;
    };
    rx.setFourChannels();
    for (const Case& c : std::vector<Case>{{0, 0x7F, "receive plain", false},
                                           {2, 0, "receive plain", true},
                                           {2, 0x80, "receive super 2/0", true},
                                           {-1, 2, "receive super 0/0", false},
                                           {-1, 0, "receive plain", false}}) {
        DfTrace trace = superResolutionTrace(false);
        trace.superResolutionCount = c.count;
        trace.eigenValueCount = -3;
        trace.superResolutionFields = c.fields;
        rx.receive(trace);
        EXPECT_EQ(log.take().front().rfind(c.form, 0), 0U) << c.form << " " << int{c.count};
        EXPECT_EQ(rx.at(0).getSuperResolutionSample() != nullptr, c.hasWaves) << c.form;
        EXPECT_FALSE(c.fields != 0x80 && c.count < 0 && c.fields != 0 && rx.receiver.waves[0]);
    }
}

} // namespace
