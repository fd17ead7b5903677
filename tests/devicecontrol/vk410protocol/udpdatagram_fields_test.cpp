// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include "support/delivered.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>

using support::copied;
using support::received;
using support::TraceCapture;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

/// The record as 26 pointers, in declared order.
std::vector<const void*> pointersOf(const DataPointers& fields)
{
    return copied<const void*>(&fields, 26);
}

class Record {
public:
    ~Record() { delete[] fields.selBit17; }
    DataPointers fields{};
};

struct Thrown {
    QString reason, className, file, method;
    int line;
    unsigned code;
};

Thrown thrownBy(UdpDatagram& datagram, DataPointers& fields)
{
    try {
        datagram.SetupDataPointers(&fields);
    } catch (const NQException& e) {
        return {e.GetErrorReason(), e.GetClassName(),  e.GetFileName(),
                e.GetMethodName(),  e.GetLineNumber(), e.GetErrorCode()};
    }
    return {"nothing thrown", {}, {}, {}, 0, 0};
}

TEST(DataPointersRecord, HasItsFieldsInTheDeclaredOrder)
{
    const auto at = [](auto DataPointers::*member) {
        const DataPointers record{};
        return (reinterpret_cast<const char*>(&(record.*member)) - reinterpret_cast<const char*>(&record)) /
               static_cast<std::ptrdiff_t>(sizeof(void*));
    };
    using D = DataPointers;
    EXPECT_THAT(
        (std::vector<std::ptrdiff_t>{
            at(&D::selBit0),     at(&D::selBit1),  at(&D::selBit2),  at(&D::selBit3),  at(&D::selBit4),
            at(&D::selBit5),     at(&D::selBit6),  at(&D::selBit7),  at(&D::selBit8),  at(&D::selBit9),
            at(&D::selBit10),    at(&D::selBit16), at(&D::selBit17), at(&D::selBit11), at(&D::selBit12),
            at(&D::selBit13),    at(&D::selBit14), at(&D::selBit18), at(&D::selBit15), at(&D::selBit19),
            at(&D::selBit20),    at(&D::selBit21), at(&D::dataEnd),  at(&D::selBit23), at(&D::extHeader),
            at(&D::extOptHeader)}),
        ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24,
                    25));
}

TEST(UdpDatagramFields, FollowEachOtherInAscendingSelectorOrderWithoutPadding)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(TAG_101)
                                      .selectors(0x3)
                                      .count(2)
                                      .items<std::int16_t>({-730, 125})
                                      .items<std::int32_t>({88'000'000, -1})
                                      .build())};
    DataPointers fields{};

    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);

    EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 2), ElementsAre(-730, 125));
    EXPECT_THAT(copied<std::int32_t>(fields.selBit1, 2), ElementsAre(88'000'000, -1));
    EXPECT_EQ(fields.dataEnd, reinterpret_cast<unsigned char*>(fields.selBit1) + 8);
}

TEST(UdpDatagramFields, GiveEachBitOneFieldOfItsOwn)
{
    for (unsigned bit = 0; bit < 24; ++bit) {
        if (wire::itemSize[bit] == 0)
            continue;
        UdpDatagram datagram{received(
            DatagramWriter{}.attribute(201).selectors(1U << bit).count(1).bytes({1, 2, 3, 4}).build())};
        Record record;
        ASSERT_TRUE(datagram.NextAttribute());
        datagram.SetupDataPointers(&record.fields);
        int set = 0;
        for (const void* const pointer : pointersOf(record.fields))
            set += pointer ? 1 : 0;
        EXPECT_EQ(set, 2) << "the field and dataEnd, bit " << bit;
        EXPECT_EQ(record.fields.dataEnd - reinterpret_cast<unsigned char*>(datagram.CurrentAttribute()),
                  12 + wire::itemSize[bit])
            << bit;
    }
}

TEST(UdpDatagramFields, WithoutSelectorsHaveOnlyADataEnd)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).count(5).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(datagram.CurrentAttribute()->Length(), 8);
    datagram.SetupDataPointers(&fields);
    EXPECT_EQ(fields.dataEnd, reinterpret_cast<unsigned char*>(datagram.CurrentAttribute()) + 12);
    EXPECT_EQ(fields.selBit0, nullptr);
}

TEST(UdpDatagramFields, StayAsTheyAreWhenBit29SaysHostOrder)
{
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(101).selectors(0x20000003).count(1).bytes({1, 2, 3, 4, 5, 6}).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<unsigned char>(fields.selBit0, 2), ElementsAre(1, 2));
    EXPECT_THAT(copied<unsigned char>(fields.selBit1, 4), ElementsAre(3, 4, 5, 6));
}

TEST(UdpDatagramFields, AreFoundOnOddAddresses)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(101)
                                      .selectors(0x2)
                                      .count(1)
                                      .optHeader({9})
                                      .items<std::int32_t>({-5})
                                      .build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<std::int32_t>(fields.selBit1, 1), ElementsAre(-5));
}

TEST(UdpDatagramFields, WidenBit17WithoutItsSign)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(101)
                                      .selectors(0x00060000)
                                      .count(2)
                                      .items<std::int32_t>({-1, 7})
                                      .items<std::int16_t>({3, 4})
                                      .build())};
    Record record;
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&record.fields);
    EXPECT_THAT(copied<quint64>(record.fields.selBit17, 2), ElementsAre(0xFFFFFFFFU, 7U));
    EXPECT_THAT(copied<std::int16_t>(record.fields.selBit18, 2), ElementsAre(3, 4));
}

TEST(UdpDatagramFields, AllocateBit17AlsoForNoItems)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).selectors(0x00020000).build())};
    Record record;
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&record.fields);
    EXPECT_NE(record.fields.selBit17, nullptr);
}

TEST(UdpDatagramFields, OfTag401AreTheBytesAsTheyCame)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(TAG_401)
                                      .selectors(0xE0400001) // not looked at
                                      .count(9000)
                                      .optHeader({7})
                                      .bytes({1, 2, 3})
                                      .build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<unsigned char>(fields.selBit0, 3), ElementsAre(1, 2, 3));
    EXPECT_EQ(fields.dataEnd, nullptr);
    EXPECT_EQ(fields.selBit1, nullptr);
}

TEST(UdpDatagramFields, OfTag1301Are32BitItemsWhateverIsSelected)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(TAG_1301)
                                      .selectors(0xCFFFFFFF)
                                      .count(2)
                                      .items<std::int32_t>({1, -2})
                                      .build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<std::int32_t>(fields.selBit0, 2), ElementsAre(1, -2));
    EXPECT_EQ(fields.dataEnd, nullptr);
}

TEST(UdpDatagramFields, OfTag1301StayAsTheyAreWithBit29)
{
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(TAG_1301).selectors(0x20000000).count(1).bytes({1, 2, 3, 4}).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<unsigned char>(fields.selBit0, 4), ElementsAre(1, 2, 3, 4));
}

class UdpDatagramExtended : public testing::TestWithParam<unsigned> {};

TEST_P(UdpDatagramExtended, HasItsHeaderTurnedToHostOrder)
{
    Bytes bytes = DatagramWriter{}
                      .attribute(GetParam(), 0x0A0B0C0D)
                      .selectors(0x1)
                      .count(0x00050002) // only the low 16 bits count items
                      .optHeader({1, 2, 3})
                      .items<std::int16_t>({10, -20})
                      .build();
    bytes[16 + 2] = 0xAB;  // not interpreted, stays
    bytes[16 + 43] = 0x77; // turned with the rest
    UdpDatagram datagram{received(bytes)};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    ASSERT_NE(fields.extHeader, nullptr);
    EXPECT_EQ(fields.extHeader->Tag(), GetParam());
    EXPECT_EQ(fields.extHeader->Length(), 67U - 24);
    EXPECT_EQ(fields.extHeader->Count(), 0x00050002U);
    EXPECT_EQ(fields.extHeader->ChannelNumber(), 0x0A0B0C0DU);
    EXPECT_EQ(fields.extHeader->OptHeaderLength(), 3U);
    EXPECT_EQ(fields.extHeader->SelectorFlags(), 1U);
    const auto* const header = reinterpret_cast<unsigned char*>(fields.extHeader);
    EXPECT_EQ(header[2], 0xAB);
    EXPECT_EQ(header[40], 0x77);
    EXPECT_EQ(fields.extOptHeader, header + 60);
    EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 2), ElementsAre(10, -20));
    EXPECT_EQ(fields.dataEnd, header + 67);
}
INSTANTIATE_TEST_SUITE_P(Tags, UdpDatagramExtended, testing::Values(5001U, 5101U, 5301U));

TEST(UdpDatagramFields, OfANormalAttributeHaveNoExtendedHeader)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(5201).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_EQ(fields.extHeader, nullptr);
    EXPECT_EQ(fields.extOptHeader, nullptr);
}

TEST(UdpDatagramSelectorErrors, UnknownBitsThrowAfterTheLowerFieldsAreSet)
{
    TraceCapture traces{0x20};
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(101).selectors(0x00400001).count(1).items<std::int16_t>({-3}).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    const Thrown thrown = thrownBy(datagram, fields);
    EXPECT_EQ(thrown.reason, "Unknown Selector Flag");
    EXPECT_EQ(thrown.className, "UdpDatagram");
    EXPECT_EQ(thrown.file, "UdpDatagram");
    EXPECT_EQ(thrown.method, "SetupDataPointers");
    EXPECT_EQ(thrown.line, 397);
    EXPECT_EQ(thrown.code, 0xFFFFFFFFU);
    EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 1), ElementsAre(-3));
    EXPECT_EQ(fields.dataEnd, nullptr);
    EXPECT_THAT(traces.take(), ElementsAre("Throwing Exception - Unknown SelectorFlag: 4194304 "
                                           "(devicecontrol/vk410protocol/udpdatagram:452)"));
}

TEST(UdpDatagramSelectorErrors, TraceEachUnknownBitAsADecimalMaskUnderMask0x20Only)
{
    for (const unsigned bit : {22U, 24U, 25U, 26U, 27U}) {
        TraceCapture traces{0x20};
        UdpDatagram datagram{received(DatagramWriter{}.attribute(101).selectors(1U << bit).build())};
        DataPointers fields{};
        ASSERT_TRUE(datagram.NextAttribute());
        EXPECT_EQ(thrownBy(datagram, fields).line, 397);
        EXPECT_THAT(traces.take(),
                    ElementsAre("Throwing Exception - Unknown SelectorFlag: " + std::to_string(1U << bit) +
                                " (devicecontrol/vk410protocol/udpdatagram:452)"));
        ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
        UdpDatagram again{received(DatagramWriter{}.attribute(101).selectors(1U << bit).build())};
        ASSERT_TRUE(again.NextAttribute());
        EXPECT_EQ(thrownBy(again, fields).line, 397);
        EXPECT_THAT(traces.take(), IsEmpty());
    }
}

TEST(UdpDatagramSelectorErrors, TooManyFlagsThrowAtTheFirstSetBit)
{
    TraceCapture traces;
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(101).selectors(0xE0400001).count(1).items<std::int16_t>({-3}).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    const Thrown thrown = thrownBy(datagram, fields);
    EXPECT_EQ(thrown.reason, "Too Many Selector Flags");
    EXPECT_EQ(thrown.line, 269);
    EXPECT_EQ(thrown.method, "SetupDataPointers");
    EXPECT_THAT(pointersOf(fields), Each(nullptr));
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramSelectorErrors, TooManyFlagsAreFoundBeforeAnyBoundIsChecked)
{
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(101).selectors(0xE0800000).count(9999).claimOptHeaderLength(200).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(thrownBy(datagram, fields).reason, "Too Many Selector Flags");
}

TEST(UdpDatagramSelectorErrors, AWordWithoutFieldsIsNeverTooMany)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).selectors(0xF0000000).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_NE(fields.dataEnd, nullptr);
}

TEST(UdpDatagramSelectorErrors, AnErrorOfALowerBitComesBeforeAnOverrunOfAHigherOne)
{
    // Bit 0 fits, bit 22 is unknown, bit 23 would leave the datagram.
    UdpDatagram datagram{received(
        DatagramWriter{}.attribute(101).selectors(0x00C00001).count(1).items<std::int16_t>({1}).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(thrownBy(datagram, fields).reason, "Unknown Selector Flag");
}

TEST(UdpDatagramSelectorErrors, AnOverrunOfALowerBitComesBeforeTheErrorOfAHigherOne)
{
    TraceCapture traces;
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).selectors(0x00400001).count(1).build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    EXPECT_EQ(thrownBy(datagram, fields).reason, "nothing thrown");
    EXPECT_TRUE(datagram.Truncated());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramOptHeader, OfTag301IsTurnedToHostOrder)
{
    Bytes header(34);
    for (std::size_t i = 0; i < header.size(); ++i)
        header[i] = static_cast<unsigned char>(i + 1);
    UdpDatagram datagram{received(DatagramWriter{}.attribute(TAG_301).optHeader(header).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupOptHeader();
    EXPECT_THAT(copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 34),
                ElementsAre(4, 3, 2, 1, 8, 7, 6, 5, 12, 11, 10, 9, 16, 15, 14, 13, 18, 17, 20, 19, 22, 21, 26,
                            25, 24, 23, 30, 29, 28, 27, 34, 33, 32, 31));
}

TEST(UdpDatagramOptHeader, OfTag301ThatIsCutConvertsAsIfPaddedWithZeros)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(TAG_301).optHeader({1, 2, 3, 4, 5, 6}).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupOptHeader();
    EXPECT_THAT(copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 6),
                ElementsAre(4, 3, 2, 1, 0, 0));
}

TEST(UdpDatagramOptHeader, OfTag301ConvertsNoMoreThan34Bytes)
{
    const Bytes header(40, 0x11);
    Bytes marked = header;
    marked[34] = 1;
    marked[35] = 2;
    UdpDatagram datagram{received(DatagramWriter{}.attribute(TAG_301).optHeader(marked).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupOptHeader();
    EXPECT_EQ(copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 40), marked);
}

TEST(UdpDatagramOptHeader, OfTag301StaysAsItIsWithBit29)
{
    UdpDatagram datagram{
        received(DatagramWriter{}.attribute(TAG_301).selectors(0x20000000).optHeader({1, 2, 3, 4}).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupOptHeader();
    EXPECT_THAT(copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 4), ElementsAre(1, 2, 3, 4));
}

TEST(UdpDatagramOptHeader, OfTag501StaysInNetworkOrder)
{
    Bytes header(32);
    for (std::size_t i = 0; i < header.size(); ++i)
        header[i] = static_cast<unsigned char>(i + 1);
    UdpDatagram datagram{received(DatagramWriter{}.attribute(TAG_501).optHeader(header).build())};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupOptHeader();
    EXPECT_EQ(copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 32), header);
}

TEST(UdpDatagramOptHeader, OfEveryOtherTagStaysAsItCame)
{
    const Bytes header{1, 2, 3, 4};
    for (const std::uint16_t tag : wire::tag::known) {
        if (tag == TAG_301)
            continue;
        UdpDatagram datagram{received(DatagramWriter{}.attribute(tag).optHeader(header).build())};
        DataPointers fields{};
        ASSERT_TRUE(datagram.NextAttribute());
        datagram.SetupDataPointers(&fields);
        datagram.SetupOptHeader();
        const unsigned char* const at =
            fields.extOptHeader ? fields.extOptHeader : datagram.CurrentAttribute()->OptHeader();
        EXPECT_EQ(copied<unsigned char>(at, 4), header) << tag;
    }
}

TEST(UdpDatagramFields, ResetSetsAllOfTheRecordToNull)
{
    UdpDatagram datagram{received(DatagramWriter{}.build())};
    DataPointers fields;
    std::memset(&fields, 0xFF, sizeof fields);
    datagram.ResetDataPointers(&fields);
    EXPECT_THAT(pointersOf(fields), Each(nullptr));
}

TEST(UdpDatagramFields, BeforeTheFirstAttributeAreNull)
{
    UdpDatagram datagram{received(DatagramWriter{}.attribute(101).build())};
    DataPointers fields;
    std::memset(&fields, 0xFF, sizeof fields);
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(pointersOf(fields), Each(nullptr));
}

TEST(UdpDatagramTwentySixthValue, BehindATraceThatEndsWithTheDatagramIsItsLastOneAgain)
{
    for (const std::uint32_t order : {0U, 0x20000000U}) {
        UdpDatagram datagram{received(DatagramWriter{}
                                          .attribute(501)
                                          .selectors(1 | order)
                                          .count(2)
                                          .items<std::int16_t>({5, -77})
                                          .build())};
        DataPointers fields{};
        ASSERT_TRUE(datagram.NextAttribute());
        datagram.SetupDataPointers(&fields);
        EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 3), ElementsAre(5, -77, -77));
    }
}

TEST(UdpDatagramTwentySixthValue, IsWhateverFollowsInsideTheDatagram)
{
    UdpDatagram datagram{received(DatagramWriter{}
                                      .attribute(501)
                                      .selectors(1)
                                      .count(1)
                                      .items<std::int16_t>({5})
                                      .bytes({0x01, 0x02})
                                      .build())};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 2), ElementsAre(5, 0x0201));
}

TEST(UdpDatagramMemory, TakesAnArrayWithRoomForTwoBytesWithoutCopyingIt)
{
    std::unique_ptr<QByteArray> bytes = received(DatagramWriter{}.attribute(101).build());
    const char* const address = bytes->constData();
    UdpDatagram datagram{std::move(bytes)};
    EXPECT_EQ(reinterpret_cast<const char*>(datagram.GetNextAttribute()) - 16, address);
}

TEST(UdpDatagramMemory, LeavesASharedArrayAlone)
{
    const Bytes bytes =
        DatagramWriter{}.attribute(101).selectors(1).count(1).items<std::int16_t>({1}).build();
    const QByteArray kept(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    UdpDatagram datagram{std::make_unique<QByteArray>(kept)};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_EQ(copied<unsigned char>(kept.constData(), bytes.size()), bytes);
}

// The address checks see it when the two bytes behind the datagram are not its own.
TEST(UdpDatagramMemory, HasItsTwoSpareBytesAlsoWhenItsArrayWasSharedAndHadRoom)
{
    const Bytes bytes =
        DatagramWriter{}.attribute(101).selectors(1).count(1).items<std::int16_t>({1}).build();
    QByteArray kept;
    kept.reserve(static_cast<int>(bytes.size()) + 2);
    kept.append(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    UdpDatagram datagram{std::make_unique<QByteArray>(kept)};
    DataPointers fields{};
    ASSERT_TRUE(datagram.NextAttribute());
    datagram.SetupDataPointers(&fields);
    EXPECT_THAT(copied<std::int16_t>(fields.selBit0, 2), ElementsAre(1, 1));
}

} // namespace
