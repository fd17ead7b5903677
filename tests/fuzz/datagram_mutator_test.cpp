// SPDX-License-Identifier: MIT
#include "fuzz/datagram_mutator.h"
#include "support/delivered.h"
#include <gtest/gtest.h>
#include <set>

namespace {

using wire::Bytes;

Bytes keepBytes(const Bytes& bytes, std::size_t)
{
    return bytes;
}

TEST(DatagramMutator, GetsBehindTheSelectorWordFromNothingAtAll)
{
    support::RecordingDispatcher library;
    Bytes datagram;
    int delivering = 0;
    std::set<unsigned> tags;
    std::set<std::uint32_t> selectors;

    for (std::uint32_t seed = 0; seed < 2'000; ++seed) {
        datagram = fuzz::mutateDatagram(datagram, 4'096, seed, keepBytes);
        const std::vector<support::Delivered> delivered = library.process(datagram);
        delivering += delivered.empty() ? 0 : 1;
        for (const support::Delivered& one : delivered) {
            tags.insert(one.tag);
            selectors.insert(one.selectors);
        }
        if (seed % 50 == 49) // begins anew before they are all of the largest size
            datagram.clear();
    }

    EXPECT_GT(delivering, 1'000);
    EXPECT_EQ(tags.size(), wire::tag::known.size());
    EXPECT_GT(selectors.size(), 200U);
}

TEST(DatagramMutator, KeepsToTheSizeThatItMayHave)
{
    Bytes datagram;
    for (std::uint32_t seed = 0; seed < 1'000; ++seed) {
        datagram = fuzz::mutateDatagram(datagram, 300, seed, keepBytes);
        ASSERT_LE(datagram.size(), 300U);
    }
}

TEST(DatagramMutator, TakesAnyBytes)
{
    std::mt19937 random{7};
    for (std::uint32_t seed = 0; seed < 2'000; ++seed) {
        Bytes bytes(random() % 200);
        for (unsigned char& byte : bytes)
            byte = static_cast<unsigned char>(random());
        ASSERT_LE(fuzz::mutateDatagram(bytes, 1'000, seed, keepBytes).size(), 1'000U);
    }
}

TEST(DatagramMutator, DoesTheSameForTheSameSeed)
{
    const Bytes datagram =
        wire::DatagramWriter{}.attribute(101).selectors(1).count(3).items<std::int16_t>({1, 2, 3}).build();
    std::set<Bytes> results;
    for (std::uint32_t seed = 0; seed < 100; ++seed) {
        const Bytes once = fuzz::mutateDatagram(datagram, 1'000, seed, keepBytes);
        EXPECT_EQ(once, fuzz::mutateDatagram(datagram, 1'000, seed, keepBytes));
        results.insert(once);
    }
    EXPECT_GT(results.size(), 30U);
}

} // namespace
