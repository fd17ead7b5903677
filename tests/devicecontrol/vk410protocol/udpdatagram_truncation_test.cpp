// SPDX-License-Identifier: MIT
// Datagrams that end too early. Every prefix lies in an array of exactly its size and the two spare bytes, on
// the heap, so that the address checks see the first byte read too far.
#include "support/delivered.h"
#include "support/plain_decoder.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>

using support::Delivered;
using support::plainDecode;
using support::RecordingDispatcher;
using support::TraceCapture;
using testing::Each;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

DataPointers afterOverrun(UdpDatagram& datagram)
{
    DataPointers fields;
    std::memset(&fields, 0xFF, sizeof fields);
    datagram.SetupDataPointers(&fields);
    return fields;
}

void expectOverrun(const Bytes& bytes)
{
    TraceCapture traces;
    UdpDatagram datagram{support::received(bytes)};
    ASSERT_TRUE(datagram.NextAttribute());
    const DataPointers fields = afterOverrun(datagram);
    EXPECT_THAT(support::copied<const void*>(&fields, 26), Each(nullptr));
    EXPECT_TRUE(datagram.Truncated());
    EXPECT_FALSE(datagram.NextAttribute());
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(UdpDatagramOverrun, OfAFieldGivesNothingAndEndsTheWalk)
{
    expectOverrun(DatagramWriter{}.attribute(101).selectors(1).count(2).bytes({1, 2, 3}).build());
}

TEST(UdpDatagramOverrun, OfTheSecondFieldGivesNothingAndEndsTheWalk)
{
    expectOverrun(DatagramWriter{}.attribute(101).selectors(3).count(1).bytes({1, 2, 3, 4, 5}).build());
}

TEST(UdpDatagramOverrun, OfTheOptionalHeaderGivesNothingAndEndsTheWalk)
{
    for (const unsigned tag : {101U, 301U, 401U, 1301U, 5301U})
        expectOverrun(DatagramWriter{}.attribute(tag).claimOptHeaderLength(1).build());
}

TEST(UdpDatagramOverrun, OfAnExtendedOptionalHeaderOfFourGigabytesIsFound)
{
    expectOverrun(DatagramWriter{}.attribute(5301).claimOptHeaderLength(0xFFFFFFFF).build());
}

TEST(UdpDatagramOverrun, OfTag1301GivesNothingAndEndsTheWalk)
{
    expectOverrun(DatagramWriter{}.attribute(1301).count(1).bytes({1, 2, 3}).build());
}

TEST(UdpDatagramOverrun, OfBit17ReleasesNothingAndLeaksNothing)
{
    expectOverrun(
        DatagramWriter{}.attribute(101).selectors(0x00060000).count(1).bytes({1, 2, 3, 4, 5}).build());
}

TEST(UdpDatagramOverrun, ConvertsNothing)
{
    const Bytes bytes = DatagramWriter{}.attribute(101).selectors(3).count(1).bytes({1, 2, 3, 4, 5}).build();
    UdpDatagram datagram{support::received(bytes)};
    ASSERT_TRUE(datagram.NextAttribute());
    afterOverrun(datagram);
    EXPECT_EQ(support::copied<unsigned char>(datagram.CurrentAttribute()->OptHeader(), 5),
              (Bytes{1, 2, 3, 4, 5}));
}

TEST(UdpDatagramOverrun, AttributeThatFillsTheDatagramToItsLastByteIsDelivered)
{
    RecordingDispatcher library;
    EXPECT_EQ(
        library.process(DatagramWriter{}.attribute(101).selectors(1).count(1).bytes({1, 2}).build()).size(),
        1U);
    EXPECT_EQ(library.process(DatagramWriter{}.attribute(1301).count(1).bytes({1, 2, 3, 4}).build()).size(),
              1U);
    EXPECT_EQ(library.process(DatagramWriter{}.attribute(5301).optHeader({1}).build()).size(), 1U);
}

TEST(UdpDatagramOverrun, OfAnUnknownTagIsNotLookedAt)
{
    RecordingDispatcher library;
    const std::vector<Delivered> delivered = library.process(DatagramWriter{}
                                                                 .attribute(777)
                                                                 .selectors(1)
                                                                 .count(60000)
                                                                 .claimOptHeaderLength(200)
                                                                 .attribute(101)
                                                                 .build());
    ASSERT_EQ(delivered.size(), 1U);
    EXPECT_EQ(delivered[0].tag, 101U);
}

TEST(UdpDatagramOverrun, FieldsMayRunIntoTheNextAttributeAsItComes)
{
    // The first attribute claims 12 bytes and selects 16 more, which are the second one's header. They are
    // converted in place as items, and the walk then reads them as a header.
    const Bytes bytes = DatagramWriter{}
                            .attribute(101)
                            .selectors(1)
                            .count(2)
                            .attribute(201, 3)
                            .count(1)
                            .selectors(1)
                            .items<std::int16_t>({9})
                            .build();
    RecordingDispatcher library;
    const std::vector<Delivered> delivered = library.process(bytes);
    ASSERT_EQ(delivered.size(), 1U);
    EXPECT_EQ(delivered[0].fields.at("selBit0"), (std::vector<std::int64_t>{201, 10}));
    EXPECT_EQ(delivered, plainDecode(bytes).delivered);
}

TEST(UdpDatagramPrefix, EveryPrefixDeliversWhatThePlainDecoderFindsInIt)
{
    const Bytes normal = DatagramWriter{}
                             .attribute(301, 1)
                             .selectors(0x00BFFFFF)
                             .count(3)
                             .optHeader(Bytes(34, 0x42))
                             .bytes(Bytes(180, 0x17))
                             .attribute(1301)
                             .count(2)
                             .items<std::int32_t>({1, 2})
                             .attribute(401)
                             .bytes({1, 2, 3})
                             .attribute(5301, 70000)
                             .selectors(0x0004F800)
                             .count(5)
                             .optHeader(Bytes(74, 0x01))
                             .bytes(Bytes(60, 0x21))
                             .build();
    Bytes behindStep =
        DatagramWriter{}.attribute(5101).selectors(1).count(1).items<std::int16_t>({3}).build();
    behindStep.resize(16 + 34 * 62);
    const Bytes second =
        DatagramWriter{}.attribute(5301).selectors(2).count(2).items<std::int32_t>({3, 4}).build();
    behindStep.insert(behindStep.end(), second.begin() + 16, second.end());

    for (const Bytes& whole : {normal, behindStep}) {
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            const Bytes prefix(whole.begin(), whole.begin() + static_cast<long>(size));
            RecordingDispatcher library;
            ASSERT_EQ(library.process(prefix), plainDecode(prefix).delivered) << size;
        }
    }
}

TEST(UdpDatagramOverrun, SetupAfterAFailedStepTouchesNothing)
{
    const Bytes bytes = DatagramWriter{}.attribute(5301).selectors(1).count(3).claimLength(1'000).build();
    UdpDatagram datagram{support::received(bytes)};
    EXPECT_FALSE(datagram.NextAttribute());
    const DataPointers fields = afterOverrun(datagram);
    EXPECT_THAT(support::copied<const void*>(&fields, 26), Each(nullptr));
    EXPECT_EQ(support::copied<unsigned char>(datagram.Bytes(), 16), Bytes(bytes.begin(), bytes.begin() + 16));
}

TEST(UdpDatagramWalkBounds, AnExtendedSizeBelowItsHeaderIsWalkedAndDelivered)
{
    Bytes bytes = DatagramWriter{}.attribute(5301).claimLength(0).build(); // 24 bytes, so the step is 34 x 24
    const Bytes second = DatagramWriter{}.attribute(101).build();
    bytes.resize(16 + 34 * 24);
    bytes.insert(bytes.end(), second.begin() + 16, second.end());
    RecordingDispatcher library;
    const std::vector<Delivered> delivered = library.process(bytes);
    ASSERT_EQ(delivered.size(), 2U);
    EXPECT_EQ(delivered[1].tag, 101U);
}

TEST(UdpDatagramWalkBounds, AnExtendedCountOf65536HasNoItems)
{
    RecordingDispatcher library;
    const std::vector<Delivered> delivered =
        library.process(DatagramWriter{}.attribute(5301).selectors(1).count(65'536).build());
    ASSERT_EQ(delivered.size(), 1U);
    EXPECT_EQ(delivered[0].dataEnd, 60);
}

TEST(UdpDatagramWalkBounds, AnExtendedOptionalHeaderOf256BytesIsAvailable)
{
    RecordingDispatcher library;
    const std::vector<Delivered> delivered =
        library.process(DatagramWriter{}.attribute(5301).optHeader(Bytes(256)).build());
    ASSERT_EQ(delivered.size(), 1U);
    EXPECT_TRUE(delivered[0].optHeaderAvailable);
}

} // namespace
