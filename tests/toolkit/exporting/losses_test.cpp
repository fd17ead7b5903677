// SPDX-License-Identifier: MIT
#include "toolkit/exporting/collector.h"
#include <gmock/gmock.h>

using exporting::lossesOf;
using exporting::lossText;
using exporting::What;

namespace {

TEST(LossesOfAnExport, AreNotWhatCameTwiceOrLate)
{
    ledger::Counters counters;
    counters.wireDuplicates = 2;
    counters.wireReordered = 1;

    EXPECT_EQ(lossesOf(counters, What::Levels), 0U);
    EXPECT_EQ(lossText(counters, What::Levels), "no losses, wire duplicates 2, wire reordered 1");
}

TEST(LossesOfAnExport, AreNotAttributesOfOtherKinds)
{
    ledger::Counters counters;
    counters.unrouted = 5;
    counters.unknownTag = 6;
    counters.notAccepted = 7;

    EXPECT_EQ(lossText(counters, What::Levels), "no losses");
    EXPECT_EQ(lossesOf(counters, What::Df), 7U);
    EXPECT_EQ(lossText(counters, What::Df), "not accepted 7");
}

TEST(LossesOfAnExport, AreEachNamed)
{
    ledger::Counters counters;
    counters.wireLost = 3;
    counters.kernelDropped = 2;
    counters.wireDuplicates = 1;

    EXPECT_EQ(lossesOf(counters, What::Levels), 5U);
    EXPECT_EQ(lossText(counters, What::Levels), "wire lost 3 | kernel 2, wire duplicates 1");
}

} // namespace
