// SPDX-License-Identifier: MIT
#include "toolkit/inspection/summary.h"
#include "toolkit/inspection/timetext.h"
#include "toolkit/support/inspected.h"
#include <gmock/gmock.h>

namespace {

using inspection::SequenceWatch;
using support::Bytes;
using support::datagramOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;
using wire::DatagramWriter;

std::vector<std::string> summaryOf(std::vector<recording::Datagram> datagrams)
{
    support::Output out;
    inspection::Summary summary{out.file(), "test"};
    inspection::Inspector inspector{summary};
    for (recording::Datagram& datagram : datagrams)
        inspector.inspect(std::move(datagram));
    summary.finish();
    return out.lines();
}

recording::Datagram received(const Bytes& bytes, std::int64_t ns, std::uint8_t host = 1)
{
    recording::Datagram datagram = datagramOf(bytes);
    datagram.receivedNs = ns;
    datagram.origin.transport = recording::Transport::Udp;
    datagram.origin.from = {{192, 0, 2, host}, false, 5555};
    datagram.origin.to = {{192, 0, 2, 99}, false, 4444};
    return datagram;
}

TEST(Summary, HasARowForEachTagAndChannel)
{
    EXPECT_THAT(
        summaryOf(
            {datagramOf(DatagramWriter{}
                            .sequence(1)
                            .attribute(501)
                            .selectors(1)
                            .count(2)
                            .bytes(Bytes(4))
                            .attribute(501, 3)
                            .attribute(9999, 1)
                            .build()),
             datagramOf(
                 DatagramWriter{}.sequence(2).attribute(501).selectors(3).count(1).bytes(Bytes(6)).build())}),
        ElementsAre("test: 2 datagrams, 90 bytes",
                    "file: 2 datagrams, 0 invalid; sequence gaps 0, missing 0, backwards 0", "",
                    "  tag  channel  attributes  bytes  count  span/Hz  selectors  gaps  rate/s  age/s",
                    "  501        0           2     34   1..2        -    0x1 0x3     0       -      -",
                    "  501        3           1     12      0        -        0x0     0       -      -",
                    "9999?        1           1     12      0        -        0x0     0       -      -",
                    "? not a known tag: stepped over"));
}

TEST(Summary, TellsRatesAndAgesWhereTimesAreKnown)
{
    const Bytes panorama = DatagramWriter{}.sequence(1).attribute(501).build();
    const Bytes panorama2 = DatagramWriter{}.sequence(2).attribute(501).build();
    const Bytes scan = DatagramWriter{}.sequence(3).attribute(201).build();

    EXPECT_THAT(
        summaryOf({received(panorama, support::firstNs), received(panorama2, support::firstNs + 500'000'000),
                   received(scan, support::firstNs + 2'000'000'000)}),
        ElementsAre(
            "test: 3 datagrams, 84 bytes",
            "from 2023-11-14T22:13:20.000000000Z to 2023-11-14T22:13:22.000000000Z, 2.000 s",
            "udp 192.0.2.1:5555 > 192.0.2.99:4444: 3 datagrams, 0 invalid; sequence gaps 0, missing 0, "
            "backwards 0",
            "", "tag  channel  attributes  bytes  count  span/Hz  selectors  gaps  rate/s  age/s",
            "201        0           1     12      0        -        0x0     0       -  0.000",
            "501        0           2     24      0        -        0x0     0     2.0  1.500"));
}

TEST(Summary, TellsRatesOfTimesThatLieOneNanosecondApart)
{
    const Bytes panorama = DatagramWriter{}.attribute(501).build();

    EXPECT_THAT(
        summaryOf({received(panorama, support::firstNs), received(panorama, support::firstNs + 1)}),
        Contains("501        0           2     24      0        -        0x0     0  1000000000.0  0.000"));
}

TEST(Summary, TakesTimesAtBothEndsOfTheirRange)
{
    const Bytes panorama = DatagramWriter{}.attribute(501).build();

    EXPECT_THAT(summaryOf({received(panorama, INT64_MIN), received(panorama, INT64_MAX)}),
                Contains("501        0           2     24      0        -        0x0     0     0.0  0.000"));
}

TEST(Summary, CountsGapsOfEachSenderByItself)
{
    std::vector<recording::Datagram> datagrams;
    for (const std::uint16_t sequence : std::initializer_list<std::uint16_t>{10, 11, 14}) {
        datagrams.push_back(received(DatagramWriter{}.sequence(sequence).attribute(501).build(), 0, 1));
        datagrams.push_back(received(
            DatagramWriter{}.sequence(static_cast<std::uint16_t>(sequence * 100)).attribute(201).build(), 0,
            2));
    }

    const std::vector<std::string> lines = summaryOf(std::move(datagrams));

    EXPECT_THAT(
        lines,
        Contains(StartsWith(
            "udp 192.0.2.1:5555 > 192.0.2.99:4444: 3 datagrams, 0 invalid; sequence gaps 1, missing 2,")));
    EXPECT_THAT(
        lines,
        Contains(StartsWith(
            "udp 192.0.2.2:5555 > 192.0.2.99:4444: 3 datagrams, 0 invalid; sequence gaps 2, missing 398,")));
    EXPECT_THAT(lines,
                Contains("501        0           3     36      0        -        0x0     1       -  0.000"));
    EXPECT_THAT(lines,
                Contains("201        0           3     36      0        -        0x0     2       -  0.000"));
}

TEST(Summary, ListsWhatWasDropped)
{
    const std::vector<std::string> lines =
        summaryOf({datagramOf(DatagramWriter{}.magic(1).build(), 0),
                   datagramOf(DatagramWriter{}.attribute(101).selectors(0x00400000).build(), 16)});

    EXPECT_THAT(lines, Contains("2 errors: 1 Bad Magic, 1 Unknown Selector Flag"));
    EXPECT_THAT(lines, Contains("  datagram 0 at byte 0: Bad Magic"));
    EXPECT_THAT(
        lines,
        Contains(
            "  datagram 1 at byte 16: Unknown Selector Flag in attribute 0: selector bit 22 at byte 24"));
    EXPECT_THAT(lines, Contains(StartsWith("file: 2 datagrams, 1 invalid;")));
}

TEST(Summary, ListsTwentyErrorsAndCountsTheRest)
{
    std::vector<recording::Datagram> datagrams;
    for (int i = 0; i < 25; ++i)
        datagrams.push_back(datagramOf(DatagramWriter{}.magic(1).build()));

    const std::vector<std::string> lines = summaryOf(std::move(datagrams));

    EXPECT_THAT(lines, Contains("  datagram 19 at byte 0: Bad Magic"));
    EXPECT_THAT(lines, Not(Contains("  datagram 20 at byte 0: Bad Magic")));
    EXPECT_EQ(lines.back(), "  and 5 more");
}

TEST(Summary, KeepsABoundedNumberOfRowsSendersAndSelectors)
{
    std::vector<recording::Datagram> datagrams;
    for (std::uint32_t i = 0; i < 1200; ++i) {
        recording::Datagram datagram = received(DatagramWriter{}.attribute(5001, i).selectors(0).build(), 0);
        datagram.origin.from.port = static_cast<std::uint16_t>(i);
        datagrams.push_back(std::move(datagram));
    }
    for (std::uint32_t selectors = 1; selectors <= 0x200; selectors *= 2)
        datagrams.push_back(received(DatagramWriter{}.attribute(101).selectors(selectors).build(), 0));

    const std::vector<std::string> lines = summaryOf(std::move(datagrams));

    EXPECT_THAT(lines, Contains("further senders: 1146 datagrams"));
    EXPECT_EQ(lines.back(), "further tags and channels: 186 attributes");
}

TEST(Summary, ShortensALongListOfSelectors)
{
    std::vector<recording::Datagram> datagrams;
    for (std::uint32_t selectors = 1; selectors <= 0x200; selectors *= 2)
        datagrams.push_back(datagramOf(DatagramWriter{}.attribute(101).selectors(selectors).build()));

    EXPECT_THAT(
        summaryOf(std::move(datagrams)),
        Contains("101        0          10    120      0        -  0x1 0x2 0x4 ..     0       -      -"));
}

TEST(TimeText, IsInUtcWithNanoseconds)
{
    using inspection::timeText;
    EXPECT_EQ(timeText(0), "1970-01-01T00:00:00.000000000Z");
    EXPECT_EQ(timeText(1'700'000'000'123'456'789), "2023-11-14T22:13:20.123456789Z");
    EXPECT_EQ(timeText(-1), "1969-12-31T23:59:59.999999999Z");
    EXPECT_EQ(timeText(-1'000'000'000), "1969-12-31T23:59:59.000000000Z");
    EXPECT_EQ(timeText(INT64_MIN), "1677-09-21T00:12:43.145224192Z");
}

TEST(SequenceWatch, CountsWhatIsMissingAcrossTheWrap)
{
    SequenceWatch watch;
    EXPECT_EQ(watch.take(65534), 0U);
    EXPECT_EQ(watch.take(65535), 0U);
    EXPECT_EQ(watch.take(0), 0U);
    EXPECT_EQ(watch.take(3), 2U);
    EXPECT_EQ(watch.gaps(), 1U);
    EXPECT_EQ(watch.missing(), 2U);
    EXPECT_EQ(watch.backwards(), 0U);
}

TEST(SequenceWatch, TakesCopiesAndStragglersForNoGap)
{
    SequenceWatch watch;
    for (const std::uint16_t sequence : std::initializer_list<std::uint16_t>{10, 11, 11, 9, 12, 13})
        EXPECT_EQ(watch.take(sequence), 0U) << sequence;
    EXPECT_EQ(watch.backwards(), 2U);
    EXPECT_EQ(watch.gaps(), 0U);
}

TEST(SequenceWatch, FollowsASenderThatBeginsAnew)
{
    SequenceWatch watch;
    for (const std::uint16_t sequence : std::initializer_list<std::uint16_t>{5000, 5001, 0, 1, 2})
        EXPECT_EQ(watch.take(sequence), 0U) << sequence;
    EXPECT_EQ(watch.take(4), 1U);
    EXPECT_EQ(watch.backwards(), 1U);
}

} // namespace
