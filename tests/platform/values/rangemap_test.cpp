// SPDX-License-Identifier: MIT
// Range maps and their change log.
#include "nqbase/nqexception.h"
#include "support/listener.h"
#include "values/valuecommentedrangemap.h"
#include "values/valuefrequencyitemmap.h"
#include <gmock/gmock.h>
#include <limits>

using support::EffectLog;
using support::Listener;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace values;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::vector<RangeChange> changes(const RangeChangeLog& log)
{
    std::vector<RangeChange> all;
    for (quint64 i = log.GetOldestIndex(); i < log.GetTotalCount(); ++i)
        all.push_back(log.GetChange(i));
    return all;
}

class RangeMapTest : public testing::Test {
protected:
    RangeMapTest()
    {
        ranges.AddObserver(&listener);
        items.AddObserver(&listener);
    }
    EffectLog log;
    Listener listener{log};
    ValueCommentedRangeMap ranges{"Store"};
    ValueFrequencyItemMap<BlankingRangeItem> items{"List"};
};

TEST_F(RangeMapTest, GivesEveryAddedRangeAnIdOfItsOwn)
{
    EXPECT_EQ(ranges.AddRange(88e6, 108e6, "FM broadcast"), 1);
    EXPECT_EQ(ranges.AddRange(1.0, 2.0), 2);
    EXPECT_TRUE(ranges.RemoveRange(2));
    EXPECT_EQ(ranges.AddRange(3.0, 4.0), 3) << "2 was used before";
    EXPECT_EQ(ranges.SetRange(10, 5.0, 6.0), 10);
    EXPECT_EQ(ranges.AddRange(7.0, 8.0), 11);
    ASSERT_NE(ranges.FindRange(1), nullptr);
    EXPECT_EQ(ranges.FindRange(1)->GetRangeStart(), 88e6);
    EXPECT_EQ(ranges.FindRange(1)->GetRangeStop(), 108e6);
    EXPECT_EQ(ranges.FindRange(1)->GetComment(), QStringLiteral("FM broadcast"));
    EXPECT_EQ(ranges.FindRange(2), nullptr);
    EXPECT_EQ(ranges.GetRanges().size(), 4U);
}

TEST_F(RangeMapTest, PutsTheEndsOfARangeInOrder)
{
    ranges.AddRange(5.0, 3.0);
    EXPECT_EQ(ranges.FindRange(1)->GetRangeStart(), 3.0);
    EXPECT_EQ(ranges.FindRange(1)->GetRangeStop(), 5.0);
}

TEST_F(RangeMapTest, LogsEveryChangeAndTellsWithSeven)
{
    ranges.AddRange(1.0, 2.0);
    ranges.SetRange(1, 1.0, 3.0);
    ranges.RemoveRange(1);
    ranges.AddRange(4.0, 5.0);
    ranges.Clear();
    EXPECT_THAT(changes(ranges.GetChangeLog()),
                ElementsAre(RangeChange{1, 1}, RangeChange{1, 1}, RangeChange{2, 1}, RangeChange{1, 2},
                            RangeChange{3, 0}));
    EXPECT_THAT(log.take(), ElementsAre("update 7", "update 7", "update 7", "update 7", "update 7"));
}

TEST_F(RangeMapTest, LogsNothingWhereNothingChanges)
{
    ranges.AddRange(1.0, 2.0, "a");
    log.clear();
    ranges.SetRange(1, 1.0, 2.0, "a");
    EXPECT_FALSE(ranges.RemoveRange(7));
    items.Clear();
    EXPECT_EQ(ranges.GetChangeLog().GetTotalCount(), 1U);
    EXPECT_TRUE(items.GetChangeLog().empty());
    EXPECT_THAT(log.take(), IsEmpty());
    ranges.SetRange(1, 1.0, 2.0, "b");
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
}

TEST_F(RangeMapTest, LeavesTheOriginatorOut)
{
    ranges.AddRange(1.0, 2.0, "", &listener);
    ranges.SetRange(1, 1.0, 5.0, "", &listener);
    ranges.RemoveRange(1, &listener);
    ranges.AddRange(1.0, 2.0, "", &listener);
    ranges.Clear(&listener);
    items.SetItem(1, {1, 2, 3, true}, &listener);
    items.AppendChange({4, 1}, &listener);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(RangeMapTest, RefusesEndsThatAreNotNumbersAndIdsThatAreTooLarge)
{
    EXPECT_THROW(ranges.AddRange(nan, 1.0), NQException);
    EXPECT_THROW(ranges.SetRange(1, 1.0, nan), NQException);
    EXPECT_THROW(ranges.SetRange(0x80000000U, 1.0, 2.0), NQException);
    EXPECT_EQ(ranges.GetCount(), 0U);
    EXPECT_EQ(ranges.SetRange(0x7FFFFFFFU, 1.0, 2.0), 0x7FFFFFFF);
    EXPECT_THROW(ranges.AddRange(1.0, 2.0), NQException) << "no id is left";
    EXPECT_EQ(ranges.GetCount(), 1U);
    EXPECT_THROW(items.SetItem(0xFFFFFFFFU, {}), NQException);
}

TEST_F(RangeMapTest, KeepsItemsByIdInTheirOrder)
{
    EXPECT_EQ(items.SetItem(7, {100, 200, 0, false}), 7);
    EXPECT_EQ(items.SetItem(3, {300, 400, 17, true}), 3);
    ASSERT_NE(items.FindItem(3), nullptr);
    EXPECT_EQ(items.FindItem(3)->GetBegin(), 300U);
    EXPECT_EQ(items.FindItem(3)->GetEnd(), 400U);
    EXPECT_EQ(items.FindItem(3)->GetTimeStamp(), 17U);
    EXPECT_TRUE(items.FindItem(3)->IsBlanked());
    EXPECT_EQ(items.GetItems().begin()->first, 3U);
    EXPECT_TRUE(items.Contains(7));
    EXPECT_FALSE(items.Contains(8));
    EXPECT_EQ(items.SetItem(7, {100, 200, 0, false}), 7) << "the id, also where nothing changes";
    EXPECT_EQ(items.GetChangeLog().GetTotalCount(), 2U);
}

TEST_F(RangeMapTest, KeepsKindsOfChangesThatItDoesNotKnow)
{
    ranges.AppendChange({4, 9});
    EXPECT_THAT(changes(ranges.GetChangeLog()), ElementsAre(RangeChange{4, 9}));
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
}

TEST_F(RangeMapTest, IsWrittenAsText)
{
    ranges.AddRange(88e6, 108e6, "FM broadcast");
    ranges.AddRange(1.5, 2.0);
    EXPECT_EQ(ranges.ToText(), QStringLiteral("1: 88000000-108000000 Hz FM broadcast; 2: 1.5-2 Hz"));
    items.SetItem(4, {100, 200, 17, true});
    items.SetItem(5, {300, 400, 0, false});
    EXPECT_EQ(items.ToText(), QStringLiteral("4: 100-200 Hz blanked @17; 5: 300-400 Hz open @0"));
    EXPECT_EQ(items.GetTypeName(), QStringLiteral("ranges"));
}

TEST_F(RangeMapTest, MayGrowFromInsideItsNotification)
{
    listener.onUpdate = [&](Observable*) {
        if (ranges.GetCount() < 5)
            ranges.AddRange(1.0, 2.0);
    };
    EXPECT_EQ(ranges.AddRange(1.0, 2.0), 1);
    EXPECT_EQ(ranges.GetCount(), 5U);
    EXPECT_EQ(ranges.GetChangeLog().GetTotalCount(), 5U);
}

TEST(RangeChangeLog, ForgetsTheOldestWhenItIsFull)
{
    RangeChangeLog changeLog;
    changeLog.SetLength(3);
    for (RangeId id = 0; id < 5; ++id)
        changeLog.Append({1, id});
    EXPECT_EQ(changeLog.GetTotalCount(), 5U);
    EXPECT_EQ(changeLog.GetOldestIndex(), 2U);
    EXPECT_EQ(changeLog.GetChange(2), (RangeChange{1, 2}));
    EXPECT_EQ(changeLog.GetChange(4), (RangeChange{1, 4}));
    EXPECT_THROW(static_cast<void>(changeLog.GetChange(1)), NQException);
    EXPECT_THROW(static_cast<void>(changeLog.GetChange(5)), NQException);
}

TEST(RangeChangeLog, IsBoundedFromTheStart)
{
    ValueFrequencyItemMap<BlankingRangeItem> items("List");
    for (RangeId id = 0; id < 1500; ++id)
        items.SetItem(id, {id, id, 1, true});
    EXPECT_EQ(items.GetChangeLog().GetTotalCount(), 1500U);
    EXPECT_EQ(items.GetChangeLog().GetOldestIndex(), 500U);
}

TEST(RangeChangeLog, MayBeShortenedToNothing)
{
    RangeChangeLog changeLog;
    changeLog.Append({1, 1});
    changeLog.Append({1, 2});
    changeLog.SetLength(1);
    EXPECT_EQ(changeLog.GetOldestIndex(), 1U);
    changeLog.SetLength(0);
    EXPECT_TRUE(changeLog.empty());
    changeLog.Append({1, 3});
    EXPECT_TRUE(changeLog.empty());
    EXPECT_EQ(changeLog.GetTotalCount(), 3U);
    EXPECT_EQ(changeLog.GetOldestIndex(), 3U);
}

} // namespace
