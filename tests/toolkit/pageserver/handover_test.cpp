// SPDX-License-Identifier: MIT
// Traces on their way between the threads, and what holds make of them.
#include "toolkit/pageserver/holds.h"
#include <gmock/gmock.h>

namespace {

using namespace pageserver;
using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using testing::Pointwise;
using values::noLevel;
using Levels = std::vector<short>;

values::ChannelRangeDefinition gridOf(unsigned count, double start = 1e6)
{
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, count, start, 1'000, {});
    return grid;
}

TraceInfo at(qint64 seconds, quint64 number = 1)
{
    return {.number = number, .receivedNs = seconds * 1'000'000'000};
}

LevelBatch one(const Levels& levels, qint64 seconds = 1)
{
    LevelGate gate;
    EXPECT_TRUE(gate.put(gridOf(static_cast<unsigned>(levels.size())), at(seconds), levels));
    LevelBatch batch;
    EXPECT_TRUE(gate.take(batch));
    return batch;
}

TEST(LevelGate, HandsATraceOverOnce)
{
    LevelGate gate;
    EXPECT_TRUE(gate.put(gridOf(3), at(1, 7), Levels{1, 2, 3}));
    LevelBatch batch;
    ASSERT_TRUE(gate.take(batch));
    EXPECT_THAT(batch.levels, ElementsAre(1, 2, 3));
    EXPECT_EQ(batch.newest.number, 7U);
    EXPECT_EQ(batch.traces, 1U);
    EXPECT_EQ(batch.grid, gridOf(3));
    EXPECT_THAT(batch.highest, IsEmpty());
    EXPECT_FALSE(gate.take(batch));
}

TEST(LevelGate, AsksToBeEmptiedOnlyWhenItWasEmpty)
{
    LevelGate gate;
    LevelBatch batch;
    EXPECT_TRUE(gate.put(gridOf(1), at(1), Levels{1}));
    EXPECT_FALSE(gate.put(gridOf(1), at(1), Levels{2}));
    EXPECT_TRUE(gate.take(batch));
    EXPECT_TRUE(gate.put(gridOf(1), at(1), Levels{3}));
}

TEST(LevelGate, PutsTracesTogetherThatNobodyTook)
{
    LevelGate gate;
    (void)gate.put(gridOf(4), at(1, 1), Levels{10, 5, noLevel, noLevel});
    (void)gate.put(gridOf(4), at(1, 2), Levels{30, 1, 8, noLevel});
    (void)gate.put(gridOf(4), at(1, 3), Levels{20, 3, noLevel, noLevel});
    LevelBatch batch;
    ASSERT_TRUE(gate.take(batch));
    EXPECT_EQ(batch.traces, 3U);
    EXPECT_EQ(batch.newest.number, 3U);
    EXPECT_THAT(batch.levels, ElementsAre(20, 3, noLevel, noLevel));
    EXPECT_THAT(batch.highest, ElementsAre(30, 5, 8, noLevel));
    EXPECT_THAT(batch.lowest, ElementsAre(10, 1, 8, noLevel));
    EXPECT_THAT(batch.mean, Pointwise(testing::FloatNear(1e-4F), std::vector<float>{20, 3, 8, 0}));
    EXPECT_THAT(batch.counted, Pointwise(FloatEq(), std::vector<float>{3, 3, 1, 0}));
}

TEST(LevelGate, ForgetsWhatWaitsOnAnotherGrid)
{
    LevelGate gate;
    (void)gate.put(gridOf(2), at(1, 1), Levels{90, 90});
    (void)gate.put(gridOf(2, 5e6), at(1, 2), Levels{1, 2});
    LevelBatch batch;
    ASSERT_TRUE(gate.take(batch));
    EXPECT_EQ(batch.traces, 1U);
    EXPECT_EQ(batch.grid, gridOf(2, 5e6));
    EXPECT_THAT(batch.levels, ElementsAre(1, 2));
    EXPECT_THAT(batch.highest, IsEmpty());
}

TEST(Latest, HandsOutTheNewestOnce)
{
    Latest<int> box;
    EXPECT_TRUE(box.put(std::make_shared<int>(1)));
    EXPECT_FALSE(box.put(std::make_shared<int>(2)));
    EXPECT_EQ(*box.take(), 2);
    EXPECT_EQ(box.take(), nullptr);
}

TEST(Holds, AreTrueForEveryTraceAndLeaveGapsOut)
{
    Holds holds;
    holds.add(one({10, -50, noLevel}));
    holds.add(one({30, -70, noLevel}));
    holds.add(one({20, noLevel, noLevel}));
    EXPECT_THAT(holds.max(), ElementsAre(30, -50, noLevel));
    EXPECT_THAT(holds.min(), ElementsAre(10, -70, noLevel));
    EXPECT_THAT(holds.average(), ElementsAre(20, -60, noLevel));
    EXPECT_EQ(holds.averagedSoFar(), 3U);
}

TEST(Holds, AreTheSameForTracesOneByOneAndTogether)
{
    Holds apart;
    Holds together;
    LevelGate gate;
    LevelBatch batch;
    for (short i = 0; i < 10; ++i) {
        const Levels levels{static_cast<short>(i * 7 % 10), static_cast<short>(-i),
                            i == 3 ? short{9} : noLevel};
        apart.add(one(levels));
        (void)gate.put(gridOf(3), at(1), levels);
        if (i % 4 == 3 && gate.take(batch))
            together.add(batch);
    }
    ASSERT_TRUE(gate.take(batch));
    together.add(batch);
    EXPECT_EQ(together.max(), apart.max());
    EXPECT_EQ(together.min(), apart.min());
    EXPECT_EQ(together.average(), apart.average());
    EXPECT_EQ(together.hold(), apart.hold());
    EXPECT_EQ(together.averagedSoFar(), 10U);
}

TEST(Holds, FadeOlderTracesOutOfTheAverage)
{
    Holds holds;
    holds.setAveraged(2);
    holds.add(one({0}));
    holds.add(one({100}));
    EXPECT_THAT(holds.average(), ElementsAre(50));
    holds.add(one({100}));
    EXPECT_THAT(holds.average(), ElementsAre(75));
    EXPECT_EQ(holds.averagedSoFar(), 2U);
    holds.setAveraged(1);
    holds.add(one({8}));
    EXPECT_THAT(holds.average(), ElementsAre(8));
}

TEST(Holds, KeepTheHighestForFiveSeconds)
{
    Holds holds;
    holds.add(one({90}, 10));
    holds.add(one({10}, 15));
    EXPECT_THAT(holds.hold(), ElementsAre(90));
    holds.add(one({10}, 16));
    EXPECT_THAT(holds.hold(), ElementsAre(10));
    EXPECT_THAT(holds.max(), ElementsAre(90));
}

TEST(Holds, AfterAStepBackInTimeShowWhatIsThere)
{
    Holds holds;
    holds.add(one({90}, 100));
    holds.add(one({10}, 20));
    EXPECT_THAT(holds.hold(), ElementsAre(10));
}

TEST(Holds, BeginAnewWhenTheyAreResetAndTheAverageGoesOn)
{
    Holds holds;
    holds.add(one({90}, 10));
    holds.reset();
    EXPECT_THAT(holds.max(), ElementsAre(noLevel));
    EXPECT_EQ(holds.sinceNs(), 0);
    holds.add(one({10}, 12));
    EXPECT_THAT(holds.max(), ElementsAre(10));
    EXPECT_THAT(holds.min(), ElementsAre(10));
    EXPECT_THAT(holds.hold(), ElementsAre(10));
    EXPECT_THAT(holds.average(), ElementsAre(50));
    EXPECT_EQ(holds.sinceNs(), 12'000'000'000);
}

TEST(Holds, BeginAnewWithAnotherGrid)
{
    Holds holds;
    holds.add(one({90, 90}));
    holds.add(one({1, 2, 3}));
    EXPECT_THAT(holds.max(), ElementsAre(1, 2, 3));
    EXPECT_THAT(holds.average(), ElementsAre(1, 2, 3));
    EXPECT_THAT(holds.hold(), ElementsAre(1, 2, 3));
    EXPECT_EQ(holds.averagedSoFar(), 1U);
}

} // namespace
