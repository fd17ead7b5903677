// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/superresolution.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace dfsamples {

namespace {

using Validity = Sample::Validity;

// Eight items side by side. The compiler has vectors of 16 bytes on every machine that we build for, and
// makes of the shuffles below what the machine has; by itself it leaves a loop over records scalar.
constexpr std::size_t laneCount = 8;
using Lanes = qint16 __attribute__((vector_size(16)));
using UnsignedLanes = quint16 __attribute__((vector_size(16)));

Lanes all(qint16 value)
{
    return Lanes{} + value;
}

Lanes withoutNoValue(Lanes raw)
{
    return raw & ~(raw == noValue);
}

Lanes tenfold(Lanes raw)
{
    return std::bit_cast<Lanes>(std::bit_cast<UnsignedLanes>(raw) * quint16{10});
}

Lanes tenth(Lanes raw)
{
    return raw / qint16{10};
}

Lanes load(const short* items, std::size_t at, std::size_t count)
{
    Lanes lanes{};
    std::memcpy(&lanes, reinterpret_cast<const unsigned char*>(items) + at * sizeof(short),
                count * sizeof(short));
    return lanes;
}

// The fields of eight channels, in the order of `Sample::Fields`.
using Block = std::array<Lanes, laneCount>;
static_assert(sizeof(Block) == laneCount * sizeof(Sample::Fields));

[[gnu::always_inline]] inline Block converted(const RawFields& raw, qint16 validity, std::size_t at,
                                              std::size_t count)
{
    const Sample::Fields none;
    const short* const level = raw.level ? raw.level : raw.shortTimeLevel;
    const auto tenfoldOf = [at, count](const short* items, qint16 ifAbsent) {
        return items ? tenfold(load(items, at, count)) : all(ifAbsent);
    };
    const auto angle = [at, count](const short* items) {
        return items ? tenfold(withoutNoValue(load(items, at, count))) : Lanes{};
    };
    return {all(validity),
            raw.quality ? tenth(withoutNoValue(load(raw.quality, at, count))) : Lanes{},
            angle(raw.azimuth),
            tenfoldOf(level, none.level),
            tenfoldOf(raw.shortTimeLevel, none.shortTimeLevel),
            tenfoldOf(raw.fieldStrength, none.fieldStrength),
            angle(raw.elevation),
            Lanes{}};
}

// Rows to columns, and each column to its record. Interleaving row i with row i + 4 turns the position of an
// item, row and column written one behind the other in binary, round by one digit; three times exchanges row
// and column.
[[gnu::always_inline]] inline void store(Block rows, Sample* samples, std::size_t count)
{
    for (int round = 0; round < 3; ++round) {
        const Block from = rows;
        for (std::size_t i = 0; i < laneCount / 2; ++i) {
            const Lanes a = from[i];
            const Lanes b = from[i + laneCount / 2];
            rows[2 * i] = __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
            rows[2 * i + 1] = __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
        }
    }
    // As bytes: assigned as a record, the compiler takes the vector apart again.
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(static_cast<void*>(&samples[i].fields()), &rows[i], sizeof(Sample::Fields));
}

bool liesIn(double azimuth, std::span<const std::pair<double, double>> sectors)
{
    return std::any_of(sectors.begin(), sectors.end(), [azimuth](const std::pair<double, double>& sector) {
        return sector.first != sector.second && sector.first <= azimuth && azimuth <= sector.second;
    });
}

qint16 itemOrNone(const short* items, std::size_t index)
{
    return items ? numbers::item16(items, index) : noValue;
}

qint16 withoutNoValue(qint16 raw)
{
    return raw == noValue ? qint16{0} : raw;
}

void setWave(values::SuperResolutionSample& waves, int wave, const SuperResolutionArrays& arrays,
             std::size_t index)
{
    const auto tenfoldOf = [index](const short* items) {
        return numbers::wrappedProduct(withoutNoValue(itemOrNone(items, index)), 10);
    };
    waves.setQuality(wave, static_cast<qint16>(withoutNoValue(itemOrNone(arrays.quality, index)) / 10));
    waves.setAzimuth(wave, static_cast<quint16>(tenfoldOf(arrays.azimuth)));
    waves.setElevation(wave, tenfoldOf(arrays.elevation));
    if (arrays.level)
        waves.setLevel(wave, numbers::wrappedProduct(numbers::item16(arrays.level, index), 10));
    if (arrays.fieldStrength)
        waves.setFieldStrength(wave,
                               numbers::wrappedProduct(numbers::item16(arrays.fieldStrength, index), 10));
}

void setItem(short* items, std::size_t index, qint16 value)
{
    std::memcpy(reinterpret_cast<unsigned char*>(items) + index * sizeof value, &value, sizeof value);
}

} // namespace

void convert(const RawFields& raw, Validity validity, std::span<Sample> samples) noexcept
{
    const auto number = static_cast<qint16>(validity);
    std::size_t i = 0;
    for (; i + laneCount <= samples.size(); i += laneCount)
        store(converted(raw, number, i, laneCount), &samples[i], laneCount);
    const std::size_t rest = samples.size() - i;
    if (rest != 0)
        store(converted(raw, number, i, rest), &samples[i], rest);
}

void blankSectors(const short* azimuth, std::span<const std::pair<double, double>> sectors,
                  std::span<Sample> samples) noexcept
{
    if (!azimuth)
        return;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (!liesIn(withoutNoValue(numbers::item16(azimuth, i)), sectors))
            continue;
        samples[i].setValidity(Validity::Blanked);
        samples[i].setAzimuth(0);
        samples[i].setQuality(0);
    }
}

void setSuperResolution(const SuperResolutionArrays& arrays, std::optional<int> qualityThreshold,
                        std::span<Sample> samples)
{
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::size_t first = i * static_cast<std::size_t>(arrays.count);
        if (qualityThreshold && arrays.quality && numbers::item16(arrays.quality, first) < *qualityThreshold)
            setItem(arrays.quality, first, 0);
        values::SuperResolutionSample& waves = samples[i].createSuperResolutionSample(arrays.count);
        for (int wave = 0; wave < arrays.count; ++wave)
            setWave(waves, wave, arrays, first + static_cast<std::size_t>(wave));
    }
}

void discardSuperResolution(std::span<Sample> samples) noexcept
{
    if (!values::SuperResolutionSample::anyAlive())
        return;
    for (Sample& sample : samples)
        sample.discardSuperResolutionSample();
}

void replaceNoValues(short* items, std::size_t count) noexcept
{
    for (std::size_t i = 0; i < count; ++i)
        setItem(items, i, withoutNoValue(numbers::item16(items, i)));
}

} // namespace dfsamples
