// SPDX-License-Identifier: MIT
#include "toolkit/recording/streamcutter.h"
#include "toolkit/support/capture_bytes.h"
#include <gmock/gmock.h>
#include <random>

namespace {

using recording::Cut;
using recording::Skipped;
using recording::StreamCutter;
using support::joined;
using support::traceDatagram;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

const Bytes first = traceDatagram(7, 2);  // 32 bytes
const Bytes second = traceDatagram(8, 4); // 36 bytes

// "offset:size", and "offset:size-skipped@offset" where something was left out.
std::vector<std::string> drained(StreamCutter& cutter)
{
    std::vector<std::string> cuts;
    while (const std::optional<Cut> cut = cutter.next()) {
        std::string text = std::to_string(cut->offset) + ":" + std::to_string(cut->bytes.size());
        if (cut->before.size > 0)
            text += "-" + std::to_string(cut->before.size) + "@" + std::to_string(cut->before.offset);
        cuts.push_back(text);
    }
    return cuts;
}

TEST(StreamCutter, CutsAtEveryDatagramWhereverThePiecesEnd)
{
    const Bytes stream = joined({first, second, first});
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        StreamCutter cutter{StreamCutter::Start::AtDatagram};
        std::vector<std::string> cuts;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            cutter.append(std::span{stream}.subspan(at, std::min(piece, stream.size() - at)));
            for (const std::string& cut : drained(cutter))
                cuts.push_back(cut);
        }
        EXPECT_THAT(cuts, ElementsAre("0:32", "32:36", "68:32")) << piece;
    }
}

TEST(StreamCutter, WaitsForTheRestOfADatagram)
{
    StreamCutter cutter{StreamCutter::Start::AtDatagram};

    cutter.append(std::span{first}.first(31));
    EXPECT_THAT(drained(cutter), IsEmpty());
    cutter.append(std::span{first}.last(1));
    EXPECT_THAT(drained(cutter), ElementsAre("0:32"));
}

TEST(StreamCutter, TakesADatagramWithABadMagicWhereItKnowsThatOneBegins)
{
    StreamCutter cutter{StreamCutter::Start::AtDatagram};

    cutter.append(DatagramWriter{}.magic(1).build());

    EXPECT_THAT(drained(cutter), ElementsAre("0:16"));
}

TEST(StreamCutter, FindsTheFirstDatagramBehindTheRestOfAnother)
{
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(joined({Bytes(11, 0x55), first, second}));

    EXPECT_THAT(drained(cutter), ElementsAre("11:32-11@0", "43:36"));
}

TEST(StreamCutter, FindsADatagramInEitherByteOrderOfTheMagic)
{
    const Bytes little =
        DatagramWriter{}.magic(wire::datagram::magicLittleEndian, wire::ByteOrder::Little).build();
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(joined({Bytes(3, 0x55), little, first}));

    EXPECT_THAT(drained(cutter), ElementsAre("3:16-3@0", "19:32"));
}

TEST(StreamCutter, DoubtsAMagicUntilAnotherDatagramFollows)
{
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(first);
    EXPECT_THAT(drained(cutter), IsEmpty());
    cutter.append(std::span{second}.first(4));
    EXPECT_THAT(drained(cutter), ElementsAre("0:32"));
}

TEST(StreamCutter, BelievesAMagicAtTheStreamsEnd)
{
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(first);
    cutter.end();

    EXPECT_THAT(drained(cutter), ElementsAre("0:32"));
}

TEST(StreamCutter, IsNotMisledByAMagicInsideAnotherDatagram)
{
    // The bytes of a header, as the items of a trace whose beginning is missing.
    const Bytes lookalike = DatagramWriter{}.claimTotalLength(40).build();
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(joined({lookalike, Bytes(8, 0x55), first, second}));

    EXPECT_THAT(drained(cutter), ElementsAre("24:32-24@0", "56:36"));
}

TEST(StreamCutter, IsNotHeldUpForeverByALookalikeThatClaimsMoreThanThereIs)
{
    const Bytes lookalike = DatagramWriter{}.claimTotalLength(64U << 20U).build();
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    cutter.append(joined({lookalike, first}));
    EXPECT_THAT(drained(cutter), IsEmpty());
    cutter.end();

    EXPECT_THAT(drained(cutter), ElementsAre("16:32-16@0"));
}

TEST(StreamCutter, SearchesOnBehindALengthThatCannotBeTrue)
{
    const Bytes bad = DatagramWriter{}.claimTotalLength(3).build();
    StreamCutter cutter{StreamCutter::Start::AtDatagram};

    cutter.append(joined({first, bad, second, first}));

    EXPECT_THAT(drained(cutter), ElementsAre("0:32", "48:36-16@32", "84:32"));
}

TEST(StreamCutter, HoldsNothingOfBytesWithoutAMagic)
{
    StreamCutter cutter{StreamCutter::Start::Anywhere};

    for (int i = 0; i < 1000; ++i) {
        cutter.append(Bytes(1000, 0x55));
        EXPECT_THAT(drained(cutter), IsEmpty());
        EXPECT_LT(cutter.waiting(), 4U);
    }
    EXPECT_GE(cutter.skipped().size, 999'000U);
}

TEST(StreamCutter, SaysWhatItLeavesInFrontOfAHole)
{
    StreamCutter cutter{StreamCutter::Start::AtDatagram};
    cutter.append(joined({first, Bytes(second.begin(), second.begin() + 20)}));
    cutter.end();
    EXPECT_THAT(drained(cutter), ElementsAre("0:32"));

    const Skipped rest = cutter.restart(1000);

    EXPECT_EQ(rest.offset, 32U);
    EXPECT_EQ(rest.size, 20U);
    EXPECT_EQ(rest.datagramSize, 36U);
    cutter.append(joined({Bytes(5), first, second}));
    EXPECT_THAT(drained(cutter), ElementsAre("1005:32-5@1000", "1037:36"));
}

TEST(StreamCutter, FindsAllDatagramsBehindRandomBytesWithoutAMagic)
{
    std::mt19937 random{410};
    for (int round = 0; round < 200; ++round) {
        Bytes stream(random() % 300, 0x55);
        const std::size_t garbage = stream.size();
        for (std::uint16_t i = 0; i < 5; ++i)
            stream = joined({stream, traceDatagram(i, static_cast<std::uint16_t>(random() % 50))});
        StreamCutter cutter{StreamCutter::Start::Anywhere};
        std::size_t found = 0;
        std::uint64_t skipped = 0;
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t piece = std::min<std::size_t>(1 + random() % 70, stream.size() - at);
            cutter.append(std::span{stream}.subspan(at, piece));
            at += piece;
            if (at == stream.size())
                cutter.end();
            while (const std::optional<Cut> cut = cutter.next()) {
                skipped += cut->before.size;
                ++found;
            }
        }
        EXPECT_EQ(found, 5U);
        EXPECT_EQ(skipped, garbage);
    }
}

} // namespace
