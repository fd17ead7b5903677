// SPDX-License-Identifier: MIT
// Simulations in real time, and as the source of a session.
#include "support/tcp_receiver.h"
#include "toolkit/receiver/session.h"
#include "toolkit/simulation/simulationsource.h"
#include <QElapsedTimer>
#include <algorithm>
#include <gmock/gmock.h>

namespace {

using namespace simulation;
using support::waitUntil;

struct Playing {
    explicit Playing(double rate, std::uint64_t limit)
        : player(simulator, rate, [this](const Emission& emission) {
            leftNs.push_back(clock.nsecsElapsed());
            dueNs.push_back(emission.atNs);
        })
    {
        simulator.setLimit(limit);
        clock.start();
        player.start();
    }
    Simulator simulator{builtinScene("band"), 1};
    std::vector<std::int64_t> leftNs;
    std::vector<std::int64_t> dueNs;
    QElapsedTimer clock;
    Player player;
};

TEST(Player, HandsOutNothingBeforeItIsDueAndDoesNotDrift)
{
    Playing playing{1, 61};
    ASSERT_TRUE(waitUntil([&] { return playing.player.isFinished(); }));

    ASSERT_EQ(playing.leftNs.size(), 61U);
    std::vector<std::int64_t> lateNs;
    for (std::size_t i = 0; i < 61; ++i)
        lateNs.push_back(playing.leftNs[i] - playing.dueNs[i]);
    EXPECT_THAT(lateNs, testing::Each(testing::Ge(0)));
    // A busy machine may be late now and then; lateness that adds up would stay for all that follow.
    EXPECT_LT(*std::min_element(lateNs.end() - 30, lateNs.end()), 15'000'000);
}

TEST(Player, DoesNotWaitWhenItIsUnlimited)
{
    Playing playing{0, 600};
    ASSERT_TRUE(waitUntil([&] { return playing.player.isFinished(); }));

    EXPECT_EQ(playing.leftNs.size(), 600U);
    EXPECT_LT(playing.leftNs.back(), playing.dueNs.back());
}

TEST(Player, WaitsWhileItsTakerIsFull)
{
    Playing playing{0, 100};
    bool isFull = true;
    playing.player.setBackPressure([&] { return isFull; });
    waitUntil([] { return false; }, 30);
    EXPECT_TRUE(playing.leftNs.empty());

    isFull = false;
    EXPECT_TRUE(waitUntil([&] { return playing.player.isFinished(); }));
    EXPECT_EQ(playing.leftNs.size(), 100U);
}

TEST(Player, EndsASceneAtOnceWhenStopped)
{
    Playing playing{1, 0};
    ASSERT_TRUE(waitUntil([&] { return playing.leftNs.size() >= 3; }));
    const std::size_t before = playing.leftNs.size();
    playing.player.stop();

    EXPECT_TRUE(playing.player.isFinished());
    EXPECT_GE(playing.leftNs.size(), before + 1);
    EXPECT_LE(playing.leftNs.size(), before + 2);
}

TEST(SimulationSource, FillsTheMapsOfASession)
{
    receiver::Session session;
    auto source = std::make_unique<SimulationSource>(builtinScene("band"), 1, 0);
    source->simulator().setLimit(50);
    session.run(std::move(source));
    ASSERT_TRUE(waitUntil([&] { return session.source()->facts().state == "ended"; }));

    EXPECT_EQ(session.source()->facts().name, "sim:band");
    EXPECT_EQ(session.values().frequency->GetValue(), 100e6);
    EXPECT_EQ(session.status().channels, 1601U);
    EXPECT_NEAR(session.values().ifPanorama->GetValues()[176], 420, 2); // 96.1 MHz
    EXPECT_EQ(session.ledger().counters().delivered, 50U);
    EXPECT_EQ(session.ledger().counters().losses(), 0U);
}

TEST(SimulationSource, FillsTheZeroSpanMaps)
{
    receiver::Session session;
    auto source = std::make_unique<SimulationSource>(builtinScene("zerospan"), 1, 0);
    source->simulator().setLimit(5);
    session.run(std::move(source));
    ASSERT_TRUE(waitUntil([&] { return session.source()->facts().state == "ended"; }));

    EXPECT_EQ(session.values().zeroSpan->GetValues().size(), 1001U);
    EXPECT_EQ(session.values().zeroSpan2->GetValues().size(), 1001U);
    EXPECT_EQ(session.ledger().counters().losses(), 0U);
    EXPECT_EQ(session.ledger().counters().mapRejected, 0U);
}

TEST(SimulationSource, GivesTheSameMapsForTheSameSeed)
{
    const auto hashOf = [](std::uint64_t seed) {
        receiver::Session session;
        auto source = std::make_unique<SimulationSource>(builtinScene("band"), seed, 0);
        source->simulator().setLimit(20);
        session.run(std::move(source));
        EXPECT_TRUE(waitUntil([&] { return session.source()->facts().state == "ended"; }));
        return session.mapHash();
    };

    EXPECT_EQ(hashOf(3), hashOf(3));
    EXPECT_NE(hashOf(3), hashOf(4));
}

} // namespace
