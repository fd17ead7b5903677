// SPDX-License-Identifier: MIT
#include "toolkit/ledger/sequencetracker.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <random>
#include <vector>

using ledger::SequenceTracker;

namespace {

SequenceTracker after(std::initializer_list<int> numbers)
{
    SequenceTracker tracker;
    for (const int number : numbers)
        tracker.take(static_cast<std::uint16_t>(number));
    return tracker;
}

TEST(SequenceTracker, FindsNothingInAnOrderlySequence)
{
    const SequenceTracker tracker = after({5, 6, 7, 8});
    EXPECT_EQ(tracker.lost() + tracker.duplicates() + tracker.reordered() + tracker.restarts(), 0U);
}

TEST(SequenceTracker, StartsAnywhere)
{
    EXPECT_EQ(after({40'000}).lost(), 0U);
}

TEST(SequenceTracker, CountsAGap)
{
    EXPECT_EQ(after({7, 10}).lost(), 2U);
}

TEST(SequenceTracker, FollowsTheWrap)
{
    EXPECT_EQ(after({65'534, 65'535, 0, 1}).lost(), 0U);
    EXPECT_EQ(after({65'534, 1}).lost(), 2U);
}

TEST(SequenceTracker, CountsADuplicate)
{
    const SequenceTracker tracker = after({1, 2, 2, 1, 3});
    EXPECT_EQ(tracker.duplicates(), 2U);
    EXPECT_EQ(tracker.lost(), 0U);
}

TEST(SequenceTracker, TakesTheLossBackWhenTheDatagramComesLate)
{
    const SequenceTracker tracker = after({1, 3, 2, 4});
    EXPECT_EQ(tracker.reordered(), 1U);
    EXPECT_EQ(tracker.lost(), 0U);
    EXPECT_EQ(tracker.duplicates(), 0U);
}

TEST(SequenceTracker, CountsALateDatagramThatComesTwiceOnceAsADuplicate)
{
    const SequenceTracker tracker = after({1, 3, 2, 2, 4});
    EXPECT_EQ(tracker.reordered(), 1U);
    EXPECT_EQ(tracker.duplicates(), 1U);
}

TEST(SequenceTracker, TakesALongJumpBackwardsAsANewSequence)
{
    const SequenceTracker tracker = after({5'000, 5'001, 3, 4});
    EXPECT_EQ(tracker.restarts(), 1U);
    EXPECT_EQ(tracker.lost() + tracker.duplicates() + tracker.reordered(), 0U);
}

TEST(SequenceTracker, TakesAStepBackwardsBehindASilenceAsANewSequence)
{
    SequenceTracker tracker;
    for (std::uint16_t number = 1; number < 100; ++number)
        tracker.take(number);
    tracker.followSilence();
    for (std::uint16_t number = 1; number < 50; ++number)
        tracker.take(number);
    EXPECT_EQ(tracker.restarts(), 1U);
    EXPECT_EQ(tracker.duplicates(), 0U);
    EXPECT_EQ(tracker.lost(), 0U);
    tracker.take(49);
    EXPECT_EQ(tracker.duplicates(), 1U);
}

TEST(SequenceTracker, CountsAGapBehindASilence)
{
    SequenceTracker tracker;
    tracker.take(1);
    tracker.followSilence();
    tracker.take(10);
    EXPECT_EQ(tracker.lost(), 8U);
    EXPECT_EQ(tracker.restarts(), 0U);
}

TEST(SequenceTracker, StartsAnewWhenToldSo)
{
    SequenceTracker tracker = after({1, 2});
    tracker.restart();
    tracker.take(500);
    EXPECT_EQ(tracker.lost(), 0U);
}

TEST(SequenceTracker, DoesNotTakeANumberOfTheNextRoundForALateOneOfThisRound)
{
    SequenceTracker tracker = after({1, 3}); // 2 is lost
    for (int number = 4; number < 65'536 + 2; ++number)
        tracker.take(static_cast<std::uint16_t>(number));
    tracker.take(2);
    EXPECT_EQ(tracker.lost(), 1U);
    EXPECT_EQ(tracker.reordered(), 0U);
}

TEST(SequenceTracker, AgreesWithWhatWasDoneToLongRandomSequences)
{
    std::mt19937 random{7};
    for (int round = 0; round < 50; ++round) {
        std::vector<std::uint16_t> numbers;
        std::uint64_t dropped = 0;
        std::uint64_t doubled = 0;
        std::uint64_t swapped = 0;
        auto next = static_cast<std::uint16_t>(random());
        numbers.push_back(next++);
        for (int i = 0; i < 5'000; ++i, ++next) {
            const auto fault = random() % 40;
            if (fault == 0) {
                ++dropped;
                continue;
            }
            numbers.push_back(next);
            if (fault == 1) {
                numbers.push_back(next);
                ++doubled;
            } else if (fault == 2) {
                numbers.push_back(static_cast<std::uint16_t>(next + 2));
                numbers.push_back(static_cast<std::uint16_t>(next + 1));
                next = static_cast<std::uint16_t>(next + 2);
                ++swapped;
            }
        }
        numbers.push_back(next); // so that a drop at the end shows
        SequenceTracker tracker;
        for (const std::uint16_t number : numbers)
            tracker.take(number);
        ASSERT_EQ(tracker.lost(), dropped);
        ASSERT_EQ(tracker.duplicates(), doubled);
        ASSERT_EQ(tracker.reordered(), swapped);
    }
}

} // namespace
