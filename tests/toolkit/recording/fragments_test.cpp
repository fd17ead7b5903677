// SPDX-License-Identifier: MIT
#include "toolkit/recording/fragmentjoiner.h"
#include "toolkit/support/capture_bytes.h"
#include "toolkit/support/read_recording.h"
#include <algorithm>
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes large = traceDatagram(7, 2000);
const Bytes small = traceDatagram(8, 4);
const Route v4Route;
const Route v6Route{"2001:db8::1", "2001:db8::2", 5555, 4444};

std::vector<Bytes> framed(std::vector<Bytes> packets)
{
    for (Bytes& packet : packets)
        packet = ethernet(packet);
    return packets;
}

class Fragments : public testing::TestWithParam<const Route*> {
protected:
    [[nodiscard]] std::vector<Bytes> pieces(std::uint32_t id = 77) const
    {
        return framed(fragments(udpPacket(large, *GetParam()), 1480, id));
    }
};

TEST_P(Fragments, BecomeTheDatagramThatWasSent)
{
    const Bytes file = capture(timed(pieces()), linktype::ethernet);

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(large));
    EXPECT_THAT(read.problems, IsEmpty());
    EXPECT_THAT(read.times(), ElementsAre(firstNs + 2 * apartNs)); // complete with the third
    // The datagram's first bytes, in the first fragment.
    ASSERT_THAT(read.datagrams, SizeIs(1));
    EXPECT_TRUE(std::equal(large.begin(), large.begin() + 16,
                           file.begin() + static_cast<std::ptrdiff_t>(read.datagrams[0].position)));
}

TEST_P(Fragments, MayComeInAnyOrder)
{
    std::vector<Bytes> order = pieces();
    std::sort(order.begin(), order.end());
    do {
        EXPECT_THAT(readRecording(capture(timed(order), linktype::ethernet)).bytes(), ElementsAre(large));
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_P(Fragments, MayComeTwice)
{
    const std::vector<Bytes> once = pieces();

    const Read read = readRecording(
        capture(timed({once[0], once[0], once[1], once[0], once[1], once[2]}), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(large));
}

TEST_P(Fragments, OfTwoPacketsMayMix)
{
    const std::vector<Bytes> one = pieces(1);
    const std::vector<Bytes> other = pieces(2);

    const Read read = readRecording(
        capture(timed({one[0], other[0], other[1], one[1], other[2], one[2]}), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(large, large));
}

TEST_P(Fragments, OfBothDirectionsWithOneNumberDoNotMix)
{
    const Route& route = *GetParam();
    const Route back{route.to, route.from, route.toPort, route.fromPort};
    const Bytes answer = traceDatagram(9, 1900);
    const std::vector<Bytes> there = pieces();
    const std::vector<Bytes> returning = framed(fragments(udpPacket(answer, back), 1480));

    const Read read = readRecording(capture(
        timed({there[0], returning[0], there[1], returning[1], there[2], returning[2]}), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(large, answer));
}

TEST_P(Fragments, ThatStayIncompleteAreReported)
{
    std::vector<Bytes> packets = pieces();
    packets.erase(packets.begin() + 1);
    packets.push_back(ethernet(udpPacket(small, *GetParam())));
    const std::size_t ipAndLink = GetParam() == &v4Route ? 34 : 14 + 40 + 8;

    const Read read = readRecording(capture(timed(packets), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(small));
    const std::string who = GetParam() == &v4Route ? "udp 192.0.2.1:5555 > 192.0.2.2:4444"
                                                   : "udp [2001:db8::1]:5555 > [2001:db8::2]:4444";
    EXPECT_THAT(read.problems, ElementsAre("byte " + std::to_string(24 + 16 + ipAndLink) +
                                           ": expected all fragments of a packet, " + who +
                                           ", found 2556 bytes of it; not delivered"));
}

TEST_P(Fragments, ThatStayIncompleteAreNobodysLossOnAnotherPort)
{
    std::vector<Bytes> packets = pieces();
    packets.pop_back();

    EXPECT_THAT(readRecording(capture(timed(packets), linktype::ethernet), {1234}).problems, IsEmpty());
}

TEST_P(Fragments, OfAnOldPacketDoNotEndUpInALaterOneWithItsNumber)
{
    const std::vector<Bytes> old = pieces();
    const Bytes later = traceDatagram(9, 2000);
    const std::vector<Bytes> fresh = framed(fragments(udpPacket(later, *GetParam()), 1480));
    std::vector<CapturedPacket> packets{{old[1], firstNs, {}}};
    for (const Bytes& piece : fresh)
        packets.push_back({piece, firstNs + 31'000'000'000, {}});

    const Read read = readRecording(capture(packets, linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(later));
    EXPECT_THAT(read.problems, SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(V4AndV6, Fragments, testing::Values(&v4Route, &v6Route),
                         [](const auto& test) { return test.param == &v4Route ? "V4" : "V6"; });

TEST(FragmentJoiner, HoldsABoundedNumberOfBytesHoweverManyPacketsStayIncomplete)
{
    std::size_t lost = 0;
    recording::FragmentJoiner joiner{
        [&lost](const recording::FragmentKey&, const recording::Joined&) { ++lost; }};
    recording::Fragment fragment;
    fragment.key.protocol = 17;
    fragment.moreFollow = true;
    fragment.payload.resize(65000);
    for (std::uint32_t id = 0; id < 1000; ++id) {
        fragment.key.id = id;
        EXPECT_FALSE(joiner.add(fragment).has_value());
        EXPECT_LE(joiner.waiting(), 64 * 65000U);
    }
    EXPECT_EQ(lost, 936U);

    joiner.finish();

    EXPECT_EQ(lost, 1000U);
    EXPECT_EQ(joiner.waiting(), 0U);
}

TEST(FragmentJoiner, HoldsABoundedNumberOfBytesOfOnePacket)
{
    recording::FragmentJoiner joiner{[](const recording::FragmentKey&, const recording::Joined&) {}};
    recording::Fragment fragment;
    fragment.key.protocol = 17;
    fragment.moreFollow = true;
    fragment.payload.resize(65000);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(joiner.add(fragment).has_value());
        EXPECT_LE(joiner.waiting(), 16U << 20U);
    }
}

TEST(FragmentJoiner, TakesAnOnlyFragmentForTheWholePacket)
{
    recording::FragmentJoiner joiner{[](const recording::FragmentKey&, const recording::Joined&) {}};
    recording::Fragment fragment;
    fragment.payload = {1, 2, 3};

    const std::optional<recording::Joined> whole = joiner.add(fragment);

    ASSERT_TRUE(whole);
    EXPECT_THAT(whole->payload, ElementsAre(1, 2, 3));
}

} // namespace
