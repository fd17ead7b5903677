// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include "support/allocation_count.h"
#include "values/channelrangedefinition.h"
#include <gmock/gmock.h>
#include <limits>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using values::ChannelRangeDefinition;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

ChannelRangeDefinition gridOf(unsigned int first, unsigned int count, double start, double step)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(first, count, start, step, QStringLiteral("a"));
    return grid;
}

// Two jobs, one after the other on the axis, with ids in the other order.
ChannelRangeDefinition twoJobs()
{
    ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    grid.AddRangeDefinition(0, 3, 1000.0, 12.5, QStringLiteral("b"));
    return grid;
}

TEST(ChannelRangeDefinitionEmpty, HasNoChannelsAndAnswersNothing)
{
    const ChannelRangeDefinition grid;
    EXPECT_TRUE(grid.empty());
    EXPECT_THAT(grid.GetRanges(), IsEmpty());
    EXPECT_EQ(grid.GetMinChannelId(), 0U);
    EXPECT_EQ(grid.GetMaxChannelId(), 0U);
    EXPECT_EQ(grid.GetChannelCount(), 0U);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(0.0), IsEmpty());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(0.0, 1.0), IsEmpty());
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(0.0, 1.0, 1.0), 0U);
    EXPECT_THROW(static_cast<void>(grid.ChannelIdToFrequency(0)), NQException);
    EXPECT_THROW(static_cast<void>(grid.GetFrequencyStepForChannelId(0)), NQException);
}

TEST(ChannelRangeDefinitionEmpty, IsNotAGridOfRangesWithoutChannels)
{
    const ChannelRangeDefinition grid = gridOf(7, 0, 100.0, 25.0);
    EXPECT_FALSE(grid.empty());
    EXPECT_EQ(grid.GetChannelCount(), 0U);
    EXPECT_EQ(grid.GetMinChannelId(), 0U);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(100.0), IsEmpty());
    EXPECT_THROW(static_cast<void>(grid.ChannelIdToFrequency(7)), NQException);
}

TEST(ChannelRangeDefinitionIds, SpanAllRanges)
{
    const ChannelRangeDefinition grid = twoJobs();
    EXPECT_EQ(grid.GetMinChannelId(), 0U);
    EXPECT_EQ(grid.GetMaxChannelId(), 14U);
    EXPECT_EQ(grid.GetChannelCount(), 8U);
    EXPECT_EQ(grid.GetRanges().at(1).name, QStringLiteral("b"));
}

TEST(ChannelRangeDefinitionIds, HavePositionAndStepOfTheirRange)
{
    const ChannelRangeDefinition grid = twoJobs();
    EXPECT_EQ(grid.ChannelIdToFrequency(10), 100.0);
    EXPECT_EQ(grid.ChannelIdToFrequency(14), 200.0);
    EXPECT_EQ(grid.ChannelIdToFrequency(2), 1025.0);
    EXPECT_EQ(grid.GetFrequencyStepForChannelId(2), 12.5);
    EXPECT_THROW(static_cast<void>(grid.ChannelIdToFrequency(3)), NQException);
    EXPECT_THROW(static_cast<void>(grid.GetFrequencyStepForChannelId(15)), NQException);
}

TEST(ChannelRangeDefinitionIds, BelongToTheFirstRangeThatHoldsThem)
{
    ChannelRangeDefinition grid = gridOf(2, 3, 100.0, 25.0);
    grid.AddRangeDefinition(0, 10, 1000.0, 1.0, QString());
    EXPECT_EQ(grid.ChannelIdToFrequency(1), 1001.0);
    EXPECT_EQ(grid.ChannelIdToFrequency(2), 100.0);
    EXPECT_EQ(grid.ChannelIdToFrequency(5), 1005.0);
}

TEST(ChannelRangeDefinitionIds, LieAtStartPlusNumberTimesStepEvaluatedJustSo)
{
    const ChannelRangeDefinition grid = gridOf(0, 1000, 0.1, 0.1);
    EXPECT_EQ(grid.ChannelIdToFrequency(2), 0.1 + 2 * 0.1);
    EXPECT_EQ(grid.ChannelIdToFrequency(999), 0.1 + 999 * 0.1);
}

TEST(ChannelRangeDefinitionLimits, AreHeldForIdsAndSums)
{
    ChannelRangeDefinition grid;
    EXPECT_NO_THROW(grid.AddRangeDefinition(0, 0x80000000U, 0.0, 1.0, QString()));
    EXPECT_THROW(grid.AddRangeDefinition(0, 1, 0.0, 1.0, QString()), NQException);
    EXPECT_EQ(grid.GetRanges().size(), 1U) << "nothing changed";
    ChannelRangeDefinition other;
    EXPECT_THROW(other.AddRangeDefinition(1, 0x80000000U, 0.0, 1.0, QString()), NQException);
    EXPECT_THROW(other.AddRangeDefinition(0x80000000U, 1, 0.0, 1.0, QString()), NQException);
    EXPECT_THROW(other.AddRangeDefinition(0xFFFFFFFFU, 0xFFFFFFFFU, 0.0, 1.0, QString()), NQException);
    EXPECT_TRUE(other.empty());
    EXPECT_NO_THROW(other.AddRangeDefinition(0x7FFFFFFFU, 1, 5.0, 1.0, QString()));
    EXPECT_EQ(other.ChannelIdToFrequency(0x7FFFFFFFU), 5.0);
}

TEST(ChannelRangeDefinitionClosest, IsTheNearestChannelTheFirstOnATie)
{
    const ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(100.0), ElementsAre(10));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(112.4), ElementsAre(10));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(112.5), ElementsAre(10));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(112.6), ElementsAre(11));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(200.0), ElementsAre(14));
}

TEST(ChannelRangeDefinitionClosest, IsNothingOutsideAllRanges)
{
    const ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(99.9), IsEmpty());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(200.1), IsEmpty());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(nan), IsEmpty());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(infinity), IsEmpty());
}

TEST(ChannelRangeDefinitionClosest, HasOneIdForEachRangeInTheirOrder)
{
    ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    grid.AddRangeDefinition(0, 5, 150.0, 10.0, QString());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(161.0), ElementsAre(12, 1));
}

TEST(ChannelRangeDefinitionClosest, GoesDownwardsWithANegativeStep)
{
    const ChannelRangeDefinition grid = gridOf(0, 5, 200.0, -25.0);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(100.0), ElementsAre(4));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(180.0), ElementsAre(1));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(187.5), ElementsAre(0));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(201.0), IsEmpty());
}

TEST(ChannelRangeDefinitionClosest, IsDefinedWhateverTheStep)
{
    EXPECT_THAT(gridOf(3, 5, 100.0, 0.0).GetClosestChannelIdsForFrequency(100.0), ElementsAre(3));
    EXPECT_THAT(gridOf(3, 5, 100.0, 0.0).GetClosestChannelIdsForFrequency(100.1), IsEmpty());
    EXPECT_THAT(gridOf(3, 5, 100.0, infinity).GetClosestChannelIdsForFrequency(1e300), ElementsAre(3));
    EXPECT_THAT(gridOf(3, 5, 100.0, infinity).GetClosestChannelIdsForFrequency(99.0), IsEmpty());
    EXPECT_THAT(gridOf(3, 1, 100.0, infinity).GetClosestChannelIdsForFrequency(100.0), IsEmpty())
        << "0 x infinity is no limit";
    EXPECT_THAT(gridOf(3, 5, 100.0, nan).GetClosestChannelIdsForFrequency(100.0), IsEmpty());
    EXPECT_THAT(gridOf(3, 5, nan, 1.0).GetClosestChannelIdsForFrequency(100.0), IsEmpty());
    EXPECT_THAT(gridOf(3, 5, 0.0, 1e308).GetClosestChannelIdsForFrequency(1.7e308), ElementsAre(4))
        << "the positions behind 1e308 are infinite, 2e308 among them";
    EXPECT_THAT(gridOf(3, 5, 0.0, 1e308).GetClosestChannelIdsForFrequency(infinity), ElementsAre(5));
}

TEST(ChannelRangeDefinitionClosest, IsTheFirstOfTheChannelsThatRoundingPutsAtOnePlace)
{
    // Above 2^53 every second whole number is lost.
    const ChannelRangeDefinition grid = gridOf(0, 100, 9007199254740992.0, 0.25);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(9007199254740994.0), ElementsAre(5));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(9007199254740992.0), ElementsAre(0));
}

TEST(ChannelRangeDefinitionClosest, DoesNotWalkTwoThousandMillionChannels)
{
    const ChannelRangeDefinition grid = gridOf(0, 0x80000000U, 0.0, 0.001);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequency(2000000.0), ElementsAre(2000000000U));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(1000.0, 1000.002),
                ElementsAre(1000000, 1000001, 1000002));
}

TEST(ChannelRangeDefinitionClosest, OfAPairAreAllFromOneNearestToTheOther)
{
    const ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(130.0, 180.0), ElementsAre(11, 12, 13));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(130.0, 131.0), ElementsAre(11));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(180.0, 130.0), ElementsAre(13, 12, 11));
}

TEST(ChannelRangeDefinitionClosest, OfAPairEndWithTheRange)
{
    const ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(175.0, 1e9), ElementsAre(13, 14));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(125.0, -infinity), ElementsAre(11, 10));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(125.0, nan), ElementsAre(11));
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(99.0, 125.0), IsEmpty())
        << "the first one has to lie in a range";
}

TEST(ChannelRangeDefinitionClosest, OfAPairComeFromEveryRangeThatContainsTheFirst)
{
    ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    grid.AddRangeDefinition(0, 5, 150.0, 10.0, QString());
    grid.AddRangeDefinition(20, 5, 170.0, 10.0, QString());
    EXPECT_THAT(grid.GetClosestChannelIdsForFrequencyRange(160.0, 180.0), ElementsAre(12, 13, 1, 2, 3));
}

TEST(ChannelRangeDefinitionClosest, OfAPairAreRefusedWhenTheyAreTooMany)
{
    const ChannelRangeDefinition grid = gridOf(0, 0x80000000U, 0.0, 1.0);
    EXPECT_THROW(static_cast<void>(grid.GetClosestChannelIdsForFrequencyRange(0.0, 1e9)), NQException);
    EXPECT_EQ(grid.GetClosestChannelIdsForFrequencyRange(0.0, 99999.0).size(), 100000U);
}

TEST(ChannelRangeDefinitionFindFirst, PrefersTheRangeWithExactlyThatStep)
{
    ChannelRangeDefinition grid = gridOf(50, 9, 90.0, 12.5);
    grid.AddRangeDefinition(10, 5, 100.0, 25.0, QString());
    grid.AddRangeDefinition(30, 5, 100.0, 25.0, QString());
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(100.0, 25.0, 190.0), 10U);
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(100.0, 12.5, 190.0), 50U);
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(100.0, 24.999999, 190.0), 50U)
        << "no range has that step: the first that contains both ends";
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(100.0, 12.5, 200.0), 10U)
        << "the one with that step does not reach to 200";
}

TEST(ChannelRangeDefinitionFindFirst, IsTheLowestIdWhereNoRangeContainsBothEnds)
{
    ChannelRangeDefinition grid = gridOf(50, 5, 100.0, 25.0);
    grid.AddRangeDefinition(10, 5, 200.0, 25.0, QString());
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(100.0, 25.0, 225.0), 10U);
    EXPECT_EQ(grid.FindFirstChannel4RangeDefinition(nan, 25.0, 225.0), 10U);
}

TEST(ChannelRangeDefinitionCopy, IsIndependentOfItsOriginal)
{
    ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    const ChannelRangeDefinition copy = grid;
    EXPECT_EQ(copy, grid);
    grid.AddRangeDefinition(20, 5, 300.0, 25.0, QString());
    EXPECT_EQ(copy.GetRanges().size(), 1U);
    EXPECT_EQ(grid.GetRanges().size(), 2U);
    EXPECT_FALSE(copy == grid);
}

TEST(ChannelRangeDefinitionCopy, OfTheGridItselfChangesNothing)
{
    ChannelRangeDefinition grid = twoJobs();
    const ChannelRangeDefinition& self = grid;
    grid = self;
    EXPECT_EQ(grid, twoJobs());
}

TEST(ChannelRangeDefinitionCopy, AllocatesNothing)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "the sanitizer has an allocator of its own";
    const ChannelRangeDefinition grid = twoJobs();
    const std::size_t before = support::allocationCount();
    ChannelRangeDefinition copy = grid;
    ChannelRangeDefinition assigned;
    assigned = copy;
    EXPECT_EQ(support::allocationCount(), before);
    EXPECT_EQ(assigned.GetChannelCount(), 8U);
}

TEST(ChannelRangeDefinitionCopy, IsLeftEmptyWhenMovedFrom)
{
    ChannelRangeDefinition grid = twoJobs();
    const ChannelRangeDefinition moved = std::move(grid);
    EXPECT_EQ(moved, twoJobs());
    grid = ChannelRangeDefinition{}; // what was moved from can be used again
    EXPECT_TRUE(grid.empty());
}

TEST(ChannelRangeDefinitionCopy, MayBeReadAndDroppedInAnotherThread)
{
    ChannelRangeDefinition grid = twoJobs();
    for (unsigned int i = 0; i < 20; ++i)
        grid.AddRangeDefinition(100 + i * 10, 10, 1e6 * i, 10.0, QString());
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i)
        readers.emplace_back([copy = grid] {
            for (unsigned int id = 10; id < 15; ++id)
                EXPECT_THAT(copy.GetClosestChannelIdsForFrequency(copy.ChannelIdToFrequency(id)),
                            testing::Contains(id));
        });
    for (unsigned int i = 0; i < 100; ++i)
        grid.AddRangeDefinition(1000 + i, 1, i, 1.0, QString());
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(grid.GetRanges().size(), 122U);
}

TEST(ChannelRangeDefinitionEquality, LooksAtEveryField)
{
    const ChannelRangeDefinition grid = gridOf(10, 5, 100.0, 25.0);
    EXPECT_FALSE(grid == gridOf(11, 5, 100.0, 25.0));
    EXPECT_FALSE(grid == gridOf(10, 6, 100.0, 25.0));
    EXPECT_FALSE(grid == gridOf(10, 5, 100.1, 25.0));
    EXPECT_FALSE(grid == gridOf(10, 5, 100.0, 25.1));
    EXPECT_FALSE(grid == ChannelRangeDefinition{});
    EXPECT_EQ(ChannelRangeDefinition{}, ChannelRangeDefinition{});
}

} // namespace
