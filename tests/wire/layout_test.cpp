// SPDX-License-Identifier: MIT
// The format's numbers, written out once more: whoever changes one in wire/layout.h must mean it.
#include "wire/layout.h"
#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

TEST(WireLayout, PlacesTheDatagramHeader)
{
    EXPECT_EQ(wire::datagram::magic.offset, 0U);
    EXPECT_EQ(wire::datagram::sequence.offset, 8U);
    EXPECT_EQ(wire::datagram::totalLength.offset, 12U);
    EXPECT_EQ(wire::datagram::headerSize, 16U);
}

TEST(WireLayout, AcceptsTheMagicInEitherByteOrderOnly)
{
    EXPECT_TRUE(wire::datagram::isMagic(0x000C5A10));
    EXPECT_TRUE(wire::datagram::isMagic(0x105A0C00));
    EXPECT_FALSE(wire::datagram::isMagic(0x000C5A11));
    EXPECT_FALSE(wire::datagram::isMagic(0x5A10000C));
    EXPECT_FALSE(wire::datagram::isMagic(0));
}

TEST(WireLayout, PlacesTheNormalAttributeHeader)
{
    EXPECT_EQ(wire::attribute::tag.offset, 0U);
    EXPECT_EQ(wire::attribute::length.offset, 2U);
    EXPECT_EQ(wire::attribute::count.offset, 4U);
    EXPECT_EQ(wire::attribute::channel.offset, 6U);
    EXPECT_EQ(wire::attribute::optHeaderLength.offset, 7U);
    EXPECT_EQ(wire::attribute::selectors.offset, 8U);
    EXPECT_EQ(wire::attribute::headerSize, 12U);
    EXPECT_EQ(wire::attribute::lengthExcludes, 4U);
}

TEST(WireLayout, PlacesTheExtendedAttributeHeader)
{
    EXPECT_EQ(wire::extended::tag.offset, 0U);
    EXPECT_EQ(wire::extended::length.offset, 4U);
    EXPECT_EQ(wire::extended::count.offset, 24U);
    EXPECT_EQ(wire::extended::channel.offset, 28U);
    EXPECT_EQ(wire::extended::optHeaderLength.offset, 32U);
    EXPECT_EQ(wire::extended::selectors.offset, 36U);
    EXPECT_EQ(wire::extended::word40.offset, 40U);
    EXPECT_EQ(wire::extended::headerSize, 60U);
    EXPECT_EQ(wire::extended::lengthExcludes, 24U);
    EXPECT_EQ(wire::extended::stepFactor, 34);
}

TEST(WireLayout, KnowsTwentyThreeTags)
{
    EXPECT_THAT(wire::tag::known,
                ElementsAre(101, 201, 301, 401, 501, 601, 701, 801, 901, 1001, 1101, 1201, 1301, 1401, 1601,
                            1801, 1901, 2401, 2501, 5001, 5101, 5201, 5301));
    EXPECT_EQ(wire::tag::none, 5302);
}

TEST(WireLayout, KnowsATagExactlyWhenItIsListed)
{
    int known = 0;
    for (unsigned value = 0; value <= 0xFFFF; ++value)
        known += wire::tag::isKnown(static_cast<std::uint16_t>(value)) ? 1 : 0;
    EXPECT_EQ(known, 23);
    for (const std::uint16_t value : wire::tag::known)
        EXPECT_TRUE(wire::tag::isKnown(value)) << value;
}

TEST(WireLayout, GivesThreeTagsTheExtendedFormAndTwoNoChannel)
{
    for (const std::uint16_t value : wire::tag::known) {
        EXPECT_EQ(wire::tag::isExtended(value), value == 5001 || value == 5101 || value == 5301) << value;
        EXPECT_EQ(wire::tag::isChannelless(value), value == 1801 || value == 5101) << value;
    }
}

} // namespace
