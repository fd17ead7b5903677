// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include "support/listener.h"
#include "support/recording_map.h"
#include "values/fastvaluemap.h"
#include "values/tree.h"
#include <gmock/gmock.h>
#include <limits>

using support::EffectLog;
using support::Listener;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace values;

namespace {

constexpr short none = noLevel;

ChannelRangeDefinition gridOf(unsigned int first, unsigned int count)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(first, count, 100.0, 25.0, QString());
    return grid;
}

class LevelMapTest : public testing::Test {
protected:
    LevelMapTest()
    {
        map.SetChannelRangeDefinition(gridOf(10, 5), 10);
        map.AddObserver(&listener);
    }
    std::vector<short> content() const { return {map.GetValues().begin(), map.GetValues().end()}; }

    EffectLog log;
    Listener listener{log};
    LevelMap map{"LEVELS"};
    const std::vector<short> levels{1, 2, 3, 4, 5, 6, 7, 8};
};

TEST_F(LevelMapTest, HasAClearedValueForEveryChannelOfItsGrid)
{
    EXPECT_THAT(content(), ElementsAre(none, none, none, none, none));
    EXPECT_EQ(map.GetChannelRangeDefinition(), gridOf(10, 5));
}

TEST_F(LevelMapTest, IsEmptyWithoutAGrid)
{
    const LevelMap fresh;
    EXPECT_THAT(fresh.GetValues(), IsEmpty());
    EXPECT_TRUE(fresh.GetChannelRangeDefinition().empty());
    EXPECT_EQ(fresh.FindChannelValue(0), nullptr);
}

TEST_F(LevelMapTest, ClearsItsValuesForANewGridAndNotifiesWithTheGivenCode)
{
    map.SetChannelValues(10, 5, levels.data());
    map.SetChannelRangeDefinition(gridOf(0, 5), 12);
    EXPECT_THAT(content(), Each(none));
    EXPECT_THAT(log.take(), ElementsAre("update 12"));
    map.SetChannelRangeDefinition(gridOf(0, 2), 10);
    EXPECT_THAT(content(), ElementsAre(none, none));
    map.SetChannelRangeDefinition({}, 10);
    EXPECT_THAT(content(), IsEmpty());
}

TEST_F(LevelMapTest, TakesItsOwnGridAgain)
{
    map.SetChannelValues(10, 5, levels.data());
    map.SetChannelRangeDefinition(map.GetChannelRangeDefinition(), 10);
    EXPECT_EQ(map.GetChannelRangeDefinition(), gridOf(10, 5));
    EXPECT_THAT(content(), Each(none));
}

TEST_F(LevelMapTest, RefusesAGridThatNeedsTooMuchMemoryAndStaysAsItIs)
{
    map.SetChannelValues(10, 5, levels.data());
    EXPECT_THROW(map.SetChannelRangeDefinition(gridOf(0, (1U << 29) + 1), 10), NQException);
    map.SetMemoryLimit(11);
    EXPECT_NO_THROW(map.SetChannelRangeDefinition(gridOf(10, 5), 10));
    map.SetChannelValues(10, 5, levels.data());
    log.clear();
    EXPECT_THROW(map.SetChannelRangeDefinition(gridOf(0, 6), 10), NQException);
    EXPECT_EQ(map.GetChannelRangeDefinition(), gridOf(10, 5));
    EXPECT_THAT(content(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LevelMapTest, CountsTheIdsBetweenItsRangesForTheMemory)
{
    ChannelRangeDefinition apart = gridOf(0, 1);
    apart.AddRangeDefinition(0x7FFFFFFF, 1, 0.0, 1.0, QString());
    EXPECT_THROW(map.SetChannelRangeDefinition(apart, 10), NQException);
}

TEST_F(LevelMapTest, WritesWithoutNotifying)
{
    map.SetChannelValues(11, 3, levels.data());
    EXPECT_THAT(content(), ElementsAre(none, 1, 2, 3, none));
    EXPECT_THAT(log.take(), IsEmpty());
    ASSERT_NE(map.FindChannelValue(12), nullptr);
    EXPECT_EQ(*map.FindChannelValue(12), 2);
    EXPECT_EQ(map.FindChannelValue(15), nullptr);
}

struct ClipCase {
    const char* name;
    long first;
    unsigned int count;
    std::vector<short> content;
};

class LevelMapClip : public testing::TestWithParam<ClipCase> {};

TEST_P(LevelMapClip, WritesWhatTheGridHas)
{
    LevelMap map;
    map.SetChannelRangeDefinition(gridOf(10, 5), 10);
    const std::vector<short> levels{1, 2, 3, 4, 5, 6, 7, 8};
    map.SetChannelValues(GetParam().first, GetParam().count, levels.data());
    EXPECT_THAT(map.GetValues(), testing::ElementsAreArray(GetParam().content));
}

INSTANTIATE_TEST_SUITE_P(Cases, LevelMapClip,
                         testing::Values(ClipCase{"All", 10, 5, {1, 2, 3, 4, 5}},
                                         ClipCase{"BeyondTheEnd", 13, 8, {none, none, none, 1, 2}},
                                         ClipCase{"BeforeTheBeginning", 7, 5, {4, 5, none, none, none}},
                                         ClipCase{"OnBothSides", 9, 8, {2, 3, 4, 5, 6}},
                                         ClipCase{"OneAtTheEnd", 14, 1, {none, none, none, none, 1}},
                                         ClipCase{"FromANegativeChannel", 3, 8, {8, none, none, none, none}}),
                         [](const auto& test) { return test.param.name; });

TEST_F(LevelMapTest, ThrowsForChannelsWhollyOutsideAndChangesNothing)
{
    map.SetChannelValues(10, 5, levels.data());
    map.EndOfScan(); // the next write would clear first
    EXPECT_THROW(map.SetChannelValues(15, 3, levels.data()), NQException);
    EXPECT_THROW(map.SetChannelValues(5, 5, levels.data()), NQException);
    EXPECT_THROW(map.SetChannelValues(-3, 3, levels.data()), NQException);
    EXPECT_THROW(map.SetChannelValues(std::numeric_limits<long>::max(), 0xFFFFFFFFU, levels.data()),
                 NQException);
    EXPECT_THROW(map.SetChannelValues(std::numeric_limits<long>::min(), 0xFFFFFFFFU, levels.data()),
                 NQException);
    EXPECT_THAT(content(), ElementsAre(1, 2, 3, 4, 5));
    LevelMap fresh;
    EXPECT_THROW(fresh.SetChannelValues(0, 1, levels.data()), NQException);
}

TEST_F(LevelMapTest, DoesNothingForANullSourceOrACountOfZeroWhereverTheyPoint)
{
    map.SetChannelValues(10, 5, levels.data());
    map.EndOfScan();
    EXPECT_NO_THROW(map.SetChannelValues(99, 3, nullptr));
    EXPECT_NO_THROW(map.SetChannelValues(99, 0, levels.data()));
    EXPECT_NO_THROW(map.SetChannelValues(10, 0, levels.data()));
    EXPECT_THAT(content(), ElementsAre(1, 2, 3, 4, 5));
}

struct ClearCase {
    const char* name;
    long first;
    unsigned int last;
    std::vector<short> content;
};

class LevelMapClear : public testing::TestWithParam<ClearCase> {};

TEST_P(LevelMapClear, ClearsValuesAndNeverTheGrid)
{
    LevelMap map;
    map.SetChannelRangeDefinition(gridOf(10, 5), 10);
    const std::vector<short> levels{1, 2, 3, 4, 5};
    map.SetChannelValues(10, 5, levels.data());
    map.ClearChannelRange(GetParam().first, GetParam().last);
    EXPECT_THAT(map.GetValues(), testing::ElementsAreArray(GetParam().content));
    EXPECT_EQ(map.GetChannelRangeDefinition(), gridOf(10, 5));
}

INSTANTIATE_TEST_SUITE_P(Cases, LevelMapClear,
                         testing::Values(ClearCase{"BothEndsIncluded", 11, 13, {1, none, none, none, 5}},
                                         ClearCase{"One", 12, 12, {1, 2, none, 4, 5}},
                                         ClearCase{"All", -1, 0xFFFFFFFFU, {none, none, none, none, none}},
                                         ClearCase{"WhatTheGridHas", 14, 99, {1, 2, 3, 4, none}},
                                         ClearCase{"NothingOutside", 15, 99, {1, 2, 3, 4, 5}},
                                         ClearCase{"NothingBackwards", 13, 11, {1, 2, 3, 4, 5}}),
                         [](const auto& test) { return test.param.name; });

TEST_F(LevelMapTest, ClearsWithoutNotifying)
{
    map.ClearChannelRange(-1, 0xFFFFFFFFU);
    EXPECT_THAT(log.take(), IsEmpty());
    LevelMap fresh;
    EXPECT_NO_THROW(fresh.ClearChannelRange(0, 0));
}

TEST_F(LevelMapTest, KeepsValuesReadableAfterTheScanAndClearsTheOthersWithTheNextWrite)
{
    map.SetChannelValues(10, 5, levels.data());
    map.EndOfScan();
    EXPECT_THAT(content(), ElementsAre(1, 2, 3, 4, 5));
    map.SetChannelValues(12, 2, levels.data());
    EXPECT_THAT(content(), ElementsAre(none, none, 1, 2, none));
    map.SetChannelValues(10, 1, levels.data());
    EXPECT_THAT(content(), ElementsAre(1, none, 1, 2, none)) << "only the first write of a scan clears";
}

TEST_F(LevelMapTest, KeepsValuesUntilTheyAreOverwrittenWhenToldSo)
{
    map.setKeepScanDataAfterEndOfScan(true);
    EXPECT_TRUE(map.getKeepScanDataAfterEndOfScan());
    map.SetChannelValues(10, 5, levels.data());
    map.EndOfScan();
    map.SetChannelValues(12, 2, levels.data());
    EXPECT_THAT(content(), ElementsAre(1, 2, 1, 2, 5));
    map.setKeepScanDataAfterEndOfScan(false);
    map.SetChannelValues(10, 1, levels.data());
    EXPECT_THAT(content(), ElementsAre(1, 2, 1, 2, 5)) << "the scan has begun already";
}

TEST_F(LevelMapTest, CountsScansAndStampsThemWithoutNotifying)
{
    EXPECT_EQ(map.GetScanCount(), 0U);
    map.SetTimeStamp(1000);
    map.EndOfScan();
    EXPECT_EQ(map.GetScanCount(), 1U);
    EXPECT_EQ(map.GetEndOfScanTimeStamp(), 1000U);
    map.SetEndOfScan(1500);
    EXPECT_EQ(map.GetScanCount(), 2U);
    EXPECT_EQ(map.GetEndOfScanTimeStamp(), 1500U);
    EXPECT_EQ(map.GetTimeStamp(), 1000U) << "the stamp of the scan is not that of its end";
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LevelMapTest, LeavesTheOriginatorOut)
{
    map.HasChanged(10, &listener);
    EXPECT_THAT(log.take(), IsEmpty());
    map.HasChanged(10);
    EXPECT_THAT(log.take(), ElementsAre("update 10"));
}

TEST_F(LevelMapTest, IsAValueOfTheTree)
{
    Tree tree;
    const auto bearings = tree.Create<BearingMap>("/P", "RXBEARINGMAPPING");
    const auto levelMap = tree.Create<LevelMap>("/P", "LEVELS");
    levelMap->SetChannelRangeDefinition(gridOf(0, 3), 10);
    levelMap->EndOfScan();
    EXPECT_EQ(levelMap->ToText(), QStringLiteral("3 channels, 1 scans"));
    EXPECT_EQ(levelMap->GetTypeName(), QStringLiteral("levels"));
    EXPECT_EQ(bearings->GetTypeName(), QStringLiteral("bearings"));
    EXPECT_EQ(DFSpectrumMap{}.GetTypeName(), QStringLiteral("direction-finding spectrum"));
    EXPECT_EQ(tree.Find<MappingBase>("/P/LEVELS"), levelMap);
    EXPECT_EQ(tree.Find<LevelMap>("/P/RXBEARINGMAPPING"), nullptr);
}

TEST_F(LevelMapTest, MayGetAnotherGridFromInsideItsNotification)
{
    listener.onUpdate = [&](Observable*) {
        map.RemoveObserver(&listener);
        map.SetChannelRangeDefinition(gridOf(0, 2), 10);
    };
    map.SetChannelRangeDefinition(gridOf(0, 7), 10);
    EXPECT_THAT(content(), ElementsAre(none, none));
}

TEST(BearingMap, HoldsBearings)
{
    BearingMap map;
    map.SetChannelRangeDefinition(gridOf(0, 3), 10);
    const std::vector<Bearing> bearings{{0, 10, 20, 30, 40}, {1, 11, 21, 31, 41}};
    map.SetChannelValues(1, 2, bearings.data());
    EXPECT_THAT(map.GetValues(), ElementsAre(Bearing{}, bearings[0], bearings[1]));
    map.ClearChannelRange(1, 1);
    EXPECT_THAT(map.GetValues(), ElementsAre(Bearing{}, Bearing{}, bearings[1]));
}

class DFSpectrumMapTest : public testing::Test {
protected:
    DFSpectrumMapTest() { map.SetChannelRangeDefinition(gridOf(0, 600), 10); }

    static std::vector<DFSpectrumSample> samples(std::size_t count)
    {
        std::vector<DFSpectrumSample> all(count);
        for (std::size_t i = 0; i < count; ++i) {
            all[i].setLevel(static_cast<qint16>(i));
            all[i].setAzimuth(static_cast<quint16>(i * 3));
        }
        return all;
    }
    DFSpectrumMap map;
};

TEST_F(DFSpectrumMapTest, CopiesPlainSamples)
{
    const std::vector<DFSpectrumSample> all = samples(600);
    map.SetChannelValues(0, 600, all.data());
    EXPECT_THAT(map.GetValues(), testing::ElementsAreArray(all));
}

TEST_F(DFSpectrumMapTest, CopiesSuperResolutionDataIntoOwnMemory)
{
    std::vector<DFSpectrumSample> all = samples(600);
    all[299].createSuperResolutionSample(2).setAzimuth(1, 7);
    map.SetChannelValues(0, 600, all.data());
    EXPECT_THAT(map.GetValues(), testing::ElementsAreArray(all));
    EXPECT_NE(map.GetValues()[299].getSuperResolutionSample(), all[299].getSuperResolutionSample());
    all[299].getSuperResolutionSample()->setAzimuth(1, 8);
    EXPECT_EQ(map.GetValues()[299].getSuperResolutionSample()->getAzimuth(1), 7);
}

TEST_F(DFSpectrumMapTest, FindsSuperResolutionDataInAnySampleOfAnyBlock)
{
    for (unsigned int count = 1; count <= 9; ++count) {
        for (unsigned int which = 0; which < count; ++which) {
            std::vector<DFSpectrumSample> all = samples(count);
            all[which].createSuperResolutionSample(1).setLevel(0, 5);
            map.SetChannelValues(250, count, all.data());
            const DFSpectrumSample& written = map.GetValues()[250 + which];
            ASSERT_EQ(written, all[which]) << which << " of " << count;
            ASSERT_NE(written.getSuperResolutionSample(), all[which].getSuperResolutionSample());
        }
    }
}

TEST_F(DFSpectrumMapTest, LeavesNoSuperResolutionDataBehindWhenAllIsOverwritten)
{
    {
        std::vector<DFSpectrumSample> all = samples(600);
        for (DFSpectrumSample& sample : all)
            sample.createSuperResolutionSample(1);
        map.SetChannelValues(0, 600, all.data());
    }
    EXPECT_TRUE(SuperResolutionSample::anyAlive());
    map.SetChannelValues(0, 600, samples(600).data());
    EXPECT_FALSE(SuperResolutionSample::anyAlive());
}

TEST_F(DFSpectrumMapTest, FreesSuperResolutionDataThatPlainSamplesOverwrite)
{
    std::vector<DFSpectrumSample> all = samples(600);
    for (DFSpectrumSample& sample : all)
        sample.createSuperResolutionSample(1);
    map.SetChannelValues(0, 600, all.data());
    const std::vector<DFSpectrumSample> plain = samples(300);
    map.SetChannelValues(150, 300, plain.data());
    EXPECT_EQ(map.GetValues()[150].getSuperResolutionSample(), nullptr);
    EXPECT_EQ(map.GetValues()[449].getSuperResolutionSample(), nullptr);
    EXPECT_NE(map.GetValues()[149].getSuperResolutionSample(), nullptr);
    EXPECT_NE(map.GetValues()[450].getSuperResolutionSample(), nullptr);
    map.ClearChannelRange(-1, 0xFFFFFFFFU);
    EXPECT_THAT(map.GetValues(), Each(DFSpectrumSample{}));
}

TEST(RecordingMaps, TellOfEveryCallInTheirOrderAndStillWork)
{
    EffectLog log;
    support::RecordingBearingMap map(log, "map");
    map.SetChannelRangeDefinition(gridOf(0, 2), 10);
    map.SetTimeStamp(5);
    const Bearing bearing{0, 7, 0, 0, 0};
    map.SetChannelValues(1, 1, &bearing);
    map.SetEndOfScan(6);
    map.EndOfScan();
    map.ClearChannelRange(0, 0);
    EXPECT_THAT(log.take(), ElementsAre("map SetChannelRangeDefinition 2 10", "map HasChanged 10",
                                        "map SetTimeStamp 5", "map SetChannelValues 1+1",
                                        "map SetEndOfScan 6", "map EndOfScan", "map ClearChannelRange 0 0"));
    EXPECT_EQ(map.GetValues()[1], bearing);
    EXPECT_EQ(map.GetScanCount(), 2U);
}

} // namespace
