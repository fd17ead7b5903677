// SPDX-License-Identifier: MIT
// The conversion of raw fields to samples: fields become rows of vectors, and rows become records.
#include "devicecontrol/vk410protocol/dfsamples.h"
#include <array>
#include <cstring>

// Two versions, the wide one for machines that have vectors of 32 bytes.
#if defined(__x86_64__) && defined(__GNUC__)
#define VK410_WIDE_VECTORS
#endif

namespace dfsamples {

namespace {

// Items side by side: vectors of 16 bytes, which every machine that we build for has, and of 32, which hold
// twice as many channels in two halves. The compiler makes of the operations below what the machine has; by
// itself it leaves a loop over records scalar. Vectors go by reference only: how they are passed by value
// depends on the instruction set of a function.
using Narrow = qint16 __attribute__((vector_size(16)));
using Wide = qint16 __attribute__((vector_size(32)));

constexpr std::size_t half = sizeof(Narrow) / sizeof(qint16); // channels; also fields of a record

template <typename Lanes>
constexpr std::size_t laneCount = sizeof(Lanes) / sizeof(qint16);

// The fields of some channels, in the order of `Sample::Fields`.
template <typename Lanes>
using Rows = std::array<Lanes, half>;
static_assert(sizeof(Rows<Narrow>) == half * sizeof(Sample::Fields));

#define VK410_INLINE [[gnu::always_inline]] inline

VK410_INLINE void interleave(const Narrow& a, const Narrow& b, Narrow& low, Narrow& high)
{
    low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
    high = __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}

VK410_INLINE void interleave(const Wide& a, const Wide& b, Wide& low, Wide& high)
{
    low = __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 8, 24, 9, 25, 10, 26, 11, 27);
    high = __builtin_shufflevector(a, b, 4, 20, 5, 21, 6, 22, 7, 23, 12, 28, 13, 29, 14, 30, 15, 31);
}

template <typename Lanes>
VK410_INLINE void fill(Lanes& row, qint16 value)
{
    row = Lanes{} + value;
}

template <typename Lanes>
VK410_INLINE void dropNoValue(Lanes& row)
{
    row &= ~(row == noValue);
}

// Without sign, since a product that wraps is meant.
template <typename Unsigned, typename Lanes>
VK410_INLINE void tenfoldAs(Lanes& row)
{
    row = __builtin_convertvector(__builtin_convertvector(row, Unsigned) * quint16{10}, Lanes);
}

VK410_INLINE void tenfold(Narrow& row)
{
    tenfoldAs<quint16 __attribute__((vector_size(16)))>(row);
}

VK410_INLINE void tenfold(Wide& row)
{
    tenfoldAs<quint16 __attribute__((vector_size(32)))>(row);
}

// `count` items of a field from the `at`-th on.
template <typename Lanes>
VK410_INLINE void load(Lanes& row, const short* items, std::size_t at, std::size_t count)
{
    row = Lanes{};
    std::memcpy(&row, reinterpret_cast<const unsigned char*>(items) + at * sizeof(short),
                count * sizeof(short));
}

template <typename Lanes>
VK410_INLINE void convertRows(Rows<Lanes>& rows, const RawFields& raw, const Lanes& validity, std::size_t at,
                              std::size_t count)
{
    const auto loadLevel = [at, count](Lanes& row, const short* items, qint16 ifAbsent) {
        if (!items)
            return fill(row, ifAbsent);
        load(row, items, at, count);
        tenfold(row);
    };
    const auto loadAngle = [at, count](Lanes& row, const short* items) {
        if (!items)
            return;
        load(row, items, at, count);
        dropNoValue(row);
        tenfold(row);
    };
    const Sample::Fields none;
    rows = {};
    rows[0] = validity;
    if (raw.quality) {
        load(rows[1], raw.quality, at, count);
        dropNoValue(rows[1]);
        rows[1] /= qint16{10};
    }
    loadAngle(rows[2], raw.azimuth);
    loadLevel(rows[3], raw.level ? raw.level : raw.shortTimeLevel, none.level);
    loadLevel(rows[4], raw.shortTimeLevel, none.shortTimeLevel);
    loadLevel(rows[5], raw.fieldStrength, none.fieldStrength);
    loadAngle(rows[6], raw.elevation);
}

// Rows to columns, and each column to its record. Interleaving row i with row i + 4 turns the position of an
// item, row and column written one behind the other in binary, round by one digit; three times exchanges row
// and column. The halves of wide rows stay apart.
template <typename Lanes>
VK410_INLINE void store(Rows<Lanes>& rows, Sample* samples, std::size_t count)
{
    for (int round = 0; round < 3; ++round) {
        const Rows<Lanes> from = rows;
        for (std::size_t i = 0; i < half / 2; ++i)
            interleave(from[i], from[i + half / 2], rows[2 * i], rows[2 * i + 1]);
    }
    // As bytes: assigned as a record, the compiler takes the vector apart again.
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(static_cast<void*>(&samples[i].fields()),
                    reinterpret_cast<const unsigned char*>(&rows[i % half]) + i / half * sizeof(Narrow),
                    sizeof(Sample::Fields));
}

// As many whole vectors as there are from the `begin`-th sample on.
// Result: where it ended.
template <typename Lanes>
VK410_INLINE std::size_t convertWhole(const RawFields& raw, qint16 validity, std::span<Sample> samples,
                                      std::size_t begin)
{
    Rows<Lanes> rows{};
    Lanes validities{}; // filled once: item by item, it costs as much as all the rest
    fill(validities, validity);
    std::size_t i = begin;
    for (; i + laneCount<Lanes> <= samples.size(); i += laneCount<Lanes>) {
        convertRows(rows, raw, validities, i, laneCount<Lanes>);
        store(rows, &samples[i], laneCount<Lanes>);
    }
    return i;
}

void convertFrom(std::size_t begin, const RawFields& raw, qint16 validity, std::span<Sample> samples)
{
    const std::size_t end = convertWhole<Narrow>(raw, validity, samples, begin);
    const std::size_t rest = samples.size() - end;
    if (rest == 0)
        return;
    Rows<Narrow> rows{};
    Narrow validities{};
    fill(validities, validity);
    convertRows(rows, raw, validities, end, rest);
    store(rows, &samples[end], rest);
}

#ifdef VK410_WIDE_VECTORS
__attribute__((target("avx2"))) std::size_t convertWide(const RawFields& raw, qint16 validity,
                                                        std::span<Sample> samples)
{
    return convertWhole<Wide>(raw, validity, samples, 0);
}
#endif

} // namespace

void convert(const RawFields& raw, Sample::Validity validity, std::span<Sample> samples) noexcept
{
    std::size_t begin = 0;
#ifdef VK410_WIDE_VECTORS
    static const bool isWide = __builtin_cpu_supports("avx2") != 0;
    if (isWide)
        begin = convertWide(raw, static_cast<qint16>(validity), samples);
#endif
    convertFrom(begin, raw, static_cast<qint16>(validity), samples);
}

void convertNarrow(const RawFields& raw, Sample::Validity validity, std::span<Sample> samples) noexcept
{
    convertFrom(0, raw, static_cast<qint16>(validity), samples);
}

} // namespace dfsamples
