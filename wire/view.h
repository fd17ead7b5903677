// SPDX-License-Identifier: MIT
#pragma once
// Bytes that know their end, and numbers in either byte order at any address.
#include "wire/layout.h"
#include <bit>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>

namespace wire {

static_assert(std::endian::native == std::endian::little,
              "the conversion in place is written for little-endian hosts");

/// Order of the bytes of a number.
enum class ByteOrder : std::uint8_t { Big, Little };

/// `value` with its bytes the other way round.
template <std::integral T>
[[nodiscard]] constexpr T byteSwapped(T value)
{
    using U = std::make_unsigned_t<T>;
    if constexpr (sizeof(T) == 2)
        return static_cast<T>(__builtin_bswap16(static_cast<U>(value)));
    else if constexpr (sizeof(T) == 4)
        return static_cast<T>(__builtin_bswap32(static_cast<U>(value)));
    else if constexpr (sizeof(T) == 8)
        return static_cast<T>(__builtin_bswap64(static_cast<U>(value)));
    else
        return value;
}

/// The number at `address`, which needs no alignment; the caller knows that it is inside its buffer.
template <std::integral T>
[[nodiscard]] inline T load(const void* address, ByteOrder order)
{
    T value;
    std::memcpy(&value, address, sizeof value);
    return order == ByteOrder::Big ? byteSwapped(value) : value;
}

/// Writes `value` at `address`, which needs no alignment; the caller knows that it is inside its buffer.
template <std::integral T>
inline void store(void* address, T value, ByteOrder order)
{
    if (order == ByteOrder::Big)
        value = byteSwapped(value);
    std::memcpy(address, &value, sizeof value);
}

/// Received bytes. Making the view is the bounds check: pointer and length stay together.
/// Owner: does not own; lives no longer than the bytes.
class View {
public:
    constexpr View() = default;

    /// A view of bytes that live elsewhere.
    constexpr explicit View(std::span<const unsigned char> bytes)
        : m_bytes(bytes)
    {}
    View(const void* data, std::size_t size)
        : m_bytes(static_cast<const unsigned char*>(data), size)
    {}

    /// The bytes, as they lie there.
    [[nodiscard]] constexpr std::size_t size() const noexcept { return m_bytes.size(); }
    [[nodiscard]] constexpr const unsigned char* data() const noexcept { return m_bytes.data(); }
    [[nodiscard]] constexpr std::span<const unsigned char> bytes() const noexcept { return m_bytes; }

    /// `size` bytes from `offset` on; nothing when they do not lie inside.
    [[nodiscard]] constexpr std::optional<View> sub(std::size_t offset, std::size_t size) const noexcept
    {
        // Subtract, never add: offset + size wraps when the sender wants it to.
        if (offset > m_bytes.size() || size > m_bytes.size() - offset)
            return std::nullopt;
        return View{m_bytes.subspan(offset, size)};
    }

    /// The number in `field`; nothing when it does not lie inside.
    template <std::integral T>
    [[nodiscard]] std::optional<T> get(Field<T> field, ByteOrder order = ByteOrder::Big) const noexcept
    {
        const std::optional<View> place = sub(field.offset, sizeof(T));
        if (!place)
            return std::nullopt;
        return load<T>(place->data(), order);
    }

    /// The number in `field`, 0 when it is cut or missing: how the optional headers of short attributes read.
    template <std::integral T>
    [[nodiscard]] T getOrZero(Field<T> field, ByteOrder order) const noexcept
    {
        return get(field, order).value_or(T{0});
    }

private:
    std::span<const unsigned char> m_bytes;
};

} // namespace wire
