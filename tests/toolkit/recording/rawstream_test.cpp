// SPDX-License-Identifier: MIT
#include "toolkit/recording/rawstream.h"
#include "toolkit/support/capture_bytes.h"
#include "toolkit/support/read_recording.h"
#include <gmock/gmock.h>

namespace {

using support::joined;
using support::Read;
using support::readRecording;
using support::traceDatagram;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

const Bytes first = traceDatagram(7, 2);  // 32 bytes
const Bytes second = traceDatagram(8, 4); // 36 bytes

TEST(RawStream, DeliversItsDatagramsWithTheirPositions)
{
    const Read read = readRecording(joined({first, second}));

    EXPECT_THAT(read.bytes(), ElementsAre(first, second));
    EXPECT_THAT(read.positions(), ElementsAre(0, 32));
    EXPECT_THAT(read.times(), ElementsAre(std::nullopt, std::nullopt));
    EXPECT_THAT(read.origins(), ElementsAre("file", "file"));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(RawStream, HandsOutBytesThatTheReaderCanTakeWithoutACopy)
{
    const Read read = readRecording(first);

    ASSERT_EQ(read.datagrams.size(), 1U);
    EXPECT_GE(read.datagrams[0].bytes.capacity(), read.datagrams[0].bytes.size() + 2);
    EXPECT_TRUE(read.datagrams[0].bytes.isDetached());
}

TEST(RawStream, DeliversADatagramWithABadMagicBecauseItsLengthIsGood)
{
    const Bytes bad = DatagramWriter{}.magic(0xDEADBEEF).build();

    EXPECT_THAT(readRecording(joined({bad, first})).bytes(), ElementsAre(bad, first));
}

TEST(RawStream, DeliversWhatCameBeforeACutDatagram)
{
    Bytes file = joined({first, second});
    file.resize(60);

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_THAT(read.problems, ElementsAre("END test: byte 32: expected a datagram of 36 bytes, found 28"));
}

TEST(RawStream, DeliversWhatCameBeforeACutHeader)
{
    Bytes file = joined({first, second});
    file.resize(35);

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_THAT(read.problems,
                ElementsAre("END test: byte 32: expected a datagram header of 16 bytes, found 3"));
}

TEST(RawStream, EndsAtALengthThatCannotBeTrue)
{
    const Bytes tooShort = DatagramWriter{}.claimTotalLength(15).build();

    const Read read = readRecording(joined({first, tooShort, second}));

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_THAT(read.problems,
                ElementsAre("END test: byte 44: expected a datagram length from 16 to 67108864, found 15"));
}

TEST(RawStream, SaysWhatItReadsWhenTheFirstBytesAreNoDatagram)
{
    const std::string text = "This is a letter, and no recording.";

    const Read read = readRecording(Bytes(text.begin(), text.end()));

    EXPECT_THAT(read.bytes(), IsEmpty());
    EXPECT_THAT(read.problems,
                ElementsAre("END test: byte 12: expected a pcap or pcapng capture, or datagrams "
                            "back to back: a datagram length from 16 to 67108864, found "
                            "1953785202"));
}

TEST(RawStream, RefusesAnEmptyFile)
{
    EXPECT_THAT(readRecording({}).problems,
                ElementsAre("END test: byte 0: expected a pcap or pcapng capture, or datagrams back to back, "
                            "found an empty file"));
}

TEST(RawStream, BelievesALengthOnlyAsFarAsThereAreBytes)
{
    const Bytes claims64MiB = DatagramWriter{}.claimTotalLength(64U << 20U).build();

    EXPECT_THAT(readRecording(claims64MiB).problems,
                ElementsAre("END test: byte 0: expected a datagram of 67108864 bytes, found 16"));
}

TEST(RawStream, GivesNothingMoreAfterItsEnd)
{
    const Bytes file = joined({first, Bytes(3)});
    recording::RawStream stream{support::fileOf(file), "test"};

    EXPECT_TRUE(stream.next().has_value());
    EXPECT_THROW((void)stream.next(), recording::BadFile);
    EXPECT_FALSE(stream.next().has_value());
    EXPECT_FALSE(stream.next().has_value());
}

TEST(RawStream, DeliversTheWholeDatagramsOfEveryPrefix)
{
    const Bytes file = joined({first, second});

    for (std::size_t size = 0; size <= file.size(); ++size) {
        const Read read =
            readRecording(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));

        EXPECT_EQ(read.datagrams.size(), size < 32 ? 0U : size < 68 ? 1U : 2U) << size;
        EXPECT_EQ(read.problems.size(), size == 32 || size == 68 ? 0U : 1U) << size;
    }
}

TEST(RawStream, ReadsOnAFileThatGrowsMeanwhile)
{
    recording::FilePtr file{std::tmpfile()};
    ASSERT_TRUE(file);
    std::fwrite(first.data(), 1, first.size(), file.get());
    std::rewind(file.get());
    recording::RawStream stream{recording::FilePtr{::fdopen(::dup(::fileno(file.get())), "rb")}, "test"};

    EXPECT_TRUE(stream.next().has_value());
    ASSERT_EQ(::pwrite(::fileno(file.get()), second.data(), second.size(), 32), 36);
    EXPECT_TRUE(stream.next().has_value());
    EXPECT_FALSE(stream.next().has_value());
}

} // namespace
