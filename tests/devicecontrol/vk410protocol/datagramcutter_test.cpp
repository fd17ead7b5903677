// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "support/chunked_stream.h"
#include "support/sanitizers.h"
#include "wire/datagramwriter.h"
#include <gmock/gmock.h>
#include <sys/resource.h>

using support::ChunkedStream;
using testing::ElementsAre;
using wire::Bytes;

namespace {

Bytes datagram(unsigned number, std::size_t size)
{
    return wire::DatagramWriter{}.sequence(static_cast<std::uint16_t>(number)).cutTo(size).build();
}

DatagramCutter::Read reading(ChunkedStream& stream)
{
    return [&stream](char* to, qint64 size) { return qint64{stream.read(to, size)}; };
}

std::vector<Bytes> cutAll(ChunkedStream& stream, DatagramCutter& cutter)
{
    std::vector<Bytes> cut;
    do {
        while (const DatagramCutter::Bytes bytes = cutter.next())
            cut.emplace_back(bytes->begin(), bytes->end());
    } while (stream.arrive());
    return cut;
}

Bytes joined(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end)
{
    return {bytes.begin() + static_cast<std::ptrdiff_t>(begin),
            bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

TEST(DatagramCutter, EveryPairOfCutsOfThreeDatagramsGivesTheSameDatagrams)
{
    const std::vector<Bytes> sent{datagram(1, 20), datagram(2, 16), datagram(3, 25)};
    const Bytes all = joined(sent);
    for (std::size_t first = 0; first <= all.size(); ++first) {
        for (std::size_t second = first; second <= all.size(); ++second) {
            ChunkedStream stream{
                {slice(all, 0, first), slice(all, first, second), slice(all, second, all.size())}};
            DatagramCutter cutter{reading(stream)};
            ASSERT_EQ(cutAll(stream, cutter), sent) << first << ", " << second;
            ASSERT_EQ(stream.unread(), 0);
        }
    }
}

TEST(DatagramCutter, GivesADatagramAsSoonAsItsLastByteIsThere)
{
    const Bytes all = joined({datagram(1, 40), datagram(2, 40)});
    ChunkedStream stream{{slice(all, 0, 39), slice(all, 39, 40), slice(all, 40, 80)}};
    DatagramCutter cutter{reading(stream)};
    EXPECT_EQ(cutter.next(), nullptr);
    stream.arrive();
    EXPECT_NE(cutter.next(), nullptr);
    EXPECT_EQ(cutter.next(), nullptr);
    stream.arrive();
    EXPECT_NE(cutter.next(), nullptr);
}

TEST(DatagramCutter, KnowsWhetherADatagramMayBeWhole)
{
    const Bytes all = datagram(1, 40);
    ChunkedStream stream{{slice(all, 0, 15), slice(all, 15, 30), slice(all, 30, 40)}};
    DatagramCutter cutter{reading(stream)};
    EXPECT_FALSE(cutter.mayHaveWhole(15));
    EXPECT_TRUE(cutter.mayHaveWhole(16)); // a header; what it promises is not known yet
    EXPECT_EQ(cutter.next(), nullptr);
    EXPECT_FALSE(cutter.mayHaveWhole(0));
    EXPECT_TRUE(cutter.mayHaveWhole(1));
    stream.arrive();
    EXPECT_EQ(cutter.next(), nullptr);
    EXPECT_FALSE(cutter.mayHaveWhole(9));
    EXPECT_TRUE(cutter.mayHaveWhole(10));
}

TEST(DatagramCutter, GivesBackPartOfAHeaderOnly)
{
    const Bytes all = datagram(1, 40);
    ChunkedStream stream{{slice(all, 0, 15), slice(all, 15, 30)}};
    DatagramCutter cutter{reading(stream)};
    EXPECT_EQ(cutter.next(), nullptr);
    EXPECT_EQ(cutter.partOfHeader(), QByteArray(reinterpret_cast<const char*>(all.data()), 15));
    cutter.forgetPartOfHeader();
    EXPECT_TRUE(cutter.partOfHeader().isEmpty());
    ChunkedStream longer{{slice(all, 0, 30)}};
    DatagramCutter begun{reading(longer)};
    EXPECT_EQ(begun.next(), nullptr);
    EXPECT_TRUE(begun.partOfHeader().isEmpty());
    begun.forgetPartOfHeader();
    EXPECT_TRUE(begun.mayHaveWhole(10)); // nothing of the datagram that has begun was forgotten
}

TEST(DatagramCutter, KeepsWhatItReadBehindADatagramForTheNext)
{
    ChunkedStream stream{{joined({datagram(1, 40), datagram(2, 50), datagram(3, 16)})}};
    DatagramCutter cutter{reading(stream)};
    ASSERT_NE(cutter.next(), nullptr);
    EXPECT_EQ(stream.unread(), 0);
    EXPECT_TRUE(cutter.mayHaveWhole(0));
    EXPECT_EQ(cutter.next()->size(), 50);
    EXPECT_EQ(cutter.next()->size(), 16);
    EXPECT_EQ(cutter.next(), nullptr);
}

TEST(DatagramCutter, ReservesTwoBytesBehindEachDatagram)
{
    for (const std::size_t size : {16U, 5'000U, 700'000U}) {
        const Bytes all = datagram(1, size);
        std::vector<Bytes> pieces;
        for (std::size_t i = 0; i < size; i += size / 16)
            pieces.push_back(slice(all, i, std::min(size, i + size / 16)));
        ChunkedStream stream{pieces};
        DatagramCutter cutter{reading(stream)};
        DatagramCutter::Bytes bytes;
        while (!(bytes = cutter.next()))
            ASSERT_TRUE(stream.arrive());
        EXPECT_EQ(Bytes(bytes->begin(), bytes->end()), all);
        EXPECT_GE(bytes->capacity(), bytes->size() + 2);
    }
}

TEST(DatagramCutter, ReadsALargeDatagramStraightIntoItsOwnMemory)
{
    // Not through the place where small ones wait to be cut: no read of it is as small as that.
    const Bytes all = datagram(1, 5'000'000);
    ChunkedStream stream{{all}};
    std::vector<qint64> asked;
    DatagramCutter cutter{[&](char* to, qint64 size) {
        asked.push_back(size);
        return qint64{stream.read(to, size)};
    }};
    const DatagramCutter::Bytes bytes = cutter.next();
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(Bytes(bytes->begin(), bytes->end()), all);
    EXPECT_LT(asked.size(), 10U);
}

TEST(DatagramCutter, GivesTheStreamUpAtEveryLengthBelowAHeader)
{
    for (quint32 length = 0; length < 16; ++length) {
        ChunkedStream stream{{datagram(1, 40), wire::DatagramWriter{}.claimTotalLength(length).build()}};
        DatagramCutter cutter{reading(stream)};
        EXPECT_THAT(cutAll(stream, cutter), ElementsAre(datagram(1, 40))) << length;
        EXPECT_EQ(cutter.brokenAt(), length);
    }
}

TEST(DatagramCutter, ReadsNothingMoreOfABrokenStream)
{
    ChunkedStream stream{
        {datagram(1, 40), wire::DatagramWriter{}.claimTotalLength(15).build(), datagram(2, 40)}};
    DatagramCutter cutter{reading(stream)};
    EXPECT_THAT(cutAll(stream, cutter), ElementsAre(datagram(1, 40)));
    EXPECT_EQ(cutter.brokenAt(), 15U);
    EXPECT_EQ(cutter.reason(), "datagram length at byte 12: expected 16 to 67108864, found 15");
    EXPECT_FALSE(cutter.mayHaveWhole(1'000));
    EXPECT_EQ(stream.unread(), 40);
}

#if !VK410_SANITIZED
TEST(DatagramCutter, GivesTheStreamUpWhereThereIsNoMemoryForADatagram)
{
    constexpr quint32 length = 1U << 30U;
    const Bytes header = wire::DatagramWriter{}.claimTotalLength(length).build();
    bool isBegun = false;
    DatagramCutter cutter{[&](char* to, qint64 size) { // always has more
        if (!std::exchange(isBegun, true))
            std::copy(header.begin(), header.end(), to);
        return size;
    }};
    cutter.setMaxSize(length);
    rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &old), 0);
    rlimit tight = old;
    tight.rlim_cur = rlim_t{1} << 30U; // less than the datagram and the program together
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &tight), 0);
    const DatagramCutter::Bytes bytes = cutter.next();
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &old), 0);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(cutter.brokenAt(), length);
    EXPECT_EQ(cutter.reason(), "no memory for a datagram of 1073741824 bytes");
}
#endif

} // namespace
