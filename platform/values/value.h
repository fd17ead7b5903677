// SPDX-License-Identifier: MIT
#pragma once
// A value of a plain type: on or off, or a text.
#include "values/valuebase.h"
#include <type_traits>
#include <utility>

namespace values {

/// A value of type `T`: `bool` or `QString`. Numbers have limits and are `ValueNumeric`.
template <typename T>
class Q_DECL_EXPORT Value : public ValueBase {
    static_assert(std::is_same_v<T, bool> || std::is_same_v<T, QString>);

public:
    /// Off, or empty, unless another value is given.
    explicit Value(const QString& name, T value = T{})
        : ValueBase(name)
        , m_value(std::move(value))
    {}

    /// The present value.
    [[nodiscard]] const T& GetValue() const { return m_value; }

    /// Takes `value` over and notifies with 3; the value that it already has: nothing.
    void SetValue(const T& value, IObserver* originator = nullptr)
    {
        if (value == m_value)
            return;
        m_value = value;
        HasChanged(changecode::valueChanged, originator);
    }

    [[nodiscard]] QString GetTypeName() const override
    {
        return std::is_same_v<T, bool> ? QStringLiteral("bool") : QStringLiteral("text");
    }

    [[nodiscard]] QString ToText() const override
    {
        if constexpr (std::is_same_v<T, bool>)
            return m_value ? QStringLiteral("true") : QStringLiteral("false");
        else
            return m_value;
    }

    [[nodiscard]] double ToNumber() const override
    {
        if constexpr (std::is_same_v<T, bool>)
            return m_value ? 1.0 : 0.0;
        else
            return ValueBase::ToNumber();
    }

    bool SetText(const QString& text, IObserver* originator = nullptr) override
    {
        if constexpr (std::is_same_v<T, bool>) {
            const bool on = text == QLatin1String("true") || text == QLatin1String("1");
            if (!on && text != QLatin1String("false") && text != QLatin1String("0"))
                return false;
            SetValue(on, originator);
        } else {
            SetValue(text, originator);
        }
        return true;
    }

private:
    T m_value;
};

} // namespace values
