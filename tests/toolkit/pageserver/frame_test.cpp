// SPDX-License-Identifier: MIT
// Frames byte by byte, against numbers written by hand.
#include "toolkit/pageserver/frame.h"
#include <cstring>
#include <gmock/gmock.h>

namespace {

using namespace pageserver;
using testing::ElementsAre;
using values::noLevel;
using Levels = std::vector<short>;

std::vector<int> bytesOf(const QByteArray& frame, int from, int count)
{
    std::vector<int> bytes;
    for (int i = from; i < from + count; ++i)
        bytes.push_back(static_cast<unsigned char>(frame.at(i)));
    return bytes;
}

// Read as a viewer reads it, independent of what wrote it.
template <typename T>
T at(const QByteArray& frame, int offset)
{
    T number{};
    std::memcpy(&number, frame.constData() + offset, sizeof number);
    return number;
}

values::ChannelRangeDefinition twoRanges()
{
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(10, 2, 100e6, 12'500, "first");
    grid.AddRangeDefinition(12, 1, 430e6, 25'000, "second");
    return grid;
}

QByteArray panorama()
{
    FrameHead head;
    head.stream = Stream::Panorama;
    head.arrays = Live | Max;
    head.info = {.number = 0x1122334455667788,
                 .deviceNs = 0x0102030405060708,
                 .receivedNs = 0x1112131415161718,
                 .isReplayed = true,
                 .isStepped = true};
    head.averaged = 16;
    head.heldSinceNs = -2;
    head.gridNumber = 3;
    const Levels live{-730, 125, noLevel};
    const Levels max{-729, 0x0102, noLevel};
    const std::array<std::span<const short>, 2> arrays{live, max};
    return makeFrame(head, twoRanges(), arrays);
}

TEST(Frame, BeginsWithAHeaderOf96Bytes)
{
    QByteArray frame = panorama();
    address(frame, {.sequence = 0xA1A2A3A4, .skipped = 0xB1B2B3B4, .lost = 0xC1C2C3C4});
    EXPECT_THAT(bytesOf(frame, 0, 8), ElementsAre('V', 'K', '4', 'S', 1, 1, 3, 0));
    EXPECT_THAT(bytesOf(frame, 8, 8), ElementsAre(0xA4, 0xA3, 0xA2, 0xA1, 0xB4, 0xB3, 0xB2, 0xB1));
    EXPECT_THAT(bytesOf(frame, 16, 8), ElementsAre(8, 7, 6, 5, 4, 3, 2, 1));
    EXPECT_THAT(bytesOf(frame, 24, 8), ElementsAre(0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11));
    EXPECT_THAT(bytesOf(frame, 32, 8), ElementsAre(0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
    EXPECT_THAT(bytesOf(frame, 40, 8), ElementsAre(0xC4, 0xC3, 0xC2, 0xC1, 16, 0, 0, 0));
    EXPECT_THAT(bytesOf(frame, 48, 8), ElementsAre(0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_THAT(bytesOf(frame, 56, 8), ElementsAre(0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F)); // 0.1
    EXPECT_THAT(bytesOf(frame, 64, 8), ElementsAre('d', 'B', 'u', 'V', 0, 0, 0, 0));
    EXPECT_THAT(bytesOf(frame, 72, 8), ElementsAre(3, 0, 0, 0, 3, 0, 0, 0));
    EXPECT_THAT(bytesOf(frame, 80, 4), ElementsAre(2, 0, 0, 3));
    EXPECT_THAT(bytesOf(frame, 84, 12), testing::Each(0));
}

TEST(Frame, HasItsGridBehindTheHeaderWithIndicesOfItsArrays)
{
    const QByteArray frame = panorama();
    EXPECT_EQ(at<double>(frame, 96), 100e6);
    EXPECT_EQ(at<double>(frame, 104), 12'500);
    EXPECT_THAT(bytesOf(frame, 112, 8), ElementsAre(0, 0, 0, 0, 2, 0, 0, 0));
    EXPECT_EQ(at<double>(frame, 120), 430e6);
    EXPECT_EQ(at<double>(frame, 128), 25'000);
    EXPECT_THAT(bytesOf(frame, 136, 8), ElementsAre(2, 0, 0, 0, 1, 0, 0, 0));
}

TEST(Frame, EndsWithItsArraysOneBehindTheOther)
{
    const QByteArray frame = panorama();
    EXPECT_EQ(frame.size(), 96 + 2 * 24 + 2 * 3 * 2);
    EXPECT_THAT(bytesOf(frame, 144, 12),
                ElementsAre(0x26, 0xFD, 125, 0, 0xFE, 0x7F, 0x27, 0xFD, 0x02, 0x01, 0xFE, 0x7F));
}

TEST(Frame, OfAZeroSpanHasItsAxisInSeconds)
{
    FrameHead head;
    head.stream = Stream::SecondZeroSpan;
    head.arrays = Live;
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, 1, 1'000'000, 20'000, {}); // ns
    const Levels live{500};
    const std::array<std::span<const short>, 1> arrays{live};
    const QByteArray frame = makeFrame(head, grid, arrays);
    EXPECT_EQ(at<std::uint8_t>(frame, 5), 3);
    EXPECT_EQ(at<std::uint8_t>(frame, 82), 1);
    EXPECT_EQ(at<std::uint8_t>(frame, 83), 0);
    EXPECT_EQ(at<double>(frame, 56), 0.001);
    EXPECT_THAT(bytesOf(frame, 64, 8), ElementsAre('F', 'S', 0, 0, 0, 0, 0, 0));
    EXPECT_DOUBLE_EQ(at<double>(frame, 96), 1e-3);
    EXPECT_DOUBLE_EQ(at<double>(frame, 104), 20e-6);
}

TEST(DfArrays, HaveTenthsOfADegreeAndSayWhatIsMissing)
{
    using Validity = values::DFSpectrumSample::Validity;
    DfPicture picture;
    picture.samples.resize(4);
    picture.samples[0] = {Validity::Valid, 87, 35'990, 4'310, 0, 0, -1'250};
    picture.samples[1] = {Validity::Blanked, 50, 10, -100, 0, 0, 0};
    picture.samples[2] = {Validity::Unusable, 0, 0, 700, 0, 0, 0}; // no bearing
    const std::array<std::vector<short>, 5> arrays = dfArrays(picture);
    EXPECT_THAT(arrays[0], ElementsAre(4'310, -100, 700, noLevel));
    EXPECT_THAT(arrays[1], ElementsAre(3'599, 1, -1, -1));
    EXPECT_THAT(arrays[2], ElementsAre(87, 50, 0, -1));
    EXPECT_THAT(arrays[3], ElementsAre(-125, 0, 0, 0));
    EXPECT_THAT(arrays[4], ElementsAre(0, 2, 1, 1));
}

} // namespace
