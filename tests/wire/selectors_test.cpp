// SPDX-License-Identifier: MIT
#include "wire/selectors.h"
#include <gmock/gmock.h>

using testing::ElementsAre;
using wire::selector::check;
using wire::selector::Fault;

namespace {

TEST(WireSelectors, GiveEachBitItsItemWidth)
{
    EXPECT_THAT(wire::itemSize,
                ElementsAre(2, 4, 2, 2, 2, 2, 4, 4, 4, 2, 4, 2, 2, 2, 2, 2, 2, 4, 2, 2, 2, 4, 0, 2));
}

TEST(WireSelectors, SumTheWidthsOfAllSelectedFields)
{
    EXPECT_EQ(wire::selector::bytesPerItem(0), 0U);
    EXPECT_EQ(wire::selector::bytesPerItem(0x3), 6U);
    EXPECT_EQ(wire::selector::bytesPerItem(0x00BFFFFF), 16U * 2 + 7U * 4);
    EXPECT_EQ(wire::selector::bytesPerItem(0xF0000000), 0U);
}

struct Case {
    const char* name;
    std::uint32_t flags;
    Fault fault;
    unsigned bit;
};

class WireSelectorCheck : public testing::TestWithParam<Case> {};

TEST_P(WireSelectorCheck, FindsWhatTheWalkMeetsFirst)
{
    const wire::selector::Check found = check(GetParam().flags);
    EXPECT_EQ(found.fault, GetParam().fault);
    EXPECT_EQ(found.bit, GetParam().bit);
}

INSTANTIATE_TEST_SUITE_P(
    Words, WireSelectorCheck,
    testing::Values(
        Case{"NoBit", 0, Fault::None, 0}, Case{"AllKnownBits", 0x00BFFFFF, Fault::None, 0},
        Case{"HostOrder", 0x20000003, Fault::None, 0}, Case{"LargestAllowed", 0xE03FFFFF, Fault::None, 0},
        Case{"OnlyUnwalkedBits", 0xF0000000, Fault::None, 0},
        Case{"UnwalkedBitsAndOneField", 0xF0000001, Fault::TooMany, 0},
        Case{"OneAboveTheLimit", 0xE0400000, Fault::TooMany, 22},
        Case{"Bit23AboveTheLimit", 0xE0800000, Fault::TooMany, 23},
        Case{"TooManyBeatsUnknown", 0xE0400001, Fault::TooMany, 0},
        Case{"Bit22", 0x00400001, Fault::Unknown, 22}, Case{"Bit24", 0x01000000, Fault::Unknown, 24},
        Case{"Bit25", 0x02000000, Fault::Unknown, 25}, Case{"Bit26", 0x04000000, Fault::Unknown, 26},
        Case{"Bit27", 0x08000000, Fault::Unknown, 27}, Case{"LowestUnknown", 0x0F400000, Fault::Unknown, 22},
        Case{"Bit28", 0x10000001, Fault::None, 0}, Case{"Bit30And31", 0xC0000001, Fault::None, 0}),
    [](const testing::TestParamInfo<Case>& each) { return each.param.name; });

} // namespace
