// SPDX-License-Identifier: MIT
#include "values/handlers.h"
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace values {

namespace {

constexpr double hundredthsPerTurn = 36000.0;

qint16 rounded(double number)
{
    return static_cast<qint16>(std::lround(std::clamp(number, -32768.0, 32767.0)));
}

// A mean that happens to be the number for "no value" moves to the next one.
qint16 roundedLevel(const RunningMean& mean)
{
    if (mean.empty())
        return noLevel;
    const qint16 level = rounded(mean.mean());
    return level == noLevel ? static_cast<qint16>(noLevel - 1) : level;
}

template <typename Sample>
void addBearing(RunningBearing& mean, short level, const Sample& sample, unsigned int window)
{
    mean.level.add(level, window);
    mean.elevation.add(sample.elevation, window);
    mean.quality.add(sample.quality, window);
    mean.azimuth.add(sample.azimuth, sample.quality, window);
}

// Four at a time, without a branch: a quarter of the time of the plain loop.
bool hasSuperResolution(const DFSpectrumSample* samples, std::size_t count)
{
    const auto address = [samples](std::size_t i) {
        return reinterpret_cast<std::uintptr_t>(samples[i].getSuperResolutionSample());
    };
    std::array<std::uintptr_t, 4> seen{};
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        seen[0] |= address(i);
        seen[1] |= address(i + 1);
        seen[2] |= address(i + 2);
        seen[3] |= address(i + 3);
    }
    for (; i < count; ++i)
        seen[0] |= address(i);
    return (seen[0] | seen[1] | seen[2] | seen[3]) != 0;
}

void copyPlain(DFSpectrumSample* to, const DFSpectrumSample* from, std::size_t count)
{
    // Only null pointers and plain numbers on both sides: nothing is owned twice, nothing is lost.
    // cppcheck-suppress memsetClass
    std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), count * sizeof(DFSpectrumSample));
}

} // namespace

void RunningDirection::add(quint16 azimuth, qint16 quality, unsigned int window)
{
    const double angle = azimuth / hundredthsPerTurn * 2.0 * std::numbers::pi;
    // A bearing without quality still says something.
    const double weight = std::max<double>(quality, 1.0);
    m_north.add(std::cos(angle) * weight, window);
    m_east.add(std::sin(angle) * weight, window);
}

quint16 RunningDirection::mean() const
{
    const double turns = std::atan2(m_east.mean(), m_north.mean()) / (2.0 * std::numbers::pi);
    const double hundredths = std::round((turns < 0.0 ? turns + 1.0 : turns) * hundredthsPerTurn);
    return static_cast<quint16>(hundredths >= hundredthsPerTurn ? 0.0 : hundredths);
}

void levelHandler::average(Mean& mean, short value, unsigned int window)
{
    if (!isCleared(value))
        mean.level.add(value, window);
}

short levelHandler::averaged(const Mean& mean)
{
    return roundedLevel(mean.level);
}

void BearingHandler::average(Mean& mean, const Bearing& value, unsigned int window)
{
    if (!isCleared(value))
        addBearing(mean, value.level, value, window);
}

Bearing BearingHandler::averaged(const Mean& mean)
{
    if (mean.level.empty())
        return cleared();
    Bearing result;
    result.level = roundedLevel(mean.level);
    result.azimuth = mean.azimuth.mean();
    result.elevation = rounded(mean.elevation.mean());
    result.quality = rounded(mean.quality.mean());
    return result;
}

void DFSpectrumSampleHandler::assign(DFSpectrumSample* to, const DFSpectrumSample* from, std::size_t count)
{
    if (!SuperResolutionSample::anyAlive()) {
        copyPlain(to, from, count);
        return;
    }
    // Small enough that what was looked at is still in the first cache when it is copied.
    constexpr std::size_t block = 256;
    for (std::size_t begin = 0; begin < count; begin += block) {
        const std::size_t size = std::min(block, count - begin);
        if (hasSuperResolution(from + begin, size) || hasSuperResolution(to + begin, size))
            std::copy_n(from + begin, size, to + begin);
        else
            copyPlain(to + begin, from + begin, size);
    }
}

void DFSpectrumSampleHandler::average(Mean& mean, const DFSpectrumSample& value, unsigned int window)
{
    if (!isCleared(value) && value.getValidity() == DFSpectrumSample::Validity::Valid)
        addBearing(mean, value.getLevel(), value.fields(), window);
}

DFSpectrumSample DFSpectrumSampleHandler::averaged(const Mean& mean)
{
    DFSpectrumSample result;
    if (mean.level.empty())
        return result;
    result.setValidity(DFSpectrumSample::Validity::Valid);
    result.setLevel(roundedLevel(mean.level));
    result.setAzimuth(mean.azimuth.mean());
    result.setElevation(rounded(mean.elevation.mean()));
    result.setQuality(rounded(mean.quality.mean()));
    return result;
}

} // namespace values
