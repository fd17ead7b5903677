// SPDX-License-Identifier: MIT
#include "wire/datagramwriter.h"
#include "wire/optheader.h"
#include <gtest/gtest.h>

using wire::ByteOrder;
using wire::View;

namespace {

TEST(WireOptHeader, HasATableForTheTagsThatSomebodyInterprets)
{
    EXPECT_EQ(wire::optHeaderFields(301).size(), 10U);
    EXPECT_EQ(wire::optHeaderFields(501).size(), 13U);
    EXPECT_EQ(wire::optHeaderFields(1801).size(), 20U);
    EXPECT_EQ(wire::optHeaderFields(5301).size(), 16U);
    EXPECT_TRUE(wire::optHeaderFields(101).empty());
}

TEST(WireOptHeader, PlacesTheIfPanoramaNumbers)
{
    wire::Bytes header(50);
    for (std::size_t i = 0; i < header.size(); ++i)
        header[i] = static_cast<unsigned char>(i);
    const View view{header};
    EXPECT_EQ(view.get(wire::ifpan::centreFrequencyLow), 0x00010203);
    EXPECT_EQ(view.get(wire::ifpan::span), 0x04050607);
    EXPECT_EQ(view.get(wire::ifpan::centreFrequencyHigh), 0x10111213);
    EXPECT_EQ(view.get(wire::ifpan::timeStamp), 0x2021222324252627);
    EXPECT_EQ(view.get(wire::ifpan::stepNumerator), 0x28292A2B);
    EXPECT_EQ(view.get(wire::ifpan::stepDenominator), 0x2C2D2E2F);
    EXPECT_EQ(wire::ifpan::size, 50U);
}

TEST(WireOptHeader, PlacesTheZeroSpanNumbers)
{
    EXPECT_EQ(wire::zerospan::xSpan.offset, 24U);
    EXPECT_EQ(wire::zerospan::xStart.offset, 32U);
    EXPECT_EQ(wire::zerospan::timeStamp.offset, 48U);
    EXPECT_EQ(wire::zerospan::size, 96U);
}

TEST(WireOptHeader, PlacesTheDfScanNumbers)
{
    EXPECT_EQ(wire::dfscan::startFrequency.offset, 8U);
    EXPECT_EQ(wire::dfscan::firstChannel.offset, 16U);
    EXPECT_EQ(wire::dfscan::stepNumerator.offset, 20U);
    EXPECT_EQ(wire::dfscan::stepDenominator.offset, 24U);
    EXPECT_EQ(wire::dfscan::span.offset, 28U);
    EXPECT_EQ(wire::dfscan::averagingTimeOffset.offset, 36U);
    EXPECT_EQ(wire::dfscan::dfFlags.offset, 48U);
    EXPECT_EQ(wire::dfscan::sweepTime.offset, 52U);
    EXPECT_EQ(wire::dfscan::timestamp.offset, 60U);
    EXPECT_EQ(wire::dfscan::jobId.offset, 68U);
    EXPECT_EQ(wire::dfscan::superResolutionFields.offset, 70U);
    EXPECT_EQ(wire::dfscan::superResolutionCount.offset, 72U);
    EXPECT_EQ(wire::dfscan::eigenValueCount.offset, 73U);
    EXPECT_EQ(wire::dfscan::size, 74U);
}

TEST(WireOptHeader, IsWrittenInTheByteOrderOfItsAttribute)
{
    const wire::OptHeaderWriter big = wire::OptHeaderWriter{8}.set(wire::ifpan::span, 0x01020304);
    EXPECT_EQ(big.bytes(), (wire::Bytes{0, 0, 0, 0, 1, 2, 3, 4}));
    const wire::OptHeaderWriter little =
        wire::OptHeaderWriter{8, ByteOrder::Little}.set(wire::ifpan::span, 0x01020304);
    EXPECT_EQ(little.bytes(), (wire::Bytes{0, 0, 0, 0, 4, 3, 2, 1}));
}

TEST(WireOptHeader, LeavesOutAFieldThatItsSizeCuts)
{
    EXPECT_EQ(wire::OptHeaderWriter{7}.set(wire::ifpan::span, -1).bytes(), wire::Bytes(7));
}

} // namespace
