// SPDX-License-Identifier: MIT
#pragma once
// Where everything lies in a mass-data datagram: offsets, widths, tags and limits.
// Data, not code: decoder, encoder, inspector and documentation read the format here and nowhere else.
// All numbers are big-endian on the wire; the items of a trace are little-endian when selector bit 29 is set.
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>

namespace wire {

/// Where a number lies in its header, and what it is.
template <std::integral T>
struct Field {
    std::size_t offset; // from the start of the header
};

/// First byte behind a field.
template <std::integral T>
[[nodiscard]] constexpr std::size_t end(Field<T> field)
{
    return field.offset + sizeof(T);
}

/// Header of a datagram.
namespace datagram {
//   0       4       8          10      12             16
//   | magic | ----- | sequence | ----- | total length | attributes ...
/// Where the numbers lie, and where the attributes begin.
inline constexpr Field<std::uint32_t> magic{0};
inline constexpr Field<std::uint16_t> sequence{8};
inline constexpr Field<std::uint32_t> totalLength{12}; // header included; only TCP framing reads it
inline constexpr std::size_t headerSize = 16;
static_assert(end(totalLength) == headerSize);

/// Senders store the magic in either byte order; read as a little-endian number it is one of these two.
inline constexpr std::uint32_t magicLittleEndian = 0x000C5A10;
inline constexpr std::uint32_t magicBigEndian = 0x105A0C00;

/// Whether a number at the place of the magic is one.
[[nodiscard]] constexpr bool isMagic(std::uint32_t readLittleEndian)
{
    return readLittleEndian == magicLittleEndian || readLittleEndian == magicBigEndian;
}

/// A length from the network decides how much memory a TCP reader sets aside. The largest attribute (65,535
/// items of every width) stays below 5 MiB; twelve times that is more than any receiver sends.
inline constexpr std::uint32_t defaultMaxSize = 64U << 20U;
} // namespace datagram

/// Normal form of an attribute's header.
namespace attribute {
//   0     2        4       6         7           8           12
//   | tag | length | count | channel | opt. size | selectors | optional header, then fields
/// Where the numbers lie, and where the header ends.
inline constexpr Field<std::uint16_t> tag{0};
inline constexpr Field<std::uint16_t> length{2}; // bytes behind the first four
inline constexpr Field<std::uint16_t> count{4};
inline constexpr Field<std::uint8_t> channel{6};
inline constexpr Field<std::uint8_t> optHeaderLength{7};
inline constexpr Field<std::uint32_t> selectors{8};
inline constexpr std::size_t headerSize = 12;
static_assert(end(selectors) == headerSize);
inline constexpr std::size_t lengthExcludes = 4; // the whole attribute occupies length + 4 bytes
} // namespace attribute

/// Extended form of an attribute's header.
namespace extended {
//   0     2    4        8      24      28        32          36          40       44     60
//   | tag | -- | length | ---- | count | channel | opt. size | selectors | (word) | ---- | optional header,
//   then fields
/// Where the numbers lie, and where the header ends.
inline constexpr Field<std::uint16_t> tag{0};
inline constexpr Field<std::uint32_t> length{4};
inline constexpr Field<std::uint32_t> count{24}; // only the low 16 bits count items
inline constexpr Field<std::uint32_t> channel{28};
inline constexpr Field<std::uint32_t> optHeaderLength{32};
inline constexpr Field<std::uint32_t> selectors{36};
inline constexpr Field<std::uint32_t> word40{40}; // turned to host order with the rest, not interpreted
inline constexpr std::size_t headerSize = 60;
static_assert(end(word40) <= headerSize);
inline constexpr std::uint32_t lengthExcludes = 24; // the whole attribute occupies length + 24 bytes

/// The reader moves its cursor behind an extended attribute by 34 times the attribute's size. That is meant:
/// an extended attribute is in effect the last one that a datagram can carry. Pinned by
/// UdpDatagramWalk.StepsThirtyFourFold...
inline constexpr std::int64_t stepFactor = 34;
} // namespace extended

/// Which tags there are, and what is special about some.
namespace tag {
/// All of them, ascending.
inline constexpr std::array<std::uint16_t, 23> known{101,  201,  301,  401,  501,  601,  701,  801,
                                                     901,  1001, 1101, 1201, 1301, 1401, 1601, 1801,
                                                     1901, 2401, 2501, 5001, 5101, 5201, 5301};

/// One above the highest known tag: the reader has no current attribute.
inline constexpr std::uint16_t none = 5302;

inline constexpr std::uint16_t convertedOptHeader = 301; // its optional header is turned to host order
inline constexpr std::uint16_t rawBytes = 401;           // no selector walk: bytes up to the attribute's end
inline constexpr std::uint16_t words = 1301;             // no selector walk: `count` 32-bit items

/// Whether the library knows the tag.
[[nodiscard]] constexpr bool isKnown(std::uint16_t value)
{
    // Ascending, 23 entries: five comparisons.
    std::size_t low = 0;
    std::size_t high = known.size();
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (known[middle] < value)
            low = middle + 1;
        else
            high = middle;
    }
    return low < known.size() && known[low] == value;
}

/// Whether attributes of this tag have the extended form.
[[nodiscard]] constexpr bool isExtended(std::uint16_t value)
{
    return value == 5001 || value == 5101 || value == 5301;
}

/// Whether attributes of this tag are always dispatched as channel 0.
[[nodiscard]] constexpr bool isChannelless(std::uint16_t value)
{
    return value == 1801 || value == 5101;
}
} // namespace tag

namespace detail {
[[nodiscard]] constexpr bool knownTagsAscend()
{
    for (std::size_t i = 1; i < tag::known.size(); ++i) {
        if (tag::known[i - 1] >= tag::known[i])
            return false;
    }
    return true;
}
} // namespace detail
static_assert(detail::knownTagsAscend());
static_assert(tag::known.back() + 1 == tag::none);

} // namespace wire
