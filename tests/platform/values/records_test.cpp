// SPDX-License-Identifier: MIT
// The records of bearing and direction-finding maps, and how they are combined.
#include "values/combiners.h"
#include "values/handlers.h"
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace values;

namespace {

constexpr short none = noLevel;
using Validity = DFSpectrumSample::Validity;

TEST(Bearing, IsSixteenBytesWithTheStampFirstAndTheLevelBehindIt)
{
    const Bearing bearing{0x0807060504030201U, 0x0A09, 0x0C0B, 0x0E0D, 0x100F};
    unsigned char bytes[16];
    static_assert(sizeof(bearing) == sizeof(bytes));
    std::memcpy(bytes, &bearing, sizeof(bytes));
    EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
}

TEST(DFSpectrumSample, BeginsWithoutAnyMeasurement)
{
    const DFSpectrumSample sample;
    EXPECT_EQ(sample.getValidity(), Validity::Unusable);
    EXPECT_EQ(sample.getLevel(), none);
    EXPECT_EQ(sample.getShortTimeLevel(), none);
    EXPECT_EQ(sample.getFieldStrength(), none);
    EXPECT_EQ(sample.getAzimuth(), 0);
    EXPECT_EQ(sample.getElevation(), 0);
    EXPECT_EQ(sample.getQuality(), 0);
    EXPECT_EQ(sample.getSuperResolutionSample(), nullptr);
}

TEST(DFSpectrumSample, HasAPlainPartOfSixteenBytesInAFixedOrder)
{
    DFSpectrumSample sample;
    sample.setValidity(Validity::Blanked);
    sample.setQuality(3);
    sample.setAzimuth(35990);
    sample.setLevel(-12340);
    sample.setShortTimeLevel(5);
    sample.setFieldStrength(6);
    sample.setElevation(-7);
    qint16 words[8];
    static_assert(sizeof(DFSpectrumSample::Fields) == sizeof(words));
    std::memcpy(words, &sample.fields(), sizeof(words));
    EXPECT_THAT(words, ElementsAre(2, 3, static_cast<qint16>(35990), -12340, 5, 6, -7, 0));
    EXPECT_EQ(sample.getAzimuth(), 35990);
    EXPECT_EQ(sample.getValidity(), Validity::Blanked);
    EXPECT_EQ(sample.getQuality(), 3);
    EXPECT_EQ(sample.getLevel(), -12340);
    EXPECT_EQ(sample.getShortTimeLevel(), 5);
    EXPECT_EQ(sample.getFieldStrength(), 6);
    EXPECT_EQ(sample.getElevation(), -7);
}

TEST(DFSpectrumSample, CopiesItsSuperResolutionDataAndMovesIt)
{
    DFSpectrumSample sample;
    sample.createSuperResolutionSample(2).setQuality(0, 50);
    DFSpectrumSample copy = sample;
    EXPECT_EQ(copy, sample);
    copy.getSuperResolutionSample()->setQuality(0, 51);
    EXPECT_FALSE(copy == sample);
    const SuperResolutionSample* const data = sample.getSuperResolutionSample();
    const DFSpectrumSample moved = std::move(sample);
    EXPECT_EQ(moved.getSuperResolutionSample(), data);
    DFSpectrumSample plain;
    plain.setLevel(1);
    copy = plain;
    EXPECT_EQ(copy.getSuperResolutionSample(), nullptr);
    copy = moved;
    EXPECT_EQ(copy, moved);
    const DFSpectrumSample& self = copy;
    copy = self;
    EXPECT_EQ(copy, moved);
}

TEST(DFSpectrumSample, ReusesAndDiscardsItsSuperResolutionData)
{
    DFSpectrumSample sample;
    SuperResolutionSample* const first = &sample.createSuperResolutionSample(3);
    first->setLevel(2, 7);
    EXPECT_EQ(&sample.createSuperResolutionSample(3), first);
    EXPECT_EQ(first->getLevel(2), none) << "emptied";
    sample.discardSuperResolutionSample();
    EXPECT_EQ(sample.getSuperResolutionSample(), nullptr);
    sample.discardSuperResolutionSample();
    EXPECT_EQ(sample, DFSpectrumSample{});
}

TEST(SuperResolutionSample, HoldsItsWaves)
{
    SuperResolutionSample waves(2);
    waves.setQuality(1, 90);
    waves.setLevel(1, -5);
    waves.setFieldStrength(1, 6);
    waves.setAzimuth(1, 35990);
    waves.setElevation(1, -9);
    EXPECT_EQ(waves.getCount(), 2);
    EXPECT_EQ(waves.getQuality(1), 90);
    EXPECT_EQ(waves.getLevel(1), -5);
    EXPECT_EQ(waves.getFieldStrength(1), 6);
    EXPECT_EQ(waves.getAzimuth(1), 35990);
    EXPECT_EQ(waves.getElevation(1), -9);
    EXPECT_EQ(waves.getLevel(0), none);
    EXPECT_EQ(waves.getFieldStrength(0), none);
    EXPECT_EQ(waves.getAzimuth(0), 0);
}

TEST(SuperResolutionSample, IgnoresWavesThatAreNotThere)
{
    SuperResolutionSample waves(1);
    waves.setLevel(1, 5);
    waves.setLevel(-1, 5);
    EXPECT_EQ(waves.getLevel(1), 0);
    EXPECT_EQ(waves.getLevel(-1), 0);
    EXPECT_EQ(waves, SuperResolutionSample(1));
    EXPECT_EQ(SuperResolutionSample(-3).getCount(), 0);
}

TEST(HoldCombiner, KeepsTheHighestOrTheLowestLevelOfEachChannel)
{
    HoldCombiner<short, levelHandler> highest;
    HoldCombiner<short, levelHandler> lowest(Hold::Lowest);
    for (const std::vector<short>& scan :
         {std::vector<short>{1, 5, none, none}, {3, 2, 7, none}, {2, none, 1, none}}) {
        highest.Add(scan);
        lowest.Add(scan);
    }
    EXPECT_THAT(highest.GetValues(), ElementsAre(3, 5, 7, none));
    EXPECT_THAT(lowest.GetValues(), ElementsAre(1, 2, 1, none));
    highest.Reset();
    EXPECT_THAT(highest.GetValues(), IsEmpty());
}

TEST(HoldCombiner, KeepsWholeRecordsByTheirLevel)
{
    HoldCombiner<Bearing, BearingHandler> highest;
    highest.Add(std::vector<Bearing>{{1, 10, 100, 0, 0}, {}});
    highest.Add(std::vector<Bearing>{{2, 20, 200, 0, 0}, {2, 5, 50, 0, 0}});
    highest.Add(std::vector<Bearing>{{3, 15, 300, 0, 0}, {}});
    EXPECT_THAT(highest.GetValues(), ElementsAre(Bearing{2, 20, 200, 0, 0}, Bearing{2, 5, 50, 0, 0}));
}

TEST(HoldCombiner, StartsAfreshWithAScanOfAnotherSize)
{
    HoldCombiner<short, levelHandler> highest;
    highest.Add(std::vector<short>{9, 9});
    highest.Add(std::vector<short>{1, 2, 3});
    EXPECT_THAT(highest.GetValues(), ElementsAre(1, 2, 3));
}

TEST(AverageCombiner, AveragesTheMeasuredLevels)
{
    AverageCombiner<short, levelHandler> average;
    average.Add(std::vector<short>{10, none, -3, none});
    average.Add(std::vector<short>{20, 8, -4, none});
    average.Add(std::vector<short>{33, none, -3, none});
    EXPECT_THAT(average.GetValues(), ElementsAre(21, 8, -3, none));
    average.Add(std::vector<short>{1});
    EXPECT_THAT(average.GetValues(), ElementsAre(1)) << "another size starts afresh";
    average.Reset();
    EXPECT_THAT(average.GetValues(), IsEmpty());
}

TEST(AverageCombiner, LetsOldScansFadeWithAWindow)
{
    AverageCombiner<short, levelHandler> average(2);
    for (const short level : std::vector<short>{0, 0, 0, 0, 100})
        average.Add(std::vector<short>{level});
    EXPECT_THAT(average.GetValues(), ElementsAre(50));
    average.Add(std::vector<short>{100});
    EXPECT_THAT(average.GetValues(), ElementsAre(75));
}

TEST(AverageCombiner, NeverAveragesToTheNumberForNoValue)
{
    AverageCombiner<short, levelHandler> average;
    average.Add(std::vector<short>{32765});
    average.Add(std::vector<short>{32767});
    EXPECT_THAT(average.GetValues(), ElementsAre(32765));
}

TEST(AverageCombiner, AveragesDirectionsAcrossNorth)
{
    AverageCombiner<Bearing, BearingHandler> average;
    average.Add(std::vector<Bearing>{{0, 100, 35900, 10, 80}, {}});
    average.Add(std::vector<Bearing>{{0, 200, 100, 20, 80}, {}});
    ASSERT_EQ(average.GetValues().size(), 2U);
    EXPECT_EQ(average.GetValues()[0], (Bearing{0, 150, 0, 15, 80}));
    EXPECT_EQ(average.GetValues()[1], Bearing{});
}

TEST(AverageCombiner, TrustsGoodBearingsMore)
{
    AverageCombiner<Bearing, BearingHandler> average;
    average.Add(std::vector<Bearing>{{0, 100, 9000, 0, 100}});
    average.Add(std::vector<Bearing>{{0, 100, 18000, 0, 0}});
    EXPECT_NEAR(average.GetValues()[0].azimuth, 9057, 1) << "atan(1 / 100) beyond east";
}

TEST(AverageCombiner, CountsOnlyValidDirectionFindingSamples)
{
    DFSpectrumSample valid;
    valid.setValidity(Validity::Valid);
    valid.setLevel(100);
    valid.setAzimuth(27000);
    valid.setElevation(-20);
    valid.setQuality(60);
    valid.createSuperResolutionSample(1);
    DFSpectrumSample blanked = valid;
    blanked.setValidity(Validity::Blanked);
    blanked.setLevel(9000);
    AverageCombiner<DFSpectrumSample, DFSpectrumSampleHandler> average;
    average.Add(std::vector<DFSpectrumSample>{valid, blanked});
    average.Add(std::vector<DFSpectrumSample>{blanked, blanked});
    const std::vector<DFSpectrumSample> result = average.GetValues();
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(result[0].getValidity(), Validity::Valid);
    EXPECT_EQ(result[0].getLevel(), 100);
    EXPECT_EQ(result[0].getAzimuth(), 27000);
    EXPECT_EQ(result[0].getElevation(), -20);
    EXPECT_EQ(result[0].getQuality(), 60);
    EXPECT_EQ(result[0].getSuperResolutionSample(), nullptr);
    EXPECT_EQ(result[1], DFSpectrumSample{});
}

} // namespace
