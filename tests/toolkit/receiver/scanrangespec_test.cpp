// SPDX-License-Identifier: MIT
// Scan ranges and excluded frequencies as users write them.
#include "toolkit/receiver/scanrangespec.h"
#include <functional>
#include <gmock/gmock.h>

namespace {

using receiver::ExcludedRange;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(ScanRangeSpec, IsAJobItsFrequenciesAndItsStep)
{
    const auto range = receiver::parseScanRange("1:145M-155M/12.5k");

    EXPECT_EQ(range->jobId, 1U);
    EXPECT_EQ(range->startFrequency, 145'000'000U);
    EXPECT_EQ(range->stopFrequency, 155'000'000U);
    EXPECT_EQ(range->step, 12'500.0);
    EXPECT_THAT(range->azimuthSectors, IsEmpty());
}

TEST(ScanRangeSpec, TakesPlainHertzExponentsAndEverySuffix)
{
    const auto range = receiver::parseScanRange("32767:433.0501M-1.3G/6250");
    EXPECT_EQ(range->jobId, 32'767U);
    EXPECT_EQ(range->startFrequency, 433'050'100U);
    EXPECT_EQ(range->stopFrequency, 1'300'000'000U);
    EXPECT_EQ(range->step, 6250.0);
    const auto exponent = receiver::parseScanRange("0:1e8-1.001e8/8.333k");
    EXPECT_EQ(exponent->startFrequency, 100'000'000U);
    EXPECT_EQ(exponent->stopFrequency, 100'100'000U);
    EXPECT_DOUBLE_EQ(exponent->step, 8333.0);
}

TEST(ScanRangeSpec, TakesAzimuthSectorsInTenthsAlsoAcrossNorth)
{
    EXPECT_THAT(receiver::parseScanRange("7:100M-101M/25k@300-30,90.5-359.9")->azimuthSectors,
                ElementsAre(Pair(3000.0, 300.0), Pair(905.0, 3599.0)));
}

TEST(ScanRangeSpec, OfSeveralJobsKeepTheirOrder)
{
    const auto ranges = receiver::parseScanRanges({"8:430M-440M/25k", "2:145M-155M/12.5k"});

    ASSERT_EQ(ranges.size(), 2U);
    EXPECT_EQ(ranges[0]->jobId, 8U);
    EXPECT_EQ(ranges[1]->jobId, 2U);
}

TEST(ExcludedRangeSpec, IsAKindAndItsFrequencies)
{
    const ExcludedRange suppress = receiver::parseExcludedRange("suppress:147M-147.25M");
    EXPECT_EQ(suppress.kind, ExcludedRange::Kind::Suppress);
    EXPECT_EQ(suppress.startHz, 147e6);
    EXPECT_EQ(suppress.stopHz, 147.25e6);
    const ExcludedRange blanking = receiver::parseExcludedRange("blanking:100M-100M");
    EXPECT_EQ(blanking.kind, ExcludedRange::Kind::Blanking);
    EXPECT_EQ(blanking.stopHz, 100e6);
}

std::string refusalOf(const std::function<void()>& parse)
{
    try {
        parse();
    } catch (const receiver::BadRange& bad) {
        return bad.what();
    }
    return "accepted";
}

struct Refused {
    const char* name;
    const char* text;
    const char* why;
};

class RefusedScanRanges : public testing::TestWithParam<Refused> {};

TEST_P(RefusedScanRanges, SayWhatWasExpectedAndWhatCame)
{
    EXPECT_EQ(refusalOf([] { (void)receiver::parseScanRange(GetParam().text); }),
              std::string("'") + GetParam().text +
                  "': expected JOB:START-STOP/STEP, for example 1:145M-155M/12.5k; " + GetParam().why);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RefusedScanRanges,
    testing::Values(
        Refused{"Nothing", "", "the job is missing or no number"},
        Refused{"JobOnly", "1", "':' is missing before the start frequency"},
        Refused{"HalfAJob", "1.5:1M-2M/1k", "the job is no whole number from 0 to 32767"},
        Refused{"JobBeyondTheWire", "32768:1M-2M/1k", "the job is no whole number from 0 to 32767"},
        Refused{"NegativeJob", "-1:1M-2M/1k", "the job is no whole number from 0 to 32767"},
        Refused{"NoStart", "1:-2M/1k", "the start frequency is not within 0 and 1000 GHz"},
        Refused{"NoStop", "1:1M/1k", "'-' is missing before the stop frequency"},
        Refused{"EmptyStop", "1:1M-/1k", "the stop frequency is missing or no number"},
        Refused{"StopBelowStart", "1:2M-1M/1k", "the stop frequency lies below the start frequency"},
        Refused{"NotANumber", "1:nan-1M/1k", "the start frequency is not within 0 and 1000 GHz"},
        Refused{"Infinite", "1:1M-inf/1k", "the stop frequency is not within 0 and 1000 GHz"},
        Refused{"NoStep", "1:1M-2M", "'/' is missing before the step"},
        Refused{"StepZero", "1:1M-2M/0", "the step gives more than 10000000 channels"},
        Refused{"TooManyChannels", "1:1M-2G/100", "the step gives more than 10000000 channels"},
        Refused{"UnknownSuffix", "1:1M-2M/1T", "'T' is too much"},
        Refused{"HalfASector", "1:1M-2M/1k@90", "'-' is missing before the sector's end"},
        Refused{"SectorBeyondTheCircle", "1:1M-2M/1k@90-360", "an azimuth is not within 0 and 359.9 degrees"},
        Refused{"EmptySector", "1:1M-2M/1k@", "an azimuth is missing or no number"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(ScanRangeSpec, IsRefusedForAJobThatComesTwice)
{
    EXPECT_EQ(refusalOf([] {
                  (void)receiver::parseScanRanges({"1:1M-2M/1k", "1:5M-6M/1k"});
              }),
              "'1:5M-6M/1k': expected each job once, found job 1 again; give it another number");
}

TEST(ScanRangeSpec, IsRefusedWhereTheScanGetsTooManyChannels)
{
    EXPECT_EQ(refusalOf([] {
                  (void)receiver::parseScanRanges({"1:0-600M/100", "2:0-600M/100"});
              }),
              "'2:0-600M/100': expected at most 10000000 channels in all scan ranges, found more; take a "
              "larger step");
}

TEST(ExcludedRangeSpec, IsRefusedWithoutAKindOrItsFrequencies)
{
    const std::string expected = "expected suppress:START-STOP or blanking:START-STOP, for example "
                                 "suppress:147M-148M; ";
    EXPECT_EQ(refusalOf([] { (void)receiver::parseExcludedRange("147M-148M"); }),
              "'147M-148M': " + expected + "it begins with neither");
    EXPECT_EQ(refusalOf([] { (void)receiver::parseExcludedRange("blanking:147M"); }),
              "'blanking:147M': " + expected + "'-' is missing before the stop frequency");
    EXPECT_EQ(refusalOf([] { (void)receiver::parseExcludedRange("suppress:1M-2M/1k"); }),
              "'suppress:1M-2M/1k': " + expected + "'/1k' is too much");
}

} // namespace
