// SPDX-License-Identifier: MIT
// Finished scans for other threads.
#include "support/allocation_count.h"
#include "values/fastvaluemap.h"
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

using testing::Each;
using testing::ElementsAre;
using namespace values;

namespace {

ChannelRangeDefinition gridOf(unsigned int count)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, count, 100.0, 25.0, QString());
    return grid;
}

class RealTimeBufferTest : public testing::Test {
protected:
    RealTimeBufferTest() { map.SetChannelRangeDefinition(gridOf(2), 10); }

    void scan(short a, short b, quint64 stamp)
    {
        const std::vector<short> levels{a, b};
        map.SetTimeStamp(stamp);
        map.SetChannelValues(0, 2, levels.data());
        map.EndOfScan();
    }
    // First level of every scan that waits.
    static std::vector<short> drained(LevelMap::Buffer& buffer)
    {
        std::vector<short> levels;
        Scan<short> taken;
        while (buffer.Take(taken))
            levels.push_back(taken.values.at(0));
        return levels;
    }
    LevelMap map;
};

TEST_F(RealTimeBufferTest, HoldsFinishedScansInTheirOrder)
{
    const auto buffer = map.CreateRealTimeBuffer();
    scan(1, 2, 100);
    scan(3, 4, 200);
    Scan<short> taken;
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(1, 2));
    EXPECT_EQ(taken.timeStamp, 100U);
    EXPECT_EQ(taken.number, 1U);
    EXPECT_EQ(taken.combinedScans, 1U);
    EXPECT_EQ(taken.grid, gridOf(2));
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(3, 4));
    EXPECT_EQ(taken.number, 2U);
    EXPECT_FALSE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(3, 4)) << "nothing was taken";
}

TEST_F(RealTimeBufferTest, StampsAScanWithTheStampOfItsEnd)
{
    const auto buffer = map.CreateRealTimeBuffer();
    map.SetTimeStamp(100);
    map.SetEndOfScan(150);
    Scan<short> taken;
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_EQ(taken.timeStamp, 150U);
}

TEST_F(RealTimeBufferTest, LetsTheNewestWinAndCountsWhatItOverwrites)
{
    map.SetRealTimeBufferDepth(3);
    const auto buffer = map.CreateRealTimeBuffer();
    for (short i = 1; i <= 5; ++i)
        scan(i, 0, 1);
    EXPECT_EQ(buffer->GetCount(), 3U);
    EXPECT_EQ(buffer->GetOverwrittenCount(), 2U);
    EXPECT_THAT(drained(*buffer), ElementsAre(3, 4, 5));
    scan(6, 0, 1);
    EXPECT_THAT(drained(*buffer), ElementsAre(6));
}

TEST_F(RealTimeBufferTest, TakesAnotherDepthAtAnyTime)
{
    const auto buffer = map.CreateRealTimeBuffer();
    EXPECT_EQ(map.GetRealTimeBufferDepth(), 10U);
    for (short i = 1; i <= 12; ++i)
        scan(i, 0, 1);
    map.SetRealTimeBufferDepth(2);
    EXPECT_EQ(buffer->GetOverwrittenCount(), 10U);
    map.SetRealTimeBufferDepth(4);
    scan(13, 0, 1);
    EXPECT_THAT(drained(*buffer), ElementsAre(11, 12, 13));
}

TEST_F(RealTimeBufferTest, HasADepthFromOneToAThousand)
{
    map.SetRealTimeBufferDepth(0);
    EXPECT_EQ(map.GetRealTimeBufferDepth(), 1U);
    map.SetRealTimeBufferDepth(0xFFFFFFFFU);
    EXPECT_EQ(map.GetRealTimeBufferDepth(), 1000U);
    LevelMap::Buffer buffer(0);
    const std::vector<short> levels{1};
    buffer.Store(gridOf(1), levels, 1, 1);
    buffer.SetDepth(0);
    EXPECT_EQ(buffer.GetCount(), 1U);
}

TEST_F(RealTimeBufferTest, ServesSeveralReadersEachByItself)
{
    const auto first = map.CreateRealTimeBuffer();
    scan(1, 0, 1);
    const auto second = map.CreateRealTimeBuffer();
    scan(2, 0, 2);
    EXPECT_THAT(drained(*first), ElementsAre(1, 2));
    EXPECT_THAT(drained(*second), ElementsAre(2));
}

TEST_F(RealTimeBufferTest, IsForgottenByTheMapWhenItIsDropped)
{
    map.CreateRealTimeBuffer();
    const std::weak_ptr<LevelMap::Buffer> dropped = map.CreateRealTimeBuffer();
    EXPECT_TRUE(dropped.expired());
    EXPECT_NO_FATAL_FAILURE(scan(1, 2, 3));
    map.SetHoldTime(5);
}

TEST_F(RealTimeBufferTest, OutlivesItsMap)
{
    auto shortLived = std::make_unique<LevelMap>();
    shortLived->SetChannelRangeDefinition(gridOf(1), 10);
    const auto buffer = shortLived->CreateRealTimeBuffer();
    shortLived->EndOfScan();
    shortLived.reset();
    Scan<short> taken;
    EXPECT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(noLevel));
}

TEST_F(RealTimeBufferTest, KeepsTheGridThatTheScanWasMadeOn)
{
    const auto buffer = map.CreateRealTimeBuffer();
    scan(1, 2, 3);
    map.SetChannelRangeDefinition(gridOf(5), 10);
    map.EndOfScan();
    Scan<short> taken;
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_EQ(taken.grid, gridOf(2));
    EXPECT_EQ(taken.values.size(), 2U);
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_EQ(taken.values.size(), 5U);
}

TEST_F(RealTimeBufferTest, HoldsScansThatFollowWithinTheHoldTime)
{
    const auto buffer = map.CreateRealTimeBuffer();
    map.SetHoldTime(100);
    EXPECT_EQ(map.GetHoldTime(), 100U);
    scan(1, 9, 1000);
    scan(5, 2, 1050);
    scan(noLevel, noLevel, 1099);
    scan(3, 3, 1100);
    Scan<short> taken;
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(5, 9));
    EXPECT_EQ(taken.combinedScans, 3U);
    EXPECT_EQ(taken.timeStamp, 1099U);
    EXPECT_EQ(taken.number, 3U);
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, ElementsAre(3, 3));
    EXPECT_EQ(taken.combinedScans, 1U);
}

TEST_F(RealTimeBufferTest, HoldsNothingAcrossGridsOrWhenTheClockGoesBack)
{
    const auto buffer = map.CreateRealTimeBuffer();
    map.SetHoldTime(100);
    scan(1, 1, 1000);
    scan(2, 2, 999);
    map.SetChannelRangeDefinition(gridOf(3), 10);
    map.EndOfScan();
    EXPECT_EQ(buffer->GetCount(), 3U);
}

TEST_F(RealTimeBufferTest, StartsAfreshWhenTheReaderTookTheEntryMeanwhile)
{
    const auto buffer = map.CreateRealTimeBuffer();
    map.SetHoldTime(100);
    scan(9, 9, 1000);
    EXPECT_THAT(drained(*buffer), ElementsAre(9));
    scan(1, 1, 1001);
    EXPECT_THAT(drained(*buffer), ElementsAre(1));
}

TEST_F(RealTimeBufferTest, TakesSuperResolutionDataAlong)
{
    DFSpectrumMap samples;
    samples.SetChannelRangeDefinition(gridOf(2), 10);
    const auto buffer = samples.CreateRealTimeBuffer();
    std::vector<DFSpectrumSample> two(2);
    two[1].createSuperResolutionSample(3).setLevel(2, 44);
    samples.SetChannelValues(0, 2, two.data());
    samples.EndOfScan();
    Scan<DFSpectrumSample> taken;
    ASSERT_TRUE(buffer->Take(taken));
    EXPECT_THAT(taken.values, testing::ElementsAreArray(two));
}

TEST_F(RealTimeBufferTest, AllocatesNothingOnceItsScansHadTheirSize)
{
    if (!support::allocationCountWorks())
        GTEST_SKIP() << "the sanitizer has an allocator of its own";
    map.SetRealTimeBufferDepth(2);
    const auto buffer = map.CreateRealTimeBuffer();
    Scan<short> taken;
    for (short i = 0; i < 4; ++i) {
        scan(i, i, 1);
        buffer->Take(taken);
    }
    const std::vector<short> levels{1, 2};
    const std::size_t before = support::allocationCount();
    for (int i = 0; i < 100; ++i) {
        map.SetChannelValues(0, 2, levels.data());
        map.EndOfScan();
        if (i % 3 != 0)
            buffer->Take(taken);
    }
    EXPECT_EQ(support::allocationCount(), before);
}

// One thread writes scans of one level throughout; the reader must never see a mixture, and every scan is
// either taken or counted as overwritten.
TEST_F(RealTimeBufferTest, GivesWholeScansToAnotherThread)
{
    constexpr unsigned int channels = 500;
    constexpr quint64 wanted = 300;
    map.SetChannelRangeDefinition(gridOf(channels), 10);
    const auto buffer = map.CreateRealTimeBuffer();
    std::atomic<bool> done{false};
    std::atomic<quint64> takenCount{0};
    std::thread reader{[&] {
        Scan<short> taken;
        quint64 lastNumber = 0;
        for (;;) {
            const bool wasDone = done.load();
            if (!buffer->Take(taken)) {
                if (wasDone)
                    return;
                std::this_thread::yield();
                continue;
            }
            ++takenCount;
            EXPECT_GT(taken.number, lastNumber);
            EXPECT_EQ(taken.timeStamp, taken.number);
            EXPECT_EQ(taken.grid.GetChannelCount(), channels);
            EXPECT_THAT(taken.values, Each(static_cast<short>(taken.number)));
            lastNumber = taken.number;
        }
    }};
    quint64 number = 0;
    while (takenCount < wanted) {
        ++number;
        const std::vector<short> levels(channels, static_cast<short>(number));
        map.SetTimeStamp(number);
        map.SetChannelValues(0, channels, levels.data());
        map.EndOfScan();
    }
    done = true;
    reader.join();
    EXPECT_EQ(takenCount + buffer->GetOverwrittenCount(), number);
}

} // namespace
