// SPDX-License-Identifier: MIT
#pragma once
// How numbers are written and read as text.
#include <QLocale>
#include <QString>
#include <QtGlobal>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>

#ifndef _MSC_VER
// The application's headers were written for a compiler that knows this name.
/// A whole number of 64 bits.
using __int64 = qint64;
#endif

namespace values {

/// Whole numbers of 64 bits, in decimal.
template <typename T>
struct Q_DECL_EXPORT FormatInt64 {
    static_assert(std::is_integral_v<T> && sizeof(T) == 8);
    /// `value` in decimal.
    [[nodiscard]] static QString toText(T value) { return QString::number(value); }
};

/// All other numbers: decimal, floating-point ones with as few digits as tell them apart.
template <typename T>
struct Q_DECL_EXPORT FormatNumber {
    static_assert(std::is_arithmetic_v<T>);
    /// `value` in decimal, very large and very small ones with an exponent.
    [[nodiscard]] static QString toText(T value)
    {
        if constexpr (std::is_integral_v<T>) {
            return QString::number(value);
        } else {
            // Frequencies are read more easily as 433920000 than as 4.3392e+08.
            const double size = std::abs(static_cast<double>(value));
            const bool plain = size == 0.0 || (size >= 1e-6 && size < 1e15);
            return QString::number(static_cast<double>(value), plain ? 'f' : 'g',
                                   QLocale::FloatingPointShortest);
        }
    }
};

/// How numbers of that type are written unless something else is asked for.
template <typename T>
using DefaultFormat = std::conditional_t<std::is_same_v<T, qint64>, FormatInt64<qint64>, FormatNumber<T>>;

/// The text of a number in a stream of texts, both ways.
template <typename T, typename Format = DefaultFormat<T>>
struct Q_DECL_EXPORT StreamFormat {
    /// `value` as text.
    [[nodiscard]] static QString write(T value) { return Format::toText(value); }

    /// The number that `text` says; nothing when it says none, or one that `T` does not hold.
    [[nodiscard]] static std::optional<T> read(const QString& text)
    {
        bool ok = false;
        if constexpr (std::is_integral_v<T>) {
            const qlonglong number = text.trimmed().toLongLong(&ok);
            if (!ok || number < static_cast<qlonglong>(std::numeric_limits<T>::min()) ||
                number > static_cast<qlonglong>(std::numeric_limits<T>::max()))
                return std::nullopt;
            return static_cast<T>(number);
        } else {
            const double number = text.trimmed().toDouble(&ok);
            if (!ok || std::isnan(number))
                return std::nullopt;
            return static_cast<T>(number);
        }
    }
};

} // namespace values
