// SPDX-License-Identifier: MIT
// Handles, and who may die before whom.
#include "support/listener.h"
#include "support/value_tree.h"
#include "values/fastvaluemap.h"
#include "values/value.h"
#include "values/valuenumeric.h"
#include "values/valueptr.h"
#include <gmock/gmock.h>

using support::EffectLog;
using support::Listener;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace values;

namespace {

class ValuePtrTest : public testing::Test {
protected:
    EffectLog log;
    Listener listener{log};
    support::FreshValueTree tree;
    std::shared_ptr<Value<bool>> on = tree->Create<Value<bool>>("/A", "ON");
};

TEST_F(ValuePtrTest, IsBoundToWhatItsPathNames)
{
    ValuePtr<Value<bool>> handle;
    EXPECT_FALSE(handle);
    EXPECT_TRUE(handle.Bind("/A/ON"));
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle.get(), on.get());
    handle->SetValue(true);
    EXPECT_TRUE((*handle).GetValue());
    EXPECT_EQ(ValuePtr<Value<bool>>("A/ON").share(), on);
}

TEST_F(ValuePtrTest, IsEmptyForAMissingPathOrAnotherType)
{
    EXPECT_FALSE(ValuePtr<Value<bool>>("/A/OFF"));
    EXPECT_FALSE(ValuePtr<ValueNumeric<int>>("/A/ON"));
    ValuePtr<Value<bool>> handle("/A/ON");
    EXPECT_FALSE(handle.Bind("/A/OFF"));
    EXPECT_FALSE(handle) << "what it was bound to before is not what was asked for";
}

TEST_F(ValuePtrTest, ReachesMapsByTheirKindAndByTheirBase)
{
    tree->Create<LevelMap>("/A", "LEVELS");
    EXPECT_TRUE(ValuePtr<LevelMap>("/A/LEVELS"));
    EXPECT_TRUE((ValuePtr<FastValueMap<short, levelHandler>>("/A/LEVELS")));
    EXPECT_TRUE(ValuePtr<MappingBase>("/A/LEVELS"));
    EXPECT_FALSE(ValuePtr<BearingMap>("/A/LEVELS"));
    EXPECT_TRUE(ValuePtr<ValueBase>("/A/LEVELS"));
}

TEST_F(ValuePtrTest, KeepsItsValueAliveBehindTheTree)
{
    ValuePtr<Value<bool>> handle("/A/ON");
    const std::weak_ptr<Value<bool>> weak = on;
    on.reset();
    tree->Remove("/A");
    ASSERT_TRUE(handle);
    handle->SetValue(true);
    handle.Reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(ValuePtrTest, NotifiesNobodyWhenItIsBound)
{
    on->AddObserver(&listener);
    const ValuePtr<Value<bool>> handle("/A/ON");
    const ValueObservingPtr<Value<bool>> observing(&listener, "/A/ON");
    EXPECT_THAT(log.take(), IsEmpty());
}

using ValueObservingPtrTest = ValuePtrTest;

TEST_F(ValueObservingPtrTest, ObservesForExactlyAsLongAsItIsBound)
{
    ValueObservingPtr<Value<bool>> handle(&listener);
    EXPECT_FALSE(handle);
    on->SetValue(true);
    EXPECT_TRUE(handle.Bind("/A/ON"));
    on->SetValue(false);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    handle.Reset();
    on->SetValue(true);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(on->ObserverCount(), 0U);
}

TEST_F(ValueObservingPtrTest, LeavesTheOldValueWhenItIsBoundToAnother)
{
    const auto off = tree->Create<Value<bool>>("/A", "OFF");
    ValueObservingPtr<Value<bool>> handle(&listener, "/A/ON");
    handle.Bind("/A/OFF");
    EXPECT_EQ(on->ObserverCount(), 0U);
    EXPECT_EQ(off->ObserverCount(), 1U);
    handle.Bind("/A/MISSING");
    EXPECT_FALSE(handle);
    EXPECT_EQ(off->ObserverCount(), 0U);
}

TEST_F(ValueObservingPtrTest, KeepsItsPlaceWhenItIsBoundToTheSameAgain)
{
    Listener second{log, "second"};
    ValueObservingPtr<Value<bool>> handle(&listener, "/A/ON");
    on->AddObserver(&second);
    EXPECT_TRUE(handle.Bind("/A/ON"));
    on->SetValue(true);
    EXPECT_THAT(log.take(), ElementsAre("update 3", "second 3"));
}

TEST_F(ValueObservingPtrTest, CountsWithOtherHandlesOfTheSameObserver)
{
    ValueObservingPtr<Value<bool>> first(&listener, "/A/ON");
    {
        const ValueObservingPtr<Value<bool>> second(&listener, "/A/ON");
        const ValueObservingPtr<Value<bool>> copy(second);
        on->SetValue(true);
        EXPECT_THAT(log.take(), ElementsAre("update 3")) << "once, however many handles";
    }
    on->SetValue(false);
    EXPECT_THAT(log.take(), ElementsAre("update 3")) << "the first handle is still bound";
    first.Reset();
    EXPECT_EQ(on->ObserverCount(), 0U);
}

TEST_F(ValueObservingPtrTest, IsCopiedWithItsObserver)
{
    Listener second{log, "second"};
    const ValueObservingPtr<Value<bool>> original(&listener, "/A/ON");
    ValueObservingPtr<Value<bool>> copy(&second, "/A/ON");
    copy = original;
    on->SetValue(true);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    const ValueObservingPtr<Value<bool>>& self = copy;
    copy = self;
    EXPECT_TRUE(copy);
}

TEST_F(ValueObservingPtrTest, MayBeResetFromInsideTheNotification)
{
    ValueObservingPtr<Value<bool>> handle(&listener, "/A/ON");
    Listener second{log, "second"};
    on->AddObserver(&second);
    listener.onUpdate = [&](Observable*) { handle.Reset(); };
    on->SetValue(true);
    on->SetValue(false);
    EXPECT_THAT(log.take(), ElementsAre("update 3", "second 3", "second 3"));
}

TEST_F(ValueObservingPtrTest, MayHoldTheLastShareOfAValueThatIsResetWhileItNotifies)
{
    ValueObservingPtr<Value<bool>> handle(&listener, "/A/ON");
    tree->Remove("/A");
    Value<bool>* const last = on.get();
    on.reset();
    listener.onUpdate = [&](Observable*) { handle.Reset(); };
    last->SetValue(true); // dies in its own notification
    EXPECT_FALSE(handle);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
}

// Value, observer, handle and tree, destroyed in each of the orders that ownership allows.
struct Party {
    EffectLog log;
    std::shared_ptr<Tree> tree = std::make_shared<Tree>();
    std::shared_ptr<Value<bool>> value = tree->Create<Value<bool>>("/A", "ON");
    std::unique_ptr<Listener> observer = std::make_unique<Listener>(log);
    std::unique_ptr<ValueObservingPtr<Value<bool>>> handle =
        std::make_unique<ValueObservingPtr<Value<bool>>>(observer.get());

    Party() { handle->Bind(value); }
    void destroy(char which)
    {
        switch (which) {
        case 't':
            tree.reset();
            break;
        case 'v':
            value.reset();
            break;
        case 'o':
            observer.reset();
            break;
        default:
            handle.reset();
            break;
        }
    }
};

TEST(ValueLifetimes, LeaveNothingDanglingInAnyOrder)
{
    std::string order = "hotv";
    int orders = 0;
    do {
        SCOPED_TRACE(order);
        Party party;
        for (const char which : order) {
            party.destroy(which);
            if (party.value)
                party.value->SetValue(!party.value->GetValue());
        }
        EXPECT_EQ(party.value, nullptr);
        ++orders;
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(orders, 24);
}

} // namespace
