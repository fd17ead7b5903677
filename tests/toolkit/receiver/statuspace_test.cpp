// SPDX-License-Identifier: MIT
#include "toolkit/receiver/statuspace.h"
#include <functional>
#include <gmock/gmock.h>
#include <vector>

using receiver::Condition;
using receiver::StatusPace;
using testing::ElementsAre;

namespace {

// The seconds at which one look a second is told.
std::vector<int> told(int seconds, const std::function<Condition(int)>& at)
{
    StatusPace pace;
    std::vector<int> result;
    for (int second = 1; second <= seconds; ++second) {
        if (pace.isDue(at(second), second))
            result.push_back(second);
    }
    return result;
}

TEST(StatusPace, TellsOnceAMinuteWhileNothingChanges)
{
    EXPECT_THAT(told(125, [](int) { return Condition{false, 7}; }), ElementsAre(1, 61, 121));
}

TEST(StatusPace, TellsAtOnceWhenDataStaysAwayAndComesBack)
{
    EXPECT_THAT(told(30,
                     [](int second) {
                         return Condition{second >= 5 && second < 8, 0};
                     }),
                ElementsAre(1, 5, 8));
}

TEST(StatusPace, TellsALossAtOnceAfterACalmTime)
{
    EXPECT_THAT(told(40,
                     [](int second) {
                         return Condition{false, second < 20 ? 0U : 3U};
                     }),
                ElementsAre(1, 20));
}

TEST(StatusPace, TellsLossesThatGoOnEveryTenSeconds)
{
    EXPECT_THAT(told(35,
                     [](int second) {
                         return Condition{false, static_cast<quint64>(second)};
                     }),
                ElementsAre(1, 11, 21, 31));
}

TEST(StatusPace, TellsWhatWasLostInTheTenSecondsAfterALine)
{
    EXPECT_THAT(told(40,
                     [](int second) {
                         return Condition{false, second < 4 ? 0U : 1U};
                     }),
                ElementsAre(1, 11));
}

} // namespace
