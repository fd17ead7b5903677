// SPDX-License-Identifier: MIT
#include "wire/datagramwriter.h"
#include "wire/framing.h"
#include <gtest/gtest.h>

using wire::View;

namespace {

wire::Bytes claiming(std::uint32_t length)
{
    return wire::DatagramWriter{}.claimTotalLength(length).build();
}

TEST(WireFraming, AsksForMoreUntilTheHeaderIsWhole)
{
    const wire::Bytes whole = claiming(40);
    for (std::size_t size = 0; size < 16; ++size)
        EXPECT_FALSE(wire::datagramSize(View{std::span(whole).first(size)})) << size;
    EXPECT_EQ(wire::datagramSize(View{whole}), 40U);
}

struct Case {
    const char* name;
    std::uint32_t length;
    bool accepted;
};
class WireFramingLength : public testing::TestWithParam<Case> {};

TEST_P(WireFramingLength, IsAcceptedFromTheHeaderToTheLimit)
{
    const wire::Bytes header = claiming(GetParam().length);
    if (GetParam().accepted)
        EXPECT_EQ(wire::datagramSize(View{header}, 1000), GetParam().length);
    else
        EXPECT_THROW((void)wire::datagramSize(View{header}, 1000), wire::BadDatagramSize);
}
INSTANTIATE_TEST_SUITE_P(Claims, WireFramingLength,
                         testing::Values(Case{"Zero", 0, false}, Case{"OneBelowTheHeader", 15, false},
                                         Case{"Header", 16, true}, Case{"Limit", 1000, true},
                                         Case{"OneAboveTheLimit", 1001, false},
                                         Case{"HighBit", 0x80000000, false},
                                         Case{"AllOnes", 0xFFFFFFFF, false}),
                         [](const testing::TestParamInfo<Case>& each) { return each.param.name; });

TEST(WireFraming, SaysWhatWasExpectedAndWhatCame)
{
    try {
        (void)wire::datagramSize(View{claiming(15)}, 1000);
        FAIL();
    } catch (const wire::BadDatagramSize& error) {
        EXPECT_STREQ(error.what(), "datagram length at byte 12: expected 16 to 1000, found 15");
    }
}

TEST(WireFraming, AcceptsUpTo64MiBByDefault)
{
    EXPECT_EQ(wire::datagramSize(View{claiming(64U << 20U)}), 64U << 20U);
    EXPECT_THROW((void)wire::datagramSize(View{claiming((64U << 20U) + 1)}), wire::BadDatagramSize);
}

} // namespace
