// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include <gtest/gtest.h>

namespace {

TEST(NQException, TellsEverythingItWasThrownWith)
{
    const NQException failure{"Reason", "Class", "unit", "Method", 269, 17};
    EXPECT_EQ(failure.GetErrorReason(), "Reason");
    EXPECT_EQ(failure.GetClassName(), "Class");
    EXPECT_EQ(failure.GetFileName(), "unit");
    EXPECT_EQ(failure.GetMethodName(), "Method");
    EXPECT_EQ(failure.GetLineNumber(), 269);
    EXPECT_EQ(failure.GetErrorCode(), 17U);
}

TEST(NQException, IsAStandardExceptionWhoseTextIsTheReason)
{
    const NQException failure{QString::fromUtf8("Überlauf"), "Class", "unit", "Method", 1};
    const std::exception& base = failure;
    EXPECT_STREQ(base.what(), "Überlauf");
}

TEST(NQException, HasACodeOfAllOnesUnlessGiven)
{
    EXPECT_EQ(NQException("r", "c", "f", "m", 1).GetErrorCode(), 0xFFFFFFFFU);
}

} // namespace
