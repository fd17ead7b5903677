// SPDX-License-Identifier: MIT
// The library beside a second, plain decoder: every tag, selector bit and byte order, and random datagrams.
#include "support/delivered.h"
#include "support/plain_decoder.h"
#include <gtest/gtest.h>
#include <random>

using support::plainDecode;
using support::RecordingDispatcher;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

Bytes counting(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(0x81 + i * 7);
    return bytes;
}

class DecoderAgreement : public testing::TestWithParam<std::uint16_t> {};

TEST_P(DecoderAgreement, HoldsForEverySelectorBitAndPairOfBitsInBothByteOrders)
{
    RecordingDispatcher library;
    for (const std::uint32_t order : {0U, 0x20000000U}) {
        for (unsigned low = 0; low < 32; ++low) {
            for (unsigned high = low; high < 32; ++high) {
                const std::uint32_t flags = 1U << low | 1U << high | order;
                const Bytes bytes = DatagramWriter{}
                                        .attribute(GetParam(), 3)
                                        .selectors(flags)
                                        .count(3)
                                        .optHeader(counting(low))
                                        .bytes(counting(24))
                                        .build();
                ASSERT_EQ(library.process(bytes), plainDecode(bytes).delivered) << std::hex << flags;
            }
        }
    }
}

TEST_P(DecoderAgreement, HoldsForAllFieldsAtOnce)
{
    RecordingDispatcher library;
    for (const std::uint32_t order : {0U, 0x20000000U}) {
        const Bytes bytes = DatagramWriter{}
                                .attribute(GetParam())
                                .selectors(0x00BFFFFF | order)
                                .count(5)
                                .bytes(counting(300))
                                .build();
        const auto delivered = library.process(bytes);
        ASSERT_EQ(delivered.size(), 1U);
        EXPECT_EQ(delivered, plainDecode(bytes).delivered);
    }
}

INSTANTIATE_TEST_SUITE_P(Tags, DecoderAgreement, testing::ValuesIn(wire::tag::known),
                         [](const auto& each) { return std::to_string(each.param); });

Bytes randomDatagram(std::mt19937& generator)
{
    const auto random = [&generator] { return static_cast<std::uint32_t>(generator()); };
    const auto below = [&random](unsigned limit) { return random() % limit; };
    DatagramWriter writer;
    for (unsigned attributes = 1 + below(4); attributes > 0; --attributes) {
        const unsigned tag = below(8) == 0 ? below(6000) : wire::tag::known[below(23)];
        const std::uint32_t flags = below(10) == 0 ? random() : random() & random() & 0x20BFFFFFU;
        writer.attribute(tag, below(256)).selectors(flags).count(below(6)).optHeader(counting(below(60)));
        writer.bytes(counting(below(120)));
        if (below(6) == 0)
            writer.claimLength(below(200));
    }
    Bytes bytes = writer.build();
    if (below(4) == 0)
        bytes.resize(below(static_cast<unsigned>(bytes.size()) + 1));
    for (unsigned flips = below(3); flips > 0 && bytes.size() > 16; --flips)
        bytes[16 + below(static_cast<unsigned>(bytes.size()) - 16)] ^=
            static_cast<unsigned char>(1U << below(8));
    return bytes;
}

TEST(DecoderAgreementRandom, HoldsForTwentyThousandDatagramsGoodAndSpoilt)
{
    std::mt19937 random{410};
    RecordingDispatcher library;
    std::size_t delivered = 0;
    for (int i = 0; i < 20'000; ++i) {
        const Bytes bytes = randomDatagram(random);
        const auto found = library.process(bytes);
        delivered += found.size();
        ASSERT_EQ(found, plainDecode(bytes).delivered) << support::hex(bytes.data(), bytes.size());
    }
    EXPECT_GT(delivered, 10'000U);
}

} // namespace
