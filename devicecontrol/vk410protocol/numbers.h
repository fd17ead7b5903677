// SPDX-License-Identifier: MIT
#pragma once
// Arithmetic on numbers from the network, where the language leaves cases open: one defined result for all of
// them.
#include <QtGlobal>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

namespace numbers {

/// Division as IEEE 754 has it, also by 0.
[[nodiscard]] inline double quotient(double dividend, double divisor)
{
    // Spelled out where the divisor is 0: the language leaves that case open.
    if (divisor != 0.0)
        return dividend / divisor;
    if (dividend == 0.0 || std::isnan(dividend))
        return std::numeric_limits<double>::quiet_NaN();
    const bool isPositive = std::signbit(dividend) == std::signbit(divisor);
    return isPositive ? std::numeric_limits<double>::infinity() : -std::numeric_limits<double>::infinity();
}

/// `number` truncated toward zero; nothing where that does not fit, and for not a number.
template <typename Integer>
[[nodiscard]] std::optional<Integer> truncated(double number)
{
    using Limits = std::numeric_limits<Integer>;
    // Both bounds are powers of 2 or 0, so they are exact as double.
    const double above = std::ldexp(1.0, Limits::digits);
    const double lowest = Limits::is_signed ? -above : 0.0;
    const double whole = std::trunc(number);
    if (!(whole >= lowest && whole < above))
        return std::nullopt;
    return static_cast<Integer>(whole);
}

/// `number` truncated toward zero, limited to what fits; 0 for not a number.
template <typename Integer>
[[nodiscard]] Integer saturated(double number)
{
    if (std::isnan(number))
        return 0;
    if (const std::optional<Integer> whole = truncated<Integer>(number))
        return *whole;
    return number < 0.0 ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
}

/// Product of 16-bit numbers in 16 bits, wrapped around.
[[nodiscard]] inline qint16 wrappedProduct(qint16 value, int factor)
{
    return static_cast<qint16>(static_cast<quint16>(value * factor));
}

/// Item `index` of a field, which needs no alignment.
[[nodiscard]] inline qint16 item16(const void* items, std::size_t index)
{
    qint16 item = 0;
    std::memcpy(&item, static_cast<const char*>(items) + index * sizeof item, sizeof item);
    return item;
}

} // namespace numbers
