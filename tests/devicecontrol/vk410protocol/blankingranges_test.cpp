// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/blankingranges.h"
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <optional>
#include <random>

using blanking::Interval;
using blanking::JobIntervals;
using testing::ElementsAre;
using testing::IsEmpty;
using Sample = values::DFSpectrumSample;

namespace {

using Channels = std::map<int, std::set<quint64>>;

std::shared_ptr<ScanRange> scanRange(quint64 start, quint64 stop, double step, int job)
{
    auto range = std::make_shared<ScanRange>();
    range->startFrequency = start;
    range->stopFrequency = stop;
    range->step = step;
    range->jobId = static_cast<quint32>(job);
    return range;
}

Channels channelsOf(const JobIntervals& intervals)
{
    Channels channels;
    for (const auto& [job, list] : intervals) {
        for (const Interval& interval : list) {
            for (quint64 c = interval.lower(); c < interval.upper(); ++c)
                channels[job].insert(c);
        }
    }
    return channels;
}

Channels blankedChannels(const ScanRangeContainer& ranges, const std::vector<Interval>& given)
{
    return channelsOf(blanking::blankedChannels(ranges, given));
}

// Looks at every hertz by itself. Holds for steps of at least 1 Hz, where neighbours never skip a channel.
Channels perHertz(const ScanRangeContainer& ranges, const std::vector<Interval>& given, quint64 end)
{
    Channels channels;
    if (given.empty())
        return channels;
    for (quint64 hertz = 0; hertz < end; ++hertz) {
        std::set<int> ids;
        for (const auto& range : ranges) {
            if (range->startFrequency <= hertz && hertz <= range->stopFrequency)
                ids.insert(static_cast<int>(range->jobId));
        }
        for (const Interval& interval : given) {
            if (interval.lower() <= hertz && hertz <= interval.upper())
                ids.insert(-1);
        }
        if (ids.size() < 2)
            continue;
        for (const auto& range : ranges) {
            const auto distance = static_cast<double>(hertz) - static_cast<double>(range->startFrequency);
            if (ids.count(static_cast<int>(range->jobId)) != 0)
                channels[static_cast<int>(range->jobId)].insert(
                    static_cast<quint64>(std::floor(distance / range->step + 0.5)));
        }
    }
    return channels;
}

TEST(BlankedChannels, AreThoseThatLookingAtEveryHertzGives)
{
    std::mt19937 random{4711};
    const auto upTo = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 3000; ++round) {
        ScanRangeContainer ranges;
        const unsigned jobs = upTo(4);
        for (unsigned job = 0; job < jobs; ++job) {
            const double step = 1.0 + upTo(30) / 4.0;
            const quint64 start = upTo(300);
            // A whole number of steps, as a receiver scans; rounded down to whole hertz.
            const auto stop = start + static_cast<quint64>(step * upTo(20));
            ranges.push_back(scanRange(start, stop, step, static_cast<int>(job)));
        }
        std::vector<Interval> given;
        const unsigned count = upTo(6);
        for (unsigned i = 0; i < count; ++i) {
            const quint64 start = upTo(500);
            given.push_back(Interval::closed(start, start + upTo(3) * upTo(30)));
        }
        ASSERT_EQ(blankedChannels(ranges, given), perHertz(ranges, given, 700)) << round;
    }
}

TEST(BlankedChannels, AreNoneWithoutAGivenRange)
{
    EXPECT_THAT(blankedChannels({scanRange(100, 200, 10, 1), scanRange(150, 250, 10, 2)}, {}), IsEmpty());
}

TEST(BlankedChannels, OfOverlappingJobsAreBlankedAsSoonAsAnyRangeIsGiven)
{
    const ScanRangeContainer ranges{scanRange(100, 200, 10, 1), scanRange(150, 250, 10, 2)};
    const Channels elsewhere = blankedChannels(ranges, {Interval::closed(1000, 1001)});
    EXPECT_THAT(elsewhere.at(1), ElementsAre(5, 6, 7, 8, 9, 10));
    EXPECT_THAT(elsewhere.at(2), ElementsAre(0, 1, 2, 3, 4, 5));
    const Channels inside = blankedChannels(ranges, {Interval::closed(180, 220)});
    EXPECT_THAT(inside.at(1), ElementsAre(5, 6, 7, 8, 9, 10));
    EXPECT_THAT(inside.at(2), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST(BlankedChannels, OfRangesOfOneJobThatOverlapAreNotBlanked)
{
    EXPECT_THAT(blankedChannels({scanRange(100, 200, 10, 1), scanRange(150, 250, 10, 1)},
                                {Interval::closed(1000, 1001)}),
                IsEmpty());
}

TEST(BlankedChannels, OfASingleFrequencyAreOne)
{
    const ScanRangeContainer ranges{scanRange(99'900'000, 100'100'000, 25'000, 7)};
    const auto intervals = blanking::blankedChannels(ranges, {Interval::closed(100'000'000, 100'000'000)});
    ASSERT_EQ(intervals.at(7).size(), 1U);
    EXPECT_EQ(intervals.at(7)[0].lower(), 4U);
    EXPECT_EQ(intervals.at(7)[0].upper(), 5U);
}

TEST(BlankedChannels, ReachARangeThatOnlyTouchesItsStartOrStop)
{
    const ScanRangeContainer ranges{scanRange(100, 200, 10, 1)};
    EXPECT_THAT(blankedChannels(ranges, {Interval::closed(50, 100)}).at(1), ElementsAre(0));
    EXPECT_THAT(blankedChannels(ranges, {Interval::closed(200, 300)}).at(1), ElementsAre(10));
    EXPECT_THAT(blankedChannels(ranges, {Interval::closed(50, 99), Interval::closed(201, 300)}), IsEmpty());
}

TEST(BlankedChannels, AreThoseOfTheFirstRangeOfAJob)
{
    const ScanRangeContainer ranges{scanRange(300, 400, 10, 1), scanRange(100, 200, 10, 1)};
    EXPECT_THAT(blankedChannels(ranges, {Interval::closed(110, 120)}), IsEmpty());
    EXPECT_THAT(blankedChannels(ranges, {Interval::closed(310, 320)}).at(1), ElementsAre(1, 2));
}

TEST(BlankedChannels, OfHugeNumbersStayDefined)
{
    constexpr quint64 most = std::numeric_limits<quint64>::max();
    for (const double step : {0.0, -1.0, 1e-300, 1e300, std::nan(""), 1e9}) {
        const auto intervals = blanking::blankedChannels({scanRange(0, most, step, 1)},
                                                         {Interval::closed(0, most), Interval::closed(5, 5)});
        for (const auto& [job, list] : intervals) {
            for (const Interval& interval : list)
                EXPECT_LT(interval.lower(), interval.upper()) << step;
        }
    }
}

TEST(Blanking, OverlapsWhereBothEndsCount)
{
    EXPECT_TRUE(blanking::isOverlapping(1, 5, 5, 9));
    EXPECT_TRUE(blanking::isOverlapping(5, 9, 1, 5));
    EXPECT_TRUE(blanking::isOverlapping(1, 9, 4, 4));
    EXPECT_FALSE(blanking::isOverlapping(1, 4, 5, 9));
    EXPECT_FALSE(blanking::isOverlapping(5, 9, 1, 4));
    EXPECT_FALSE(blanking::isOverlapping(9, 1, 4, 5));
}

std::string afterBlanking(std::string validities, qint64 first, const std::vector<Interval>& channels,
                          bool expectedChange)
{
    std::vector<Sample> samples(validities.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i].setValidity(static_cast<Sample::Validity>(validities[i] - '0'));
    const bool mayBeUnusable = validities.find('0') != std::string::npos;
    EXPECT_EQ(blanking::blank({samples, first, mayBeUnusable}, channels), expectedChange);
    for (std::size_t i = 0; i < samples.size(); ++i)
        validities[i] = static_cast<char>('0' + static_cast<int>(samples[i].getValidity()));
    return validities;
}

TEST(Blanking, MarksTheUsableSamplesOfABlockInsideTheChannels)
{
    const std::vector<Interval> channels{Interval::right_open(0, 2), Interval::right_open(5, 7),
                                         Interval::right_open(9, 20)};
    EXPECT_EQ(afterBlanking("1111111111", 0, channels, true), "2211122112");
    EXPECT_EQ(afterBlanking("1111", 6, channels, true), "2112");
    EXPECT_EQ(afterBlanking("1111", -2, channels, true), "1122");
    EXPECT_EQ(afterBlanking("111", 2, channels, false), "111");
    EXPECT_EQ(afterBlanking("11", 20, channels, false), "11");
    EXPECT_EQ(afterBlanking("1111", -4, channels, false), "1111");
    EXPECT_EQ(afterBlanking("0012", 5, channels, false), "0012");
    EXPECT_EQ(afterBlanking("2", 5, channels, true), "2"); // counts although it was blanked before
    EXPECT_EQ(afterBlanking("", 5, channels, false), "");
}

TEST(Blanking, MarksWhatGoingThroughEveryChannelMarks)
{
    std::mt19937 random{815};
    for (int round = 0; round < 3000; ++round) {
        std::vector<Interval> channels;
        quint64 at = 0;
        for (auto i = random() % 8; i > 0; --i) {
            const quint64 first = at + random() % 4;
            at = first + 1 + random() % 5;
            channels.push_back(Interval::right_open(first, at));
            at -= random() % 2; // rounding lets neighbours share a channel
        }
        std::string before(random() % 30, '1');
        const char lowest = random() % 2 == 0 ? '0' : '1'; // with unusable ones or without
        for (char& validity : before)
            validity = static_cast<char>(lowest + static_cast<char>(random() % ('3' - lowest)));
        const qint64 first = static_cast<qint64>(random() % 40) - 15;
        std::string expected = before;
        bool isAnyInside = false;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            for (const Interval& interval : channels) {
                const qint64 channel = first + static_cast<qint64>(i);
                if (before[i] == '0' || channel < static_cast<qint64>(interval.lower()) ||
                    channel >= static_cast<qint64>(interval.upper()))
                    continue;
                expected[i] = '2';
                isAnyInside = true;
            }
        }
        ASSERT_EQ(afterBlanking(before, first, channels, isAnyInside), expected);
    }
}

} // namespace
