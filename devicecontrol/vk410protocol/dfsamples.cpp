// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/superresolution.h"
#include <algorithm>
#include <cstring>

namespace dfsamples {

namespace {

using Validity = Sample::Validity;

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

RawFields RawFields::from(std::size_t index) const noexcept
{
    const auto behind = [index](const short* items) {
        return items ? reinterpret_cast<const short*>(reinterpret_cast<const unsigned char*>(items) +
                                                      index * sizeof(short))
                     : nullptr;
    };
    return {behind(azimuth), behind(quality),        behind(fieldStrength),
            behind(level),   behind(shortTimeLevel), behind(elevation)};
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
