// SPDX-License-Identifier: MIT
#include "wire/datagramwriter.h"
#include <gtest/gtest.h>

using wire::Bytes;
using wire::DatagramWriter;

namespace {

TEST(DatagramWriter, WritesTheHeaderInNetworkOrder)
{
    EXPECT_EQ(DatagramWriter{}.sequence(0x0102).build(),
              (Bytes{0x00, 0x0C, 0x5A, 0x10, 0, 0, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0, 16}));
}

TEST(DatagramWriter, WritesTheMagicOfALittleEndianSender)
{
    const Bytes datagram = DatagramWriter{}.magic(0x000C5A10, wire::ByteOrder::Little).build();
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 4), (Bytes{0x10, 0x5A, 0x0C, 0x00}));
}

TEST(DatagramWriter, WritesANormalAttribute)
{
    const Bytes datagram = DatagramWriter{}
                               .attribute(301, 7)
                               .selectors(0x3)
                               .count(1)
                               .optHeader({0xAA, 0xBB})
                               .items<std::int16_t>({-2})
                               .items<std::int32_t>({0x01020304})
                               .build();
    EXPECT_EQ(Bytes(datagram.begin() + 16, datagram.end()),
              (Bytes{0x01, 0x2D, 0, 16, 0, 1, 7, 2, 0, 0, 0, 3, 0xAA, 0xBB, 0xFF, 0xFE, 1, 2, 3, 4}));
    EXPECT_EQ(datagram[15], 36);
}

TEST(DatagramWriter, WritesItemsLittleEndianWhenBit29SaysSo)
{
    const Bytes datagram =
        DatagramWriter{}.attribute(101).selectors(0x20000001).count(1).items<std::int16_t>({0x0102}).build();
    EXPECT_EQ(Bytes(datagram.end() - 2, datagram.end()), (Bytes{2, 1}));
    EXPECT_EQ(datagram[24], 0x20);
}

TEST(DatagramWriter, WritesAnExtendedAttribute)
{
    const Bytes datagram = DatagramWriter{}
                               .attribute(5301, 0x01020304)
                               .selectors(0x1)
                               .count(0x10001)
                               .optHeader(Bytes{9})
                               .items<std::int16_t>({5})
                               .build();
    Bytes expected(63);
    expected[0] = 0x14;
    expected[1] = 0xB5;
    expected[7] = 39; // 63 - 24
    expected[25] = 1;
    expected[27] = 1;
    expected[28] = 1;
    expected[29] = 2;
    expected[30] = 3;
    expected[31] = 4;
    expected[35] = 1;
    expected[39] = 1;
    expected[60] = 9;
    expected[62] = 5;
    EXPECT_EQ(Bytes(datagram.begin() + 16, datagram.end()), expected);
}

TEST(DatagramWriter, WritesWhatIsWrongOnPurpose)
{
    const Bytes datagram = DatagramWriter{}
                               .magic(0xDEADBEEF)
                               .attribute(101)
                               .claimLength(0xFFFF)
                               .claimOptHeaderLength(200)
                               .claimTotalLength(15)
                               .build();
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 4), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
    EXPECT_EQ(datagram[15], 15);
    EXPECT_EQ(datagram[18], 0xFF);
    EXPECT_EQ(datagram[19], 0xFF);
    EXPECT_EQ(datagram[23], 200);
}

TEST(DatagramWriter, CutsAndPads)
{
    EXPECT_EQ(DatagramWriter{}.attribute(101).cutTo(5).build(), (Bytes{0x00, 0x0C, 0x5A, 0x10, 0}));
    EXPECT_EQ(DatagramWriter{}.cutTo(20).build().size(), 20U);
    EXPECT_TRUE(DatagramWriter{}.cutTo(0).build().empty());
}

} // namespace
