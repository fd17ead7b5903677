// SPDX-License-Identifier: MIT
#include "wire/view.h"
#include <gtest/gtest.h>
#include <limits>
#include <vector>

using wire::ByteOrder;
using wire::View;

namespace {

const std::vector<unsigned char> bytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
const View view{bytes};

TEST(WireView, GivesAPartThatLiesInside)
{
    const auto part = view.sub(2, 3);
    ASSERT_TRUE(part);
    EXPECT_EQ(part->size(), 3U);
    EXPECT_EQ(part->data(), bytes.data() + 2);
    EXPECT_TRUE(view.sub(8, 0));
}

TEST(WireView, GivesNothingOutside)
{
    EXPECT_FALSE(view.sub(0, 9));
    EXPECT_FALSE(view.sub(8, 1));
    EXPECT_FALSE(view.sub(9, 0));
}

TEST(WireView, IsNotFooledByAnOffsetAndSizeWhoseSumWraps)
{
    const std::size_t most = std::numeric_limits<std::size_t>::max();
    EXPECT_FALSE(view.sub(4, most));
    EXPECT_FALSE(view.sub(most, 4));
    EXPECT_FALSE(view.sub(most, most));
}

TEST(WireView, ReadsNumbersInBothByteOrdersAtAnyAddress)
{
    EXPECT_EQ(view.get(wire::Field<std::uint16_t>{1}), 0x0203);
    EXPECT_EQ(view.get(wire::Field<std::uint16_t>{1}, ByteOrder::Little), 0x0302);
    EXPECT_EQ(view.get(wire::Field<std::uint32_t>{3}), 0x04050607U);
    EXPECT_EQ(view.get(wire::Field<std::int64_t>{0}), 0x0102030405060708);
    EXPECT_EQ(view.get(wire::Field<std::int64_t>{0}, ByteOrder::Little), 0x0807060504030201);
    EXPECT_EQ(view.get(wire::Field<std::uint8_t>{7}), 8);
}

TEST(WireView, ReadsACutNumberAsNothingOrZero)
{
    EXPECT_FALSE(view.get(wire::Field<std::uint32_t>{5}));
    EXPECT_EQ(view.getOrZero(wire::Field<std::uint32_t>{5}, ByteOrder::Big), 0U);
    EXPECT_EQ(view.getOrZero(wire::Field<std::uint32_t>{4}, ByteOrder::Big), 0x05060708U);
}

TEST(WireView, StoresWhatItLoads)
{
    unsigned char place[9]{};
    wire::store(place + 1, std::int32_t{-2}, ByteOrder::Big);
    EXPECT_EQ(place[1], 0xFF);
    EXPECT_EQ(place[4], 0xFE);
    EXPECT_EQ(wire::load<std::int32_t>(place + 1, ByteOrder::Big), -2);
    wire::store(place + 1, std::int32_t{-2}, ByteOrder::Little);
    EXPECT_EQ(place[1], 0xFE);
}

} // namespace
