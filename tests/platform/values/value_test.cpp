// SPDX-License-Identifier: MIT
// Plain values, numbers and lists.
#include "support/listener.h"
#include "support/trace_capture.h"
#include "values/value.h"
#include "values/valuelist.h"
#include "values/valuenumeric.h"
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <list>

using support::EffectLog;
using support::Listener;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace values;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

class ValueTest : public testing::Test {
protected:
    EffectLog log;
    Listener listener{log};
    Listener other{log, "other"};
};

using BoolValue = ValueTest;

TEST_F(BoolValue, TellsOthersThanTheOriginatorWhenItChanges)
{
    Value<bool> value("V");
    value.AddObserver(&listener);
    value.AddObserver(&other);
    value.SetValue(true, &listener);
    EXPECT_TRUE(value.GetValue());
    EXPECT_THAT(log.take(), ElementsAre("other 3"));
    value.SetValue(false);
    EXPECT_THAT(log.take(), ElementsAre("update 3", "other 3"));
}

TEST_F(BoolValue, SetToWhatItIsTellsNobody)
{
    Value<bool> value("V", true);
    value.AddObserver(&listener);
    value.SetValue(true);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BoolValue, HasANumberAndATextBothWays)
{
    Value<bool> value("V", true);
    EXPECT_EQ(value.ToNumber(), 1.0);
    EXPECT_EQ(value.ToText(), QStringLiteral("true"));
    EXPECT_TRUE(value.SetText("false"));
    EXPECT_EQ(value.ToNumber(), 0.0);
    EXPECT_EQ(value.ToText(), QStringLiteral("false"));
    EXPECT_TRUE(value.SetText("1"));
    EXPECT_TRUE(value.GetValue());
    EXPECT_TRUE(value.SetText("0"));
    EXPECT_FALSE(value.SetText("perhaps"));
    EXPECT_FALSE(value.GetValue());
    EXPECT_EQ(value.GetTypeName(), QStringLiteral("bool"));
    EXPECT_FALSE(value.GetLimits().has_value());
}

TEST_F(BoolValue, MayBeChangedAgainByItsObserver)
{
    Value<bool> value("V");
    value.AddObserver(&listener);
    value.AddObserver(&other);
    listener.onUpdate = [&](Observable*) { value.SetValue(false, &listener); };
    value.SetValue(true);
    EXPECT_FALSE(value.GetValue());
    EXPECT_THAT(log.take(), ElementsAre("update 3", "other 3", "other 3")) << "the nested round runs first";
}

TEST(TextValue, IsItsOwnText)
{
    Value<QString> value("V", QStringLiteral("a"));
    EXPECT_TRUE(value.SetText(QStringLiteral("b")));
    EXPECT_EQ(value.GetValue(), QStringLiteral("b"));
    EXPECT_EQ(value.ToText(), QStringLiteral("b"));
    EXPECT_EQ(value.GetTypeName(), QStringLiteral("text"));
    EXPECT_TRUE(std::isnan(value.ToNumber()));
}

using NumericValue = ValueTest;

TEST_F(NumericValue, ClampsToItsLimits)
{
    ValueNumeric<double> value("V", 5.0);
    value.SetMinMax(0.0, 10.0, 0.5);
    value.AddObserver(&listener);
    value.SetValue(11.0);
    EXPECT_EQ(value.GetValue(), 10.0);
    value.SetValue(-infinity);
    EXPECT_EQ(value.GetValue(), 0.0);
    value.SetValue(3.3);
    EXPECT_EQ(value.GetValue(), 3.3) << "the step rounds nothing";
    EXPECT_THAT(log.take(), ElementsAre("update 3", "update 3", "update 3"));
}

TEST_F(NumericValue, TellsNobodyWhenItStaysWhatItIs)
{
    ValueNumeric<int> value("V", 10);
    value.SetMinMax(0, 10, 1);
    value.AddObserver(&listener);
    value.SetValue(10);
    value.SetValue(99);
    EXPECT_THAT(log.take(), IsEmpty()) << "99 is clamped to the 10 that it has";
}

TEST_F(NumericValue, RefusesWhatIsNotANumber)
{
    ValueNumeric<double> value("V", nan);
    EXPECT_EQ(value.GetValue(), 0.0);
    value.SetValue(5.0);
    value.AddObserver(&listener);
    value.SetValue(nan);
    EXPECT_EQ(value.GetValue(), 5.0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(NumericValue, TakesZeroAndNegativeZeroForOneValue)
{
    ValueNumeric<double> value("V", 0.0);
    value.AddObserver(&listener);
    value.SetValue(-0.0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(NumericValue, IsClampedByNewLimitsAndTellsOnce)
{
    ValueNumeric<double> value("V", 50.0);
    value.AddObserver(&listener);
    value.AddObserver(&other);
    value.SetMinMax(0.0, 10.0, 1.0, &other);
    EXPECT_EQ(value.GetValue(), 10.0);
    EXPECT_EQ(value.GetMin(), 0.0);
    EXPECT_EQ(value.GetMax(), 10.0);
    EXPECT_EQ(value.GetStep(), 1.0);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    value.SetMinMax(0.0, 10.0, 1.0);
    EXPECT_THAT(log.take(), IsEmpty());
    value.SetMinMax(0.0, 10.0, 2.0);
    EXPECT_THAT(log.take(), ElementsAre("update 3", "other 3"));
}

TEST_F(NumericValue, KeepsItsLimitsWhenNewOnesMakeNoSense)
{
    support::TraceCapture traces;
    ValueNumeric<double> value("V", 5.0);
    value.SetMinMax(0.0, 10.0, 1.0);
    value.AddObserver(&listener);
    value.SetMinMax(10.0, 0.0, 1.0);
    value.SetMinMax(nan, 10.0, 1.0);
    value.SetMinMax(0.0, 10.0, nan);
    EXPECT_EQ(value.GetMax(), 10.0);
    EXPECT_EQ(value.GetStep(), 1.0);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("assert minimum <= maximum"), testing::_, testing::_));
}

TEST_F(NumericValue, HoldsAllOfSixtyFourBits)
{
    using Long = ValueNumeric<__int64, FormatInt64<__int64>, StreamFormat<__int64, FormatInt64<__int64>>>;
    static_assert(std::is_same_v<Long, ValueNumeric<qint64>>);
    Long value("V");
    value.SetMinMax(std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max(), 1, nullptr);
    value.SetValue(std::numeric_limits<qint64>::min(), nullptr);
    EXPECT_EQ(value.ToText(), QStringLiteral("-9223372036854775808"));
    EXPECT_TRUE(value.SetText("9223372036854775807"));
    EXPECT_EQ(value.GetValue(), std::numeric_limits<qint64>::max());
    EXPECT_FALSE(value.SetText("9223372036854775808"));
}

TEST_F(NumericValue, IsReadFromTextOnlyWhenItIsANumberOfItsType)
{
    ValueNumeric<int> whole("V", 7);
    EXPECT_TRUE(whole.SetText(" -12 "));
    EXPECT_EQ(whole.GetValue(), -12);
    EXPECT_FALSE(whole.SetText("2147483648"));
    EXPECT_FALSE(whole.SetText("-2147483649"));
    EXPECT_FALSE(whole.SetText("1.5"));
    EXPECT_FALSE(whole.SetText(""));
    EXPECT_EQ(whole.GetValue(), -12);
    ValueNumeric<double> real("V");
    EXPECT_TRUE(real.SetText("1.5e6"));
    EXPECT_EQ(real.GetValue(), 1.5e6);
    EXPECT_FALSE(real.SetText("nan"));
}

TEST_F(NumericValue, IsWrittenAsPeopleReadIt)
{
    const auto text = [](double number) { return ValueNumeric<double>("V", number).ToText(); };
    EXPECT_EQ(text(433920000.0), QStringLiteral("433920000"));
    EXPECT_EQ(text(8333.25), QStringLiteral("8333.25"));
    EXPECT_EQ(text(0.0), QStringLiteral("0"));
    EXPECT_EQ(text(-0.1), QStringLiteral("-0.1"));
    EXPECT_EQ(text(1e300), QStringLiteral("1e+300"));
    EXPECT_EQ(text(1e-7), QStringLiteral("1e-07"));
    EXPECT_EQ(ValueNumeric<int>("V", -5).ToText(), QStringLiteral("-5"));
}

TEST_F(NumericValue, ShowsItsLimitsAndUnitToDisplays)
{
    ValueNumeric<int> value("V", 3);
    value.SetMinMax(-10, 20, 5);
    value.SetUnit(QStringLiteral("dB"));
    const ValueBase& shown = value;
    ASSERT_TRUE(shown.GetLimits().has_value());
    EXPECT_EQ(shown.GetLimits()->minimum, -10.0);
    EXPECT_EQ(shown.GetLimits()->maximum, 20.0);
    EXPECT_EQ(shown.GetLimits()->step, 5.0);
    EXPECT_EQ(shown.GetUnit(), QStringLiteral("dB"));
    EXPECT_EQ(shown.ToNumber(), 3.0);
    EXPECT_EQ(shown.GetTypeName(), QStringLiteral("number"));
    EXPECT_EQ(shown.GetName(), QStringLiteral("V"));
}

using NumericValueWithOffset = ValueTest;

TEST_F(NumericValueWithOffset, KeepsTheOffsetOutOfValueAndLimits)
{
    ValueNumericWithOffset value("V", 100.0, 1000.0);
    value.SetMinMax(0.0, 200.0, 1.0);
    value.SetValue(500.0);
    EXPECT_EQ(value.GetValue(), 200.0);
    EXPECT_EQ(value.GetOffset(), 1000.0);
    EXPECT_EQ(value.ToNumber(), 200.0);
}

TEST_F(NumericValueWithOffset, TellsWhenTheOffsetChanges)
{
    ValueNumericWithOffset value("V");
    value.AddObserver(&listener);
    value.SetOffset(7.0);
    EXPECT_THAT(log.take(), ElementsAre("update 3"));
    value.SetOffset(7.0);
    value.SetOffset(nan);
    value.SetOffset(8.0, &listener);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(value.GetOffset(), 8.0);
    EXPECT_EQ(ValueNumericWithOffset("W", 1.0, nan).GetOffset(), 0.0);
}

TEST_F(NumericValueWithOffset, IsAlsoAPlainNumber)
{
    ValueNumericWithOffset value("V", 5.0);
    ValueBase& base = value;
    EXPECT_NE(dynamic_cast<ValueNumeric<double>*>(&base), nullptr);
}

using ListValue = ValueTest;

TEST_F(ListValue, TakesAnyContainerAndTellsWhenItIsAnother)
{
    ValueList<int> value("V");
    value.AddObserver(&listener);
    value.SetList(std::list<int>{3, 1, 2});
    EXPECT_THAT(value.GetList(), ElementsAre(3, 1, 2));
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
    value.SetList(std::vector<int>{3, 1, 2});
    EXPECT_THAT(log.take(), IsEmpty());
    value.SetList(std::vector<int>{3, 1}, &listener);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(value.ToText(), QStringLiteral("3, 1"));
    EXPECT_EQ(value.GetTypeName(), QStringLiteral("list"));
    EXPECT_FALSE(value.SetText("1"));
}

TEST_F(ListValue, MayBeSetToItself)
{
    ValueList<int> value("V");
    value.SetList(std::vector<int>{1, 2});
    value.AddObserver(&listener);
    value.SetList(value.GetList());
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(value.GetList(), ElementsAre(1, 2));
}

} // namespace
