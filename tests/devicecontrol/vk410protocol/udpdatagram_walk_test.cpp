// SPDX-License-Identifier: MIT
#include "support/delivered.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>

using support::received;
using support::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

Bytes attributeOf(unsigned tag, std::uint32_t selectors = 0)
{
    return DatagramWriter{}.attribute(tag).selectors(selectors).build();
}

TEST(UdpDatagramHeader, IsValidWithTheMagicInEitherByteOrder)
{
    EXPECT_TRUE(UdpDatagram(received({0x10, 0x5A, 0x0C, 0x00})).IsValid());
    EXPECT_TRUE(UdpDatagram(received({0x00, 0x0C, 0x5A, 0x10})).IsValid());
    EXPECT_FALSE(UdpDatagram(received({0x00, 0x0C, 0x5A, 0x11})).IsValid());
    EXPECT_FALSE(UdpDatagram(received({0x0C, 0x00, 0x10, 0x5A})).IsValid());
}

TEST(UdpDatagramHeader, IsInvalidBelowFourBytesAndWithoutAnArray)
{
    const Bytes magic{0x00, 0x0C, 0x5A, 0x10};
    for (std::size_t size = 0; size < 4; ++size)
        EXPECT_FALSE(
            UdpDatagram(received(Bytes(magic.begin(), magic.begin() + static_cast<long>(size)))).IsValid());
    UdpDatagram none{nullptr};
    EXPECT_FALSE(none.IsValid());
    EXPECT_FALSE(none.NextAttribute());
    EXPECT_EQ(none.Size(), 0U);
}

TEST(UdpDatagramHeader, From4To15BytesIsValidAndHasNoAttributes)
{
    for (std::size_t size = 4; size < 16; ++size) {
        UdpDatagram datagram{received(DatagramWriter{}.cutTo(size).build())};
        EXPECT_TRUE(datagram.IsValid()) << size;
        EXPECT_FALSE(datagram.NextAttribute()) << size;
    }
}

TEST(UdpDatagramHeader, GivesTheSequenceNumberAsItIsStored)
{
    const UdpDatagram datagram{received(DatagramWriter{}.sequence(0x0102).build())};
    EXPECT_TRUE(datagram.HasSeqNumber());
    EXPECT_EQ(datagram.GetSeqNumber(), 0x0201);
}

TEST(UdpDatagramHeader, HasNoSequenceNumberBelowTenBytes)
{
    const UdpDatagram nine{received(DatagramWriter{}.sequence(0x0102).cutTo(9).build())};
    EXPECT_FALSE(nine.HasSeqNumber());
    EXPECT_EQ(nine.GetSeqNumber(), 0);
    EXPECT_TRUE(UdpDatagram(received(DatagramWriter{}.cutTo(10).build())).HasSeqNumber());
}

TEST(UdpDatagramWalk, OfAHeaderAloneFindsNothingAndNamesTag5302)
{
    UdpDatagram datagram{received(DatagramWriter{}.build())};
    EXPECT_EQ(datagram.CurrentTag(), 5302);
    EXPECT_EQ(datagram.CurrentAttribute(), nullptr);
    EXPECT_FALSE(datagram.CurrentAttributeValid());
    EXPECT_FALSE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentTag(), 5302);
}

TEST(UdpDatagramWalk, StepsThroughNormalAttributesInOrder)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(301, 200)
                                      .selectors(1)
                                      .count(3)
                                      .optHeader({1, 2})
                                      .items<std::int16_t>({1, 2, 3})
                                      .attribute(777, 5)
                                      .build())};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentTag(), TAG_301);
    EXPECT_EQ(datagram.CurrentChannelNumber(), 200U);
    EXPECT_TRUE(datagram.OptHeaderAvailable());
    EXPECT_TRUE(datagram.CurrentAttributeValid());
    EXPECT_EQ(datagram.CurrentAttribute()->Tag(), 301);
    EXPECT_EQ(datagram.CurrentAttribute()->Length(), 16);
    EXPECT_EQ(datagram.CurrentAttribute()->Count(), 3);
    EXPECT_EQ(datagram.CurrentAttribute()->ChannelNumber(), 200);
    EXPECT_EQ(datagram.CurrentAttribute()->OptHeaderLength(), 2);
    EXPECT_EQ(datagram.CurrentAttribute()->SelectorFlags(), 1U);
    EXPECT_EQ(datagram.CurrentOffset(), 16U);
    EXPECT_EQ(datagram.CurrentSize(), 20U);

    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentTag(), 777);
    EXPECT_EQ(datagram.CurrentChannelNumber(), 5U);
    EXPECT_FALSE(datagram.OptHeaderAvailable());
    EXPECT_FALSE(datagram.CurrentAttributeValid());

    EXPECT_FALSE(datagram.NextAttribute());
}

TEST(UdpDatagramWalk, ShowsTheNextAttributeWithoutStepping)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).attribute(201).build())};
    UdpDatagramAttribute* const first = datagram.GetNextAttribute();
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentAttribute(), first);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(datagram.GetNextAttribute()),
              reinterpret_cast<unsigned char*>(first) + 12);
}

TEST(UdpDatagramWalk, ShowsNoNextAttributeOutsideTheDatagram)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).claimLength(0xFFFF).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.GetNextAttribute(), nullptr);
    EXPECT_FALSE(datagram.NextAttribute());
}

TEST(UdpDatagramWalk, DoesNotHoldANormalAttributesLengthAgainstWhatIsLeft)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).claimLength(0xFFFF).build())};
    EXPECT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentSize(), 12U);
}

TEST(UdpDatagramWalk, GoesOnInsideTheHeaderWhenALengthIsTooSmall)
{
    // Length 0: the next attribute begins four bytes on, at a count that was turned to host order.
    UdpDatagram datagram{
        received(DatagramWriter{}.attribute(101, 9).count(0x0201).claimLength(0).attribute(201).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentTag(), 0x0102);
    EXPECT_EQ(datagram.CurrentOffset(), 20U);
}

TEST(UdpDatagramWalk, EndsSilentlyWhereNoNormalHeaderFits)
{
    TraceCapture traces;
    const Bytes whole = attributeOf(101);
    for (std::size_t size = 17; size < 28; ++size) {
        UdpDatagram datagram{received(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)))};
        EXPECT_FALSE(datagram.NextAttribute()) << size;
        EXPECT_FALSE(datagram.NextAttribute()) << size;
    }
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramWalk, TracesAnExtendedHeaderThatDoesNotFit)
{
    const Bytes whole = attributeOf(5101);
    TraceCapture traces{0x20};
    UdpDatagram short59{received(Bytes(whole.begin(), whole.begin() + 16 + 59))};
    EXPECT_FALSE(short59.NextAttribute());
    EXPECT_THAT(traces.take(),
                ElementsAre("Error remaining length not 0 but not enough bytes to read extended attribute "
                            "(devicecontrol/vk410protocol/udpdatagram:58)"));
    EXPECT_EQ(short59.CurrentTag(), TAG_5101);
    UdpDatagram tagOnly{received(Bytes(whole.begin(), whole.begin() + 18))};
    EXPECT_FALSE(tagOnly.NextAttribute());
    EXPECT_EQ(traces.take().size(), 1U);
    UdpDatagram halfTag{received(Bytes(whole.begin(), whole.begin() + 17))};
    EXPECT_FALSE(halfTag.NextAttribute());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramWalk, TracesAnExtendedAttributeThatDoesNotFit)
{
    TraceCapture traces{0x20};
    UdpDatagram datagram{received(DatagramWriter{}.attribute(5301).claimLength(60 - 24 + 1).build())};
    EXPECT_FALSE(datagram.NextAttribute());
    EXPECT_THAT(traces.take(),
                ElementsAre("Error remaining length not 0 but not enough bytes to read entire attribute "
                            "(devicecontrol/vk410protocol/udpdatagram:68)"));
}

TEST(UdpDatagramWalk, TracesOnlyUnderMask0x20)
{
    TraceCapture traces{0xFFFFFFDF};
    UdpDatagram longer{received(DatagramWriter{}.attribute(5301).claimLength(60 - 24 + 1).build())};
    EXPECT_FALSE(longer.NextAttribute());
    UdpDatagram shorter{received(DatagramWriter{}.attribute(5301).cutTo(20).build())};
    EXPECT_FALSE(shorter.NextAttribute());
    EXPECT_THAT(traces.take(), IsEmpty());
}

struct SizeCase {
    const char* name;
    std::uint32_t length;
};
class UdpDatagramExtendedSize : public testing::TestWithParam<SizeCase> {};

TEST_P(UdpDatagramExtendedSize, ThatIsNotPositiveEndsTheWalkSilently)
{
    TraceCapture traces;
    UdpDatagram datagram{received(DatagramWriter{}.attribute(5301).claimLength(GetParam().length).build())};
    EXPECT_FALSE(datagram.NextAttribute());
    EXPECT_THAT(traces.take(), IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(Lengths, UdpDatagramExtendedSize,
                         testing::Values(SizeCase{"WrapsToZero", 0U - 24U},
                                         SizeCase{"WrapsToMinusOne", 0U - 25U},
                                         SizeCase{"MostNegative", 0x80000000U - 24U},
                                         SizeCase{"HighBit", 0x80000000U}),
                         [](const testing::TestParamInfo<SizeCase>& each) { return each.param.name; });

TEST(UdpDatagramWalk, ReadsAnExtendedHeaderWithoutChangingIt)
{
    const Bytes bytes = DatagramWriter{}.attribute(5001, 0x01020304).optHeader({1}).build();
    UdpDatagram datagram{received(bytes)};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentChannelNumber(), 0x01020304U);
    EXPECT_TRUE(datagram.OptHeaderAvailable());
    EXPECT_EQ(support::copied<unsigned char>(datagram.CurrentAttribute(), 60),
              Bytes(bytes.begin() + 16, bytes.end() - 1));
}

TEST(UdpDatagramWalk, StepsThirtyFourFoldBehindAnExtendedAttribute)
{
    // 61 bytes, so the cursor stands 34 x 61 further; what lies between is not walked.
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(5301).optHeader({1}).attribute(101).cutTo(16 + 34 * 61 + 12).build())};
    unsigned char* const first = reinterpret_cast<unsigned char*>(datagram.GetNextAttribute());
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(reinterpret_cast<unsigned char*>(datagram.GetNextAttribute()), first + 34 * 61);
}

TEST(UdpDatagramWalk, GoesOnWhereTheThirtyFourFoldStepLandsInside)
{
    Bytes bytes = DatagramWriter{}.attribute(5301).build();
    const Bytes second = attributeOf(5101);
    bytes.resize(16 + 34 * 60);
    bytes.insert(bytes.end(), second.begin() + 16, second.end());
    UdpDatagram datagram{received(bytes)};
    ASSERT_TRUE(datagram.NextAttribute());
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentTag(), TAG_5101);
    EXPECT_EQ(datagram.CurrentOffset(), 16U + 34 * 60);
    EXPECT_FALSE(datagram.NextAttribute());
}

TEST(UdpDatagramWalk, EndsSilentlyWhenAnExtendedAttributeBehindThatStepExceedsTheBytesThere)
{
    // `remaining` is reduced by 60 only, so it claims more than lies behind the cursor.
    Bytes bytes = DatagramWriter{}.attribute(5301).build();
    const Bytes second = DatagramWriter{}.attribute(5101).claimLength(61 - 24).build();
    bytes.resize(16 + 34 * 60);
    bytes.insert(bytes.end(), second.begin() + 16, second.end());
    TraceCapture traces;
    UdpDatagram datagram{received(bytes)};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_FALSE(datagram.NextAttribute());
    bytes.pop_back(); // not even the header fits
    UdpDatagram shorter{received(bytes)};
    ASSERT_TRUE(shorter.NextAttribute());
    EXPECT_FALSE(shorter.NextAttribute());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramWalk, AnExtendedAttributeIsInEffectTheLast)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(5301).attribute(101).build())};
    EXPECT_TRUE(datagram.NextAttribute());
    EXPECT_FALSE(datagram.NextAttribute());
}

TEST(UdpDatagramValidate, AllowsTwoBytesMoreThanAreLeft)
{
    const auto validates = [](std::size_t left, std::uint32_t length) {
        // After the step `remaining` no longer counts the attribute, so the bytes behind it are what counts.
        UdpDatagram datagram{
            received(DatagramWriter{}.attribute(101).claimLength(length).cutTo(16 + left).build())};
        return datagram.NextAttribute() && datagram.ValidateDataForVK410();
    };
    EXPECT_TRUE(validates(22, 8));  // 10 left + 2 >= 12
    EXPECT_FALSE(validates(21, 8)); // 9 left + 2 < 12
    EXPECT_FALSE(validates(12, 0xFFFF));
    EXPECT_FALSE(UdpDatagram(received(DatagramWriter{}.build())).ValidateDataForVK410());
}

} // namespace
