// SPDX-License-Identifier: MIT
// Two threads at one gate: every trace counts, whoever is faster.
#include "toolkit/pageserver/holds.h"
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace pageserver;

TEST(LevelGateThreads, LoseNoTraceOfTheHolds)
{
    constexpr int traces = 20'000;
    constexpr std::size_t channels = 64;
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, channels, 1e6, 1'000, {});
    LevelGate gate;
    std::atomic<bool> isDone{false};
    std::thread reception([&] {
        std::vector<short> levels(channels, 0);
        for (int i = 1; i <= traces; ++i) {
            // Each trace has a peak of its own, which no other repeats.
            levels.assign(channels, 0);
            levels[static_cast<std::size_t>(i) % channels] = static_cast<short>(i);
            (void)gate.put(grid, {.number = static_cast<quint64>(i)}, levels);
        }
        isDone = true;
    });
    Holds holds;
    LevelBatch batch;
    quint64 taken = 0;
    quint64 newest = 0;
    for (bool isLast = false; !isLast;) {
        isLast = isDone; // what was put before this is taken below
        while (gate.take(batch)) {
            EXPECT_GT(batch.newest.number, newest);
            newest = batch.newest.number;
            taken += batch.traces;
            holds.add(batch);
        }
    }
    reception.join();
    EXPECT_EQ(taken, static_cast<quint64>(traces));
    EXPECT_EQ(newest, static_cast<quint64>(traces));
    for (int i = traces - static_cast<int>(channels) + 1; i <= traces; ++i)
        EXPECT_EQ(holds.max()[static_cast<std::size_t>(i) % channels], i);
}

TEST(LatestThreads, HandOutEachThingToOneAndTheLastOneSurely)
{
    constexpr int things = 20'000;
    Latest<int> box;
    std::atomic<bool> isDone{false};
    std::thread reception([&] {
        for (int i = 1; i <= things; ++i)
            (void)box.put(std::make_shared<int>(i));
        isDone = true;
    });
    int last = 0;
    for (bool isLast = false; !isLast;) {
        isLast = isDone;
        while (const std::shared_ptr<const int> thing = box.take()) {
            EXPECT_GT(*thing, last);
            last = *thing;
        }
    }
    reception.join();
    EXPECT_EQ(last, things);
}

} // namespace
