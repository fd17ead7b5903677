// SPDX-License-Identifier: MIT
#pragma once
// The optional headers that somebody interprets: which number lies where, and what it is called.
// A header shorter than its layout is allowed; numbers that are cut or missing read as 0.
#include "wire/view.h"
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace wire {

/// How the bytes of one optional-header field are read.
enum class FieldKind : std::uint8_t { Signed8, Signed16, Signed32, Signed64, Float32, Bytes8 };

/// Bytes that a field takes.
[[nodiscard]] constexpr std::size_t widthOf(FieldKind kind)
{
    switch (kind) {
    case FieldKind::Signed8:
        return 1;
    case FieldKind::Signed16:
        return 2;
    case FieldKind::Signed32:
    case FieldKind::Float32:
        return 4;
    case FieldKind::Signed64:
    case FieldKind::Bytes8:
        return 8;
    }
    return 0;
}

/// One line of an optional header's table. Fields that nobody interprets are called after their offset.
struct NamedField {
    std::string_view name; // as `vk410 inspect --explain` shows it
    FieldKind kind;        // width and sign
    std::size_t offset;    // from the start of the header
};

namespace detail {
// The fields of every optional header follow each other without gaps.
template <std::size_t N>
[[nodiscard]] constexpr bool isPacked(const std::array<NamedField, N>& fields, std::size_t size)
{
    std::size_t at = 0;
    for (const NamedField& field : fields) {
        if (field.offset != at)
            return false;
        at += widthOf(field.kind);
    }
    return at == size;
}
} // namespace detail

/// Tag 301. The only optional header that the reader itself turns to host order.
namespace opt301 {
using enum FieldKind;
/// Bytes of the whole header, and its table.
inline constexpr std::size_t size = 34;
inline constexpr std::array<NamedField, 10> fields{{{"word0", Signed32, 0},
                                                    {"word4", Signed32, 4},
                                                    {"word8", Signed32, 8},
                                                    {"word12", Signed32, 12},
                                                    {"half16", Signed16, 16},
                                                    {"half18", Signed16, 18},
                                                    {"half20", Signed16, 20},
                                                    {"word22", Signed32, 22},
                                                    {"word26", Signed32, 26},
                                                    {"word30", Signed32, 30}}};
static_assert(detail::isPacked(fields, size));
} // namespace opt301

/// IF panorama (tag 501). Stays in wire order; its reader converts.
namespace ifpan {
using enum FieldKind;
inline constexpr Field<std::int32_t> centreFrequencyLow{0};   // Hz, low half of 64 bits
inline constexpr Field<std::int32_t> span{4};                 // Hz
inline constexpr Field<std::int32_t> centreFrequencyHigh{16}; // high half
inline constexpr Field<std::int64_t> timeStamp{32};           // ns since 1970; 0: none
inline constexpr Field<std::int32_t> stepNumerator{40};       // step = numerator / denominator, Hz
inline constexpr Field<std::int32_t> stepDenominator{44};     // 0: the step follows from span and count

/// Bytes of the whole header, and its table.
inline constexpr std::size_t size = 50;
inline constexpr std::array<NamedField, 13> fields{{{"centreFrequencyLow", Signed32, 0},
                                                    {"span", Signed32, 4},
                                                    {"half8", Signed16, 8},
                                                    {"half10", Signed16, 10},
                                                    {"word12", Signed32, 12},
                                                    {"centreFrequencyHigh", Signed32, 16},
                                                    {"word20", Signed32, 20},
                                                    {"word24", Signed32, 24},
                                                    {"word28", Signed32, 28},
                                                    {"timeStamp", Signed64, 32},
                                                    {"stepNumerator", Signed32, 40},
                                                    {"stepDenominator", Signed32, 44},
                                                    {"half48", Signed16, 48}}};
static_assert(detail::isPacked(fields, size));
} // namespace ifpan

/// Zero span (tag 1801). Stays in wire order; its reader converts.
namespace zerospan {
using enum FieldKind;
inline constexpr Field<std::int64_t> xSpan{24};     // length of the time axis
inline constexpr Field<std::int64_t> xStart{32};    // start of the time axis
inline constexpr Field<std::int64_t> timeStamp{48}; // ns since 1970; 0: none

/// Bytes of the whole header, and its table.
inline constexpr std::size_t size = 96;
inline constexpr std::array<NamedField, 20> fields{
    {{"word0", Signed32, 0},      {"word4", Signed32, 4},   {"word8", Signed32, 8},
     {"word12", Signed32, 12},    {"word16", Signed32, 16}, {"word20", Signed32, 20},
     {"xSpan", Signed64, 24},     {"xStart", Signed64, 32}, {"long40", Signed64, 40},
     {"timeStamp", Signed64, 48}, {"half56", Signed16, 56}, {"half58", Signed16, 58},
     {"bytes60", Bytes8, 60},     {"half68", Signed16, 68}, {"half70", Signed16, 70},
     {"word72", Signed32, 72},    {"word76", Signed32, 76}, {"long80", Signed64, 80},
     {"word88", Signed32, 88},    {"word92", Signed32, 92}}};
static_assert(detail::isPacked(fields, size));
} // namespace zerospan

/// DF panorama scan (tag 5301). Stays in wire order; its readers convert.
namespace dfscan {
using enum FieldKind;
inline constexpr Field<std::int64_t> startFrequency{8};   // Hz
inline constexpr Field<std::int32_t> firstChannel{16};    // of this block, counted from the job's first one
inline constexpr Field<std::int32_t> stepNumerator{20};   // step = numerator / denominator, Hz
inline constexpr Field<std::int32_t> stepDenominator{24}; // of the same fraction
inline constexpr Field<std::int32_t> span{28};            // Hz
inline constexpr Field<std::int32_t> averagingTimeOffset{36};   // us
inline constexpr Field<std::int32_t> dfFlags{48};               // see `flag`
inline constexpr Field<std::int64_t> sweepTime{52};             // ns
inline constexpr Field<std::int64_t> timestamp{60};             // ns since 1970
inline constexpr Field<std::int16_t> jobId{68};                 // which scan range
inline constexpr Field<std::int16_t> superResolutionFields{70}; // which arrays follow the fields
inline constexpr Field<std::int8_t> superResolutionCount{72};   // waves of a channel in each of them
inline constexpr Field<std::int8_t> eigenValueCount{73};        // of a channel

/// Bytes of the whole header, and its table.
inline constexpr std::size_t size = 74;
inline constexpr std::array<NamedField, 16> fields{{{"bytes0", Bytes8, 0},
                                                    {"startFrequency", Signed64, 8},
                                                    {"firstChannel", Signed32, 16},
                                                    {"stepNumerator", Signed32, 20},
                                                    {"stepDenominator", Signed32, 24},
                                                    {"span", Signed32, 28},
                                                    {"float32", Float32, 32},
                                                    {"averagingTimeOffset", Signed32, 36},
                                                    {"bytes40", Bytes8, 40},
                                                    {"dfFlags", Signed32, 48},
                                                    {"sweepTime", Signed64, 52},
                                                    {"timestamp", Signed64, 60},
                                                    {"jobId", Signed16, 68},
                                                    {"superResolutionFields", Signed16, 70},
                                                    {"superResolutionCount", Signed8, 72},
                                                    {"eigenValueCount", Signed8, 73}}};
static_assert(detail::isPacked(fields, size));

/// Bits of `dfFlags`.
namespace flag {
/// Numbers of the bits.
inline constexpr unsigned valid = 0;
inline constexpr unsigned overflow = 1;
inline constexpr unsigned blanking = 2;
inline constexpr unsigned endOfSweep = 4;
inline constexpr unsigned method = 12;    // the first of three
inline constexpr unsigned methodMask = 7; // once shifted down
inline constexpr unsigned polarFrequency = 25;
} // namespace flag
} // namespace dfscan

/// The table of a tag's optional header; empty when nobody interprets it.
[[nodiscard]] constexpr std::span<const NamedField> optHeaderFields(std::uint16_t tag)
{
    switch (tag) {
    case 301:
        return opt301::fields;
    case 501:
        return ifpan::fields;
    case 1801:
        return zerospan::fields;
    case 5301:
        return dfscan::fields;
    default:
        return {};
    }
}

} // namespace wire
