// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include "support/listener.h"
#include "values/valueselection.h"
#include <cmath>
#include <gmock/gmock.h>
#include <limits>

using support::EffectLog;
using support::Listener;
using testing::ElementsAre;
using testing::IsEmpty;
using values::ValueSelection;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

class ValueSelectionTest : public testing::Test {
protected:
    ValueSelectionTest() { value.AddObserver(&listener); }
    EffectLog log;
    Listener listener{log};
    ValueSelection value{"V", {{10000.0, "10 kHz"}, {20000.0, "20 kHz"}, {50000.0, "50 kHz"}}};
};

TEST_F(ValueSelectionTest, BeginsWithItsFirstEntry)
{
    EXPECT_EQ(value.GetCurrentKey(), 10000.0);
    EXPECT_EQ(value.GetValue(), 10000.0);
    EXPECT_EQ(value.ToNumber(), 10000.0);
    EXPECT_EQ(value.GetCurrentKeyText(), QStringLiteral("10 kHz"));
    EXPECT_EQ(value.ToText(), QStringLiteral("10 kHz"));
    EXPECT_EQ(value.GetTypeName(), QStringLiteral("selection"));
}

TEST_F(ValueSelectionTest, SelectsByKeyAndByText)
{
    value.SelectKey(50000.0);
    EXPECT_EQ(value.GetCurrentKeyText(), QStringLiteral("50 kHz"));
    value.SelectText("20 kHz");
    EXPECT_EQ(value.GetCurrentKey(), 20000.0);
    EXPECT_THAT(log.take(), ElementsAre("update 3", "update 3"));
    value.SelectKey(10000.0, &listener);
    value.SelectText("50 kHz", &listener);
    value.SelectText("50 kHz");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ValueSelectionTest, ThrowsForAnUnknownKeyOrTextAndStays)
{
    EXPECT_THROW(value.SelectKey(10000.1), NQException);
    EXPECT_THROW(value.SelectKey(nan), NQException);
    EXPECT_THROW(value.SelectText("10 khz"), NQException);
    EXPECT_EQ(value.GetCurrentKey(), 10000.0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ValueSelectionTest, KnowsItsEntries)
{
    EXPECT_TRUE(value.HasKey(20000.0));
    EXPECT_FALSE(value.HasKey(20001.0));
    EXPECT_TRUE(value.HasText("20 kHz"));
    EXPECT_FALSE(value.HasText("HOLD"));
    EXPECT_EQ(value.GetEntries().size(), 3U);
}

struct ClosestCase {
    const char* name;
    double wanted;
    double key;
};

class ValueSelectionClosest : public testing::TestWithParam<ClosestCase> {};

TEST_P(ValueSelectionClosest, IsSelected)
{
    ValueSelection value("V", {{20000.0, "b"}, {10000.0, "a"}, {50000.0, "c"}});
    value.SelectKey(50000.0);
    value.SelectClosestValue(GetParam().wanted);
    EXPECT_EQ(value.GetCurrentKey(), GetParam().key);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ValueSelectionClosest,
    testing::Values(ClosestCase{"Exact", 10000.0, 10000.0}, ClosestCase{"Nearer", 14999.0, 10000.0},
                    ClosestCase{"TheFirstEntryOnATie", 15000.0, 20000.0}, ClosestCase{"Below", -1e9, 10000.0},
                    ClosestCase{"Above", 1e9, 50000.0}, ClosestCase{"NotANumberStays", nan, 50000.0},
                    ClosestCase{"AllTieAtInfinity", infinity, 20000.0}),
    [](const auto& test) { return test.param.name; });

TEST_F(ValueSelectionTest, TellsNobodyWhenTheClosestIsTheCurrentOne)
{
    value.SelectClosestValue(9000.0);
    EXPECT_THAT(log.take(), IsEmpty());
    value.SelectClosestValue(40000.0, &listener);
    EXPECT_EQ(value.GetCurrentKey(), 50000.0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(ValueSelectionWithoutEntries, IsNothing)
{
    ValueSelection value("V");
    EXPECT_TRUE(std::isnan(value.GetCurrentKey()));
    EXPECT_TRUE(value.GetCurrentKeyText().isEmpty());
    value.SelectClosestValue(1.0);
    EXPECT_THROW(value.SelectKey(0.0), NQException);
}

TEST(ValueSelectionEntries, MustBeDistinguishable)
{
    EXPECT_THROW(ValueSelection("V", {{1.0, "a"}, {1.0, "b"}}), NQException);
    EXPECT_THROW(ValueSelection("V", {{1.0, "a"}, {2.0, "a"}}), NQException);
    EXPECT_THROW(ValueSelection("V", {{nan, "a"}}), NQException);
}

TEST_F(ValueSelectionTest, KeepsItsKeyWhenTheEntriesChange)
{
    value.SelectKey(20000.0);
    log.clear();
    value.SetEntries({{5.0, "five"}, {20000.0, "twenty"}});
    EXPECT_EQ(value.GetCurrentKeyText(), QStringLiteral("twenty"));
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
    value.SetEntries({{7.0, "seven"}});
    EXPECT_EQ(value.GetCurrentKey(), 7.0);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    value.SetEntries({{7.0, "seven"}});
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THROW(value.SetEntries({{1.0, "a"}, {1.0, "b"}}), NQException);
    EXPECT_EQ(value.GetCurrentKey(), 7.0);
    value.SetEntries({});
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    EXPECT_TRUE(std::isnan(value.GetCurrentKey()));
}

TEST_F(ValueSelectionTest, IsSetByTextOrKeyAsADisplayWritesThem)
{
    EXPECT_TRUE(value.SetText("50 kHz"));
    EXPECT_EQ(value.GetCurrentKey(), 50000.0);
    EXPECT_TRUE(value.SetText("20000"));
    EXPECT_EQ(value.GetCurrentKey(), 20000.0);
    EXPECT_FALSE(value.SetText("30000"));
    EXPECT_FALSE(value.SetText("wide"));
    EXPECT_EQ(value.GetCurrentKey(), 20000.0);
}

} // namespace
