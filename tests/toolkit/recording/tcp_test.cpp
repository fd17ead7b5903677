// SPDX-License-Identifier: MIT
#include "toolkit/recording/tcpflow.h"
#include "toolkit/support/capture_bytes.h"
#include "toolkit/support/read_recording.h"
#include <algorithm>
#include <gmock/gmock.h>
#include <random>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint32_t isn = 1000; // initial sequence number: the first byte has 1001

// Datagrams of 28 + 2 x count bytes.
const std::vector<Bytes> datagrams{traceDatagram(1, 10), traceDatagram(2, 20), traceDatagram(3, 30),
                                   traceDatagram(4, 40)};

// The stream in segments of `size` bytes, without its SYN.
std::vector<TcpPiece> segments(const Bytes& stream, std::size_t size, std::uint32_t sequence = isn + 1)
{
    std::vector<TcpPiece> pieces;
    for (std::size_t at = 0; at < stream.size(); at += size) {
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        TcpPiece piece;
        piece.sequence = sequence + static_cast<std::uint32_t>(at);
        piece.payload.assign(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, stream.size() - at)));
        pieces.push_back(piece);
    }
    return pieces;
}

TcpPiece syn(std::uint32_t sequence = isn)
{
    TcpPiece piece;
    piece.sequence = sequence;
    piece.syn = true;
    return piece;
}

Bytes captureOf(const std::vector<TcpPiece>& pieces, const Route& route = {})
{
    std::vector<Bytes> packets;
    for (const TcpPiece& piece : pieces)
        packets.push_back(tcpPacket(piece, route));
    return capture(timed(packets), linktype::raw);
}

std::vector<TcpPiece> withSyn(std::vector<TcpPiece> pieces)
{
    pieces.insert(pieces.begin(), syn());
    return pieces;
}

TEST(TcpStream, IsCutIntoDatagramsWhereverItsSegmentsEnd)
{
    std::vector<Bytes> little; // their magic begins with 0x10, which no other byte is
    for (std::uint16_t sequence = 1; sequence < 5; ++sequence)
        little.push_back(wire::DatagramWriter{}
                             .magic(wire::datagram::magicLittleEndian, wire::ByteOrder::Little)
                             .sequence(sequence)
                             .attribute(401)
                             .bytes(Bytes(30))
                             .build());
    const Bytes stream = joined(little);
    for (const std::size_t size : {1U, 7U, 16U, 48U, 100U, 1000U}) {
        const Bytes file = captureOf(withSyn(segments(stream, size)));

        const Read read = readRecording(file, {5555});

        EXPECT_THAT(read.bytes(), ElementsAreArray(little)) << size;
        EXPECT_THAT(read.problems, IsEmpty()) << size;
        EXPECT_EQ(read.origins().at(0), "tcp 192.0.2.1:5555 > 192.0.2.2:4444");
        for (const recording::Datagram& datagram : read.datagrams)
            EXPECT_EQ(file.at(datagram.position), 0x10) << size;
    }
}

TEST(TcpStream, NeedsNoPortWhenItBeginsWithADatagram)
{
    const Read read = readRecording(captureOf(segments(joined(datagrams), 100)));

    EXPECT_THAT(read.bytes(), ElementsAreArray(datagrams));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(TcpStream, TellsWhenTheLastByteOfADatagramCame)
{
    const Read read =
        readRecording(captureOf(withSyn(segments(datagrams[0], 20))), {5555}); // 48 bytes: 20, 20, 8

    EXPECT_THAT(read.times(), ElementsAre(firstNs + 3 * apartNs));
}

TEST(TcpStream, WorksOverIpv6)
{
    const Route route{"2001:db8::1", "2001:db8::2", 5555, 4444};

    const Read read = readRecording(captureOf(withSyn(segments(joined(datagrams), 33)), route), {5555});

    EXPECT_THAT(read.bytes(), ElementsAreArray(datagrams));
}

TEST(TcpStream, ComesOutInOrderHoweverItsSegmentsCame)
{
    std::mt19937 random{410};
    for (int round = 0; round < 50; ++round) {
        std::vector<TcpPiece> pieces = segments(joined(datagrams), 25);
        std::shuffle(pieces.begin(), pieces.end(), random);

        const Read read = readRecording(captureOf(withSyn(pieces)), {5555});

        EXPECT_THAT(read.bytes(), ElementsAreArray(datagrams));
        EXPECT_THAT(read.problems, IsEmpty());
    }
}

TEST(TcpStream, TakesRepeatedAndOverlappingSegmentsOnce)
{
    const Bytes stream = joined(datagrams);
    std::mt19937 random{410};
    for (int round = 0; round < 50; ++round) {
        std::vector<TcpPiece> pieces;
        for (std::size_t begin = 0; begin < stream.size(); begin += 20) {
            const std::size_t early = begin - std::min<std::size_t>(begin, random() % 40);
            const std::size_t end = std::min(begin + 20, stream.size());
            pieces.push_back({isn + 1 + static_cast<std::uint32_t>(early),
                              Bytes(stream.begin() + static_cast<std::ptrdiff_t>(early),
                                    stream.begin() + static_cast<std::ptrdiff_t>(end)),
                              false, false, false});
            if (random() % 3 == 0)
                pieces.push_back(pieces[random() % pieces.size()]);
        }

        EXPECT_THAT(readRecording(captureOf(withSyn(pieces)), {5555}).bytes(), ElementsAreArray(datagrams));
    }
}

TEST(TcpStream, CrossesTheEndOfTheSequenceNumbers)
{
    std::vector<TcpPiece> pieces = segments(joined(datagrams), 30, 0xFFFFFFE0);
    std::swap(pieces[0], pieces[2]); // the one before the wrap behind those after it
    pieces.insert(pieces.begin(), syn(0xFFFFFFDF));

    const Read read = readRecording(captureOf(pieces), {5555});

    EXPECT_THAT(read.bytes(), ElementsAreArray(datagrams));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(TcpStream, WhoseFirstSegmentIsMissingBeginsWithTheNextDatagram)
{
    std::vector<TcpPiece> pieces = segments(joined(datagrams), 20); // datagrams end at 48, 116, 204, 312
    pieces.erase(pieces.begin());

    const Read read = readRecording(captureOf(pieces), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[1], datagrams[2], datagrams[3]));
    EXPECT_THAT(read.problems,
                ElementsAre("byte 80: expected a datagram in tcp 192.0.2.1:5555 > 192.0.2.2:4444, "
                            "found 28 bytes that are no whole one; not delivered"));
}

TEST(TcpStream, WhoseFirstSegmentIsLostBehindTheSynSaysSo)
{
    std::vector<TcpPiece> pieces = segments(joined(datagrams), 20);
    pieces.erase(pieces.begin());

    const Read read = readRecording(captureOf(withSyn(pieces)), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[1], datagrams[2], datagrams[3]));
    EXPECT_THAT(read.problems,
                ElementsAre(HasSubstr("found one 20 bytes behind it; the bytes between are missing"),
                            HasSubstr("found 28 bytes that are no whole one")));
}

TEST(TcpStream, LosesOnlyTheDatagramsAroundAHole)
{
    std::vector<TcpPiece> pieces = segments(joined(datagrams), 20);
    pieces.erase(pieces.begin() + 3); // 60 to 80, inside the second datagram

    const Read read = readRecording(captureOf(withSyn(pieces)), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[0], datagrams[2], datagrams[3]));
    EXPECT_THAT(read.problems, ElementsAre(HasSubstr("found 12 bytes that are no whole one"),
                                           HasSubstr("found one 20 bytes behind it"),
                                           HasSubstr("found 36 bytes that are no whole one")));
}

TEST(TcpStream, GivesUpAHoleWhenTooMuchWaitsBehindIt)
{
    const std::vector<Bytes> many(3000, traceDatagram(5, 10));
    std::vector<TcpPiece> pieces = segments(joined(many), 48);
    pieces.erase(pieces.begin() + 100);

    const Read read = readRecording(captureOf(withSyn(pieces)), {5555});

    EXPECT_THAT(read.datagrams, SizeIs(2999));
    EXPECT_THAT(read.problems, SizeIs(1));
    // Long before the file's end: the datagrams behind the hole carry the time of their own segments.
    EXPECT_EQ(read.datagrams[100].receivedNs, firstNs + 101 * apartNs);
}

TEST(TcpStream, ThatEndsInsideADatagramSaysSo)
{
    const Bytes stream = joined(datagrams);

    const Read read =
        readRecording(captureOf(withSyn(segments(Bytes(stream.begin(), stream.end() - 8), 20))), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[0], datagrams[1], datagrams[2]));
    EXPECT_THAT(read.problems,
                ElementsAre(HasSubstr("expected a datagram of 108 bytes in tcp 192.0.2.1:5555 > "
                                      "192.0.2.2:4444, found 100; not delivered")));
}

TEST(TcpStream, WithALengthThatCannotBeTrueGoesOnAtTheNextDatagram)
{
    const Bytes bad = wire::DatagramWriter{}.claimTotalLength(5).build();

    const Read read = readRecording(
        captureOf(withSyn(segments(joined({datagrams[0], bad, datagrams[1], datagrams[2]}), 50))), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[0], datagrams[1], datagrams[2]));
    EXPECT_THAT(read.problems, ElementsAre(HasSubstr("found 16 bytes that are no whole one")));
}

TEST(TcpStream, OfOtherTrafficIsIgnoredInSilence)
{
    const std::string page = "GET / HTTP/1.1\r\nHost: example.org\r\n\r\n";
    std::vector<TcpPiece> pieces = segments(Bytes(page.begin(), page.end()), 10);
    pieces.erase(pieces.begin() + 1);

    const Read read = readRecording(captureOf(withSyn(pieces)));

    EXPECT_THAT(read.datagrams, IsEmpty());
    EXPECT_THAT(read.problems, IsEmpty());
    EXPECT_EQ(read.ignored.tcpStreams, 1U);
}

TEST(TcpStream, OfTheWantedPortMustHoldDatagrams)
{
    const std::string page = "GET / HTTP/1.1\r\nHost: example.org\r\n\r\n";

    const Read read = readRecording(captureOf(segments(Bytes(page.begin(), page.end()), 10)), {5555});

    EXPECT_THAT(read.problems, ElementsAre(HasSubstr("found 37 bytes that are no whole one; not delivered")));
}

TEST(TcpStream, OfAnotherPortIsLeftOut)
{
    const Read read = readRecording(captureOf(withSyn(segments(joined(datagrams), 20))), {1234});

    EXPECT_THAT(read.datagrams, IsEmpty());
    EXPECT_THAT(read.problems, IsEmpty());
    EXPECT_GT(read.ignored.port, 0U);
}

TEST(TcpStream, MayBeginAgainOnTheSamePorts)
{
    std::vector<TcpPiece> pieces = withSyn(segments(datagrams[0], 20));
    pieces.back().fin = true;
    pieces.push_back(pieces[1]); // a late copy of what was closed
    pieces.push_back(syn(90000));
    for (const TcpPiece& piece : segments(datagrams[1], 20, 90001))
        pieces.push_back(piece);

    const Read read = readRecording(captureOf(pieces), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(datagrams[0], datagrams[1]));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(TcpStream, IsNotClosedByAFinThatOvertookItsData)
{
    std::vector<TcpPiece> pieces = withSyn(segments(datagrams[0], 24));
    TcpPiece fin;
    fin.sequence = isn + 1 + 48;
    fin.fin = true;
    pieces.insert(pieces.begin() + 2, fin);

    EXPECT_THAT(readRecording(captureOf(pieces), {5555}).bytes(), ElementsAre(datagrams[0]));
}

TEST(TcpStream, IsNotBegunAgainByACopyOfItsSyn)
{
    std::vector<TcpPiece> pieces = withSyn(segments(joined(datagrams), 20));
    pieces.insert(pieces.begin() + 4, syn());

    const Read read = readRecording(captureOf(pieces), {5555});

    EXPECT_THAT(read.bytes(), ElementsAreArray(datagrams));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(TcpStream, OfTwoConnectionsAreKeptApart)
{
    const std::vector<TcpPiece> pieces = withSyn(segments(joined(datagrams), 20));
    std::vector<Bytes> packets;
    for (const TcpPiece& piece : pieces) {
        packets.push_back(tcpPacket(piece, {"192.0.2.1", "192.0.2.2", 5555, 4444}));
        packets.push_back(tcpPacket(piece, {"192.0.2.1", "192.0.2.3", 5555, 4444}));
    }

    const Read read = readRecording(capture(timed(packets), linktype::raw), {5555});

    EXPECT_THAT(read.datagrams, SizeIs(8));
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(TcpStream, FollowsABoundedNumberOfConnections)
{
    std::vector<Bytes> packets;
    for (std::uint16_t port = 1; port <= 1000; ++port)
        packets.push_back(tcpPacket(segments(datagrams[0], 100)[0], {"192.0.2.1", "192.0.2.2", 5555, port}));

    const Read read = readRecording(capture(timed(packets), linktype::raw), {5555});

    EXPECT_THAT(read.datagrams, SizeIs(1000)); // each was given out when it had to make room
    EXPECT_EQ(read.datagrams[0].receivedNs, firstNs);
}

TEST(TcpStream, SegmentsInFragmentsAreJoined)
{
    const Bytes packet = tcpPacket(segments(joined(datagrams), 1000)[0]);
    std::vector<Bytes> packets{tcpPacket(syn())};
    for (const Bytes& fragment : fragments(packet, 80))
        packets.push_back(fragment);

    EXPECT_THAT(readRecording(capture(timed(packets), linktype::raw), {5555}).bytes(),
                ElementsAreArray(datagrams));
}

class Counter : public recording::Delivery {
public:
    void deliver(recording::Datagram) override { ++delivered; }
    void lose(recording::Problem) override { ++lost; }
    void ignoreStream() override { ++ignored; }
    int delivered = 0;
    int lost = 0;
    int ignored = 0;
};

TEST(TcpFlow, HoldsABoundedNumberOfBytesBehindHoles)
{
    Counter counter;
    recording::TcpFlow flow{{}, true, counter};
    const Bytes payload(60000, 0x55);
    for (std::uint32_t i = 0; i < 2000; ++i) {
        recording::Segment segment;
        segment.sequence = i * 70000;
        segment.payload = payload;
        flow.take(segment);
        EXPECT_LT(flow.waiting(), 5U << 20U);
    }
    flow.finish();
    EXPECT_LT(flow.waiting(), 1000U);
    EXPECT_GT(counter.lost, 1000);
}

TEST(TcpFlow, HoldsNothingOfAStreamWithoutDatagrams)
{
    Counter counter;
    recording::TcpFlow flow{{}, false, counter};
    const Bytes payload(1000, 0x55);
    for (std::uint32_t i = 0; i < 10'000; ++i) {
        recording::Segment segment;
        segment.sequence = i * 1000;
        segment.payload = payload;
        flow.take(segment);
        EXPECT_LT(flow.waiting(), 1000U);
    }
    flow.finish();
    EXPECT_EQ(counter.ignored, 1);
    EXPECT_EQ(counter.lost, 0);
}

} // namespace
