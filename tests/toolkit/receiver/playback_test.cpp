// SPDX-License-Identifier: MIT
// Recordings under control: pause, step, seek, speed, and what is missing in them.
#include "support/ifpan_receiver.h"
#include "support/tcp_receiver.h"
#include "toolkit/receiver/recordingsource.h"
#include "toolkit/recording/recorder.h"
#include <QTemporaryDir>
#include <gmock/gmock.h>

using receiver::PlaybackState;
using receiver::Received;
using receiver::RecordingIndex;
using receiver::RecordingLoss;
using receiver::RecordingSource;
using support::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr qint64 second = 1'000'000'000;
constexpr qint64 startNs = 1'700'000'000 * second;

// Datagrams with these numbers, a tenth of a second apart.
class PlaybackOfARecording : public testing::Test {
protected:
    void record(const std::vector<unsigned>& numbers)
    {
        recording::Recorder recorder{path(), recording::Rotation{}};
        qint64 atNs = startNs;
        for (const unsigned number : numbers) {
            const wire::Bytes bytes = support::numbered(number, 40);
            recorder.take(bytes.data(), bytes.size(), atNs, {});
            atNs += second / 10;
        }
    }
    void play(const receiver::Playback& playback = {})
    {
        source = std::make_unique<RecordingSource>(path(), playback);
        QObject::connect(source.get(), &RecordingSource::restarted, [this] { restarts += 1; });
        QObject::connect(source.get(), &RecordingSource::finished, [this] { ends += 1; });
        source->start([this](const Received& received) {
            played.push_back(wire::byteSwapped<quint16>(received.datagram->GetSeqNumber()));
        });
    }
    [[nodiscard]] std::string path() const { return (folder.path() + "/a.pcap").toStdString(); }
    [[nodiscard]] bool playsUntil(std::size_t count)
    {
        return waitUntil([&] { return played.size() >= count; });
    }

    QTemporaryDir folder;
    std::unique_ptr<RecordingSource> source;
    std::vector<unsigned> played;
    int restarts = 0;
    int ends = 0;
};

TEST_F(PlaybackOfARecording, StopsWhilePausedAndGoesOnWhereItWas)
{
    record({0, 1, 2, 3, 4});
    play();
    ASSERT_TRUE(playsUntil(2));
    source->setPaused(true);
    const std::size_t before = played.size();
    waitUntil([] { return false; }, 300);
    EXPECT_EQ(played.size(), before);
    EXPECT_TRUE(source->playback().isPaused);
    EXPECT_NEAR(source->playback().positionSeconds, 0.1 * static_cast<double>(before - 1), 1e-6);
    QElapsedTimer timer;
    timer.start();
    source->setPaused(false);
    ASSERT_TRUE(playsUntil(5));
    // The time of the pause is not caught up.
    EXPECT_GE(timer.elapsed(), 100 * static_cast<qint64>(5 - before) - 20);
    EXPECT_THAT(played, ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(PlaybackOfARecording, PlaysOneDatagramAStep)
{
    record({0, 1, 2});
    play();
    source->setPaused(true);
    ASSERT_TRUE(waitUntil([&] { return source->isPaused(); }));
    source->step();
    EXPECT_THAT(played, ElementsAre(0));
    source->step();
    EXPECT_THAT(played, ElementsAre(0, 1));
    EXPECT_NEAR(source->playback().positionSeconds, 0.1, 1e-6);
    source->step();
    EXPECT_TRUE(source->playback().hasEnded);
    EXPECT_EQ(ends, 1);
    source->step();
    EXPECT_THAT(played, ElementsAre(0, 1, 2));
}

TEST_F(PlaybackOfARecording, StepsNothingWhileItPlays)
{
    record({0, 1});
    play();
    source->step();
    EXPECT_THAT(played, IsEmpty());
}

TEST_F(PlaybackOfARecording, GoesOnFromASecondAheadAndBack)
{
    record({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    play({.rate = 0});
    ASSERT_TRUE(waitUntil([&] { return ends == 1; }));
    played.clear();
    source->seek(0.75);
    ASSERT_TRUE(waitUntil([&] { return ends == 2; }));
    EXPECT_THAT(played, ElementsAre(8, 9));
    EXPECT_EQ(restarts, 1);
    played.clear();
    source->seek(0);
    ASSERT_TRUE(waitUntil([&] { return ends == 3; }));
    EXPECT_EQ(played.size(), 10U);
    source->seek(1'000);
    ASSERT_TRUE(waitUntil([&] { return ends == 4; }));
    EXPECT_TRUE(source->playback().hasEnded);
}

TEST_F(PlaybackOfARecording, SeeksWhilePausedAndStepsFromThere)
{
    record({0, 1, 2, 3, 4});
    play();
    source->setPaused(true);
    source->seek(0.3);
    EXPECT_EQ(source->playback().positionSeconds, 0.3);
    ASSERT_TRUE(waitUntil([&] {
        source->step(); // nothing happens until it is there
        return !played.empty();
    }));
    EXPECT_THAT(played, ElementsAre(3));
}

TEST_F(PlaybackOfARecording, ChangesItsSpeedWithoutAJump)
{
    record({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
    play();
    ASSERT_TRUE(playsUntil(2));
    QElapsedTimer timer;
    timer.start();
    source->setSpeed(10);
    EXPECT_EQ(source->playback().speed, 10);
    ASSERT_TRUE(playsUntil(12));
    EXPECT_GE(timer.elapsed(), 80); // ten steps of a hundredth of a second, and not 2 seconds
    EXPECT_LT(timer.elapsed(), 900);
    source->setSpeed(0);
    ASSERT_TRUE(playsUntil(20));
}

TEST_F(PlaybackOfARecording, StaysWhereItIsWhenTheFileIsGone)
{
    record({0, 1, 2});
    play();
    source->setPaused(true);
    ASSERT_TRUE(QFile::remove(QString::fromStdString(path())));
    EXPECT_THROW(source->seek(0), std::runtime_error);
    source->step();
    EXPECT_THAT(played, ElementsAre(0));
}

TEST_F(PlaybackOfARecording, KnowsItsLengthAndLossesAfterAWhile)
{
    record({0, 1, 4, 5, 7, 6, 9});
    play();
    source->setPaused(true);
    EXPECT_EQ(source->playback().index, nullptr);
    source->makeIndex();
    ASSERT_TRUE(waitUntil([&] { return source->playback().index != nullptr; }));
    const RecordingIndex& index = *source->playback().index;
    EXPECT_EQ(index.startNs, startNs);
    EXPECT_NEAR(index.durationSeconds, 0.6, 1e-6);
    // 6 came late and is not lost.
    EXPECT_THAT(index.losses, ElementsAre(RecordingLoss{0.2, 2}, RecordingLoss{0.6, 1}));
}

TEST_F(PlaybackOfARecording, PutsLossesTogetherWhereThereAreTooMany)
{
    std::vector<unsigned> numbers;
    for (unsigned i = 0; i < 6'000; ++i)
        numbers.push_back(i * 2);
    record(numbers);
    const RecordingIndex index = receiver::indexRecording(path(), std::atomic<bool>{false});
    EXPECT_LE(index.losses.size(), RecordingIndex::mostLosses);
    quint64 sum = 0;
    for (const RecordingLoss& loss : index.losses)
        sum += loss.datagrams;
    EXPECT_EQ(sum, 5'999U);
}

TEST_F(PlaybackOfARecording, EndsItsIndexingWhenItIsClosed)
{
    record({0, 1});
    const std::atomic<bool> stop{true};
    EXPECT_EQ(receiver::indexRecording(path(), stop).durationSeconds, 0);
    EXPECT_THAT(receiver::indexRecording("nowhere.pcap", std::atomic<bool>{false}).losses, IsEmpty());
}

} // namespace
