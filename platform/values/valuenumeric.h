// SPDX-License-Identifier: MIT
#pragma once
// Numbers with limits.
#include "nqbase/errorhandler.h"
#include "values/formats.h"
#include "values/valuebase.h"
#include <algorithm>
#include <cmath>
#include <limits>

namespace values {

/// A number that stays within its limits.
template <typename T, typename Format = DefaultFormat<T>, typename Stream = StreamFormat<T, Format>>
class Q_DECL_EXPORT ValueNumeric : public ValueBase {
    static_assert(std::is_same_v<T, double> || (std::is_integral_v<T> && std::is_signed_v<T>));

public:
    /// The limits are at first those of `T`.
    explicit ValueNumeric(const QString& name, T value = T{})
        : ValueBase(name)
        , m_value(isNumber(value) ? value : T{})
    {}

    /// The present value.
    [[nodiscard]] T GetValue() const { return m_value; }

    /// Takes `value` over, clamped to the limits, and notifies with 3. The value that it already has, and not
    /// a number: nothing.
    void SetValue(T value, IObserver* originator = nullptr)
    {
        if (!isNumber(value))
            return;
        const T clamped = std::clamp(value, m_minimum, m_maximum);
        if (clamped == m_value)
            return;
        m_value = clamped;
        HasChanged(changecode::valueChanged, originator);
    }

    /// Limits, and the step that a display offers.
    [[nodiscard]] T GetMin() const { return m_minimum; }
    [[nodiscard]] T GetMax() const { return m_maximum; }
    [[nodiscard]] T GetStep() const { return m_step; }

    /// Sets the limits and the step that a display offers, clamps the value, and notifies with 3 when
    /// anything is different then. The step rounds nothing. A minimum above the maximum, or one of the three
    /// not a number: an assertion, and nothing changes.
    void SetMinMax(T minimum, T maximum, T step, IObserver* originator = nullptr)
    {
        const bool ordered = isNumber(step) && minimum <= maximum;
        _Q_assert(ordered, "minimum <= maximum", "values/valuenumeric", __LINE__);
        if (!ordered)
            return;
        const T clamped = std::clamp(m_value, minimum, maximum);
        if (minimum == m_minimum && maximum == m_maximum && step == m_step)
            return; // the value is within these limits already
        m_minimum = minimum;
        m_maximum = maximum;
        m_step = step;
        m_value = clamped;
        HasChanged(changecode::valueChanged, originator);
    }

    /// "number", and the number in decimal.
    [[nodiscard]] QString GetTypeName() const override { return QStringLiteral("number"); }
    [[nodiscard]] QString ToText() const override { return Stream::write(m_value); }
    /// The present value, as near as a `double` comes.
    [[nodiscard]] double ToNumber() const override { return static_cast<double>(m_value); }
    /// What `GetMin`, `GetMax` and `GetStep` say.
    [[nodiscard]] std::optional<Limits> GetLimits() const override
    {
        return Limits{static_cast<double>(m_minimum), static_cast<double>(m_maximum),
                      static_cast<double>(m_step)};
    }

    /// Sets the number that `text` says, as `SetValue`.
    bool SetText(const QString& text, IObserver* originator = nullptr) override
    {
        const std::optional<T> number = Stream::read(text);
        if (number)
            SetValue(*number, originator);
        return number.has_value();
    }

protected:
    /// Whether `value` is anything but "not a number".
    [[nodiscard]] static bool isNumber(T value)
    {
        if constexpr (std::is_floating_point_v<T>)
            return !std::isnan(value);
        else
            return true;
    }

private:
    T m_value;
    T m_minimum = std::numeric_limits<T>::lowest();
    T m_maximum = std::numeric_limits<T>::max();
    T m_step = T{1};
};

/// A number that is shown with an offset, as a frequency behind a converter.
/// Units: value, limits and setters do not include the offset.
class Q_DECL_EXPORT ValueNumericWithOffset : public ValueNumeric<double> {
public:
    /// The value without the offset, and the offset.
    explicit ValueNumericWithOffset(const QString& name, double value = 0.0, double offset = 0.0);

    /// What a display adds.
    [[nodiscard]] double GetOffset() const { return m_offset; }

    /// Takes `offset` over and notifies with 3. The offset that it already has, and not a number: nothing.
    void SetOffset(double offset, IObserver* originator = nullptr);

private:
    double m_offset;
};

extern template class ValueNumeric<int>;
extern template class ValueNumeric<qint64>;
extern template class ValueNumeric<double>;

} // namespace values
