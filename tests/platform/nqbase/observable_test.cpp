// SPDX-License-Identifier: MIT
#include "nqbase/observable.h"
#include "support/effect_log.h"
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <string>

using support::EffectLog;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Listener : public IObserver {
public:
    Listener(EffectLog& log, std::string name)
        : m_log(log)
        , m_name(std::move(name))
    {}
    void Update(Observable* subject, TChangeCode code) override
    {
        m_log.add(m_name + " " + std::to_string(code));
        // A copy: what runs may replace itself.
        if (const auto action = onUpdate)
            action(subject);
    }
    std::function<void(Observable*)> onUpdate;

private:
    EffectLog& m_log;
    std::string m_name;
};

class ObservableTest : public testing::Test {
protected:
    EffectLog log;
    Observable subject;
    Listener a{log, "a"};
    Listener b{log, "b"};
    Listener c{log, "c"};
};

TEST_F(ObservableTest, TellsItsObserversInTheOrderOfTheirRegistration)
{
    subject.AddObserver(&b);
    subject.AddObserver(&a);
    subject.AddObserver(&c);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("b 3", "a 3", "c 3"));
}

TEST_F(ObservableTest, HandsItselfToTheObserver)
{
    Observable* seen = nullptr;
    a.onUpdate = [&](Observable* who) { seen = who; };
    subject.AddObserver(&a);
    subject.HasChanged(7);
    EXPECT_EQ(seen, &subject);
}

TEST_F(ObservableTest, LeavesTheOriginatorOut)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    subject.HasChanged(3, &a);
    EXPECT_THAT(log.take(), ElementsAre("b 3"));
}

TEST_F(ObservableTest, CallsAnObserverOnceHoweverOftenItIsRegistered)
{
    subject.AddObserver(&a);
    subject.AddObserver(&a);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3"));
}

TEST_F(ObservableTest, CountsRegistrationsSoThatEachHandleReleasesItsOwn)
{
    subject.AddObserver(&a);
    subject.AddObserver(&a);
    subject.RemoveObserver(&a);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3"));
    subject.RemoveObserver(&a);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ObservableTest, IgnoresNullAndUnknownObservers)
{
    subject.AddObserver(nullptr);
    subject.RemoveObserver(nullptr);
    subject.RemoveObserver(&a);
    subject.MakeFirstObserver(nullptr);
    subject.HasChanged(3);
    EXPECT_EQ(subject.ObserverCount(), 0U);
}

TEST_F(ObservableTest, MovesAnObserverToTheFront)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    subject.AddObserver(&c);
    subject.MakeFirstObserver(&c);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("c 3", "a 3", "b 3"));
}

TEST_F(ObservableTest, RegistersAnUnknownObserverThatIsToBeFirst)
{
    subject.AddObserver(&a);
    subject.MakeFirstObserver(&b);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("b 3", "a 3"));
}

TEST_F(ObservableTest, AppliesANewOrderFromTheNextRoundOn)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    subject.AddObserver(&c);
    a.onUpdate = [&](Observable*) { subject.MakeFirstObserver(&c); };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "b 3", "c 3"));
    a.onUpdate = nullptr;
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("c 3", "a 3", "b 3"));
}

TEST_F(ObservableTest, DoesNotCallAnObserverThatWasAddedInThisRound)
{
    subject.AddObserver(&a);
    a.onUpdate = [&](Observable*) { subject.AddObserver(&b); };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3"));
    a.onUpdate = nullptr;
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "b 3"));
}

TEST_F(ObservableTest, DoesNotCallAnObserverThatWasRemovedInThisRound)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    subject.AddObserver(&c);
    a.onUpdate = [&](Observable*) { subject.RemoveObserver(&b); };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "c 3"));
}

TEST_F(ObservableTest, KeepsTheOthersWhenAnObserverRemovesItself)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) { subject.RemoveObserver(&a); };
    subject.HasChanged(3);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "b 3", "b 3"));
}

TEST_F(ObservableTest, RunsANestedRoundWhenAnObserverChangesTheSubjectAgain)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) {
        a.onUpdate = nullptr;
        subject.HasChanged(7);
    };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "a 7", "b 7", "b 3"));
}

TEST_F(ObservableTest, RemovalInANestedRoundHoldsForTheOuterOne)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) {
        a.onUpdate = [&](Observable*) { subject.RemoveObserver(&b); };
        subject.HasChanged(7);
    };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "a 7"));
    EXPECT_EQ(subject.ObserverCount(), 1U);
}

TEST_F(ObservableTest, AnObserverThatDiesInARoundIsNotCalled)
{
    auto doomed = std::make_unique<Listener>(log, "doomed");
    subject.AddObserver(&a);
    subject.AddObserver(doomed.get());
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) { doomed.reset(); };
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "b 3"));
}

TEST_F(ObservableTest, MayBeDestroyedByItsOwnObserver)
{
    auto doomed = std::make_unique<Observable>();
    doomed->AddObserver(&a);
    doomed->AddObserver(&b);
    a.onUpdate = [&](Observable*) {
        a.onUpdate = [&](Observable*) { doomed.reset(); };
        doomed->HasChanged(7);
    };
    doomed->HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "a 7"));
}

TEST_F(ObservableTest, WhateverDiesFirstTakesTheRegistrationAlong)
{
    {
        Listener shortLived{log, "short"};
        subject.AddObserver(&shortLived);
        subject.AddObserver(&shortLived);
    }
    EXPECT_EQ(subject.ObserverCount(), 0U);
    {
        Observable other;
        other.AddObserver(&a);
        subject.AddObserver(&a);
    }
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3"));
}

TEST_F(ObservableTest, AnExceptionEndsTheRoundAndLeavesTheRegistrationsInOrder)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) {
        subject.RemoveObserver(&b);
        throw std::runtime_error("refused");
    };
    EXPECT_THROW(subject.HasChanged(3), std::runtime_error);
    a.onUpdate = nullptr;
    subject.AddObserver(&b);
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "a 3", "b 3"));
}

TEST_F(ObservableTest, AskingToBeFirstEndsWithTheRegistration)
{
    subject.AddObserver(&a);
    subject.AddObserver(&b);
    a.onUpdate = [&](Observable*) {
        a.onUpdate = nullptr;
        subject.MakeFirstObserver(&b);
        subject.RemoveObserver(&b);
        subject.AddObserver(&b);
    };
    subject.HasChanged(3);
    log.clear();
    subject.HasChanged(3);
    EXPECT_THAT(log.take(), ElementsAre("a 3", "b 3"));
}

} // namespace
