// SPDX-License-Identifier: MIT
#pragma once
// The selector word of an attribute: which fields its trace data holds, how wide their items are, and what is
// refused.
#include <array>
#include <bit>
#include <cstdint>

namespace wire {

/// Bytes per item, by selector bit; 0: no such field.
inline constexpr std::array<std::uint8_t, 24> itemSize{2, 4, 2, 2, 2, 2, 4, 4, 4, 2, 4, 2,
                                                       2, 2, 2, 2, 2, 4, 2, 2, 2, 4, 0, 2};

/// What a selector word says.
namespace selector {
inline constexpr std::uint32_t hostOrderFlag = 0x20000000; // bit 29: the items are little-endian already
inline constexpr std::uint32_t walked = 0x0FFFFFFF;        // bits 28 to 31 never name a field
inline constexpr std::uint32_t tooManyAbove = 0xE03FFFFF;  // a larger word is refused at its first field

namespace detail {
[[nodiscard]] constexpr std::uint32_t bitsOfWidth(unsigned width)
{
    std::uint32_t bits = 0;
    for (unsigned bit = 0; bit < itemSize.size(); ++bit) {
        if (itemSize[bit] == width)
            bits |= 1U << bit;
    }
    return bits;
}
} // namespace detail

/// Fields with items of 2 and of 4 bytes, and the bits that name no field.
inline constexpr std::uint32_t items16 = detail::bitsOfWidth(2);
inline constexpr std::uint32_t items32 = detail::bitsOfWidth(4);
inline constexpr std::uint32_t unknown = walked & ~(items16 | items32);
static_assert(unknown == 0x0F400000, "bits 22 and 24 to 27 are unknown");

/// Why a word is refused.
enum class Fault : std::uint8_t { None, TooMany, Unknown };

/// What is wrong with a selector word, and at which bit the walk finds it.
struct Check {
    Fault fault;  // the first one
    unsigned bit; // 0 when nothing is wrong
};

/// Result: what the ascending walk over the bits meets first. A word without a bit below 28 meets nothing,
/// however large.
[[nodiscard]] constexpr Check check(std::uint32_t flags)
{
    if ((flags & walked) == 0)
        return {Fault::None, 0};
    if (flags > tooManyAbove)
        return {Fault::TooMany, static_cast<unsigned>(std::countr_zero(flags))};
    if ((flags & unknown) != 0)
        return {Fault::Unknown, static_cast<unsigned>(std::countr_zero(flags & unknown))};
    return {Fault::None, 0};
}

/// Bytes that one item of every selected field takes together.
[[nodiscard]] constexpr std::uint32_t bytesPerItem(std::uint32_t flags)
{
    return static_cast<std::uint32_t>(2 * std::popcount(flags & items16) +
                                      4 * std::popcount(flags & items32));
}
} // namespace selector

} // namespace wire
