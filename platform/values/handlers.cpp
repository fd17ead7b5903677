// SPDX-License-Identifier: MIT
#include "values/handlers.h"
#include <cmath>
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

bool hasSuperResolution(const DFSpectrumSample* samples, std::size_t count)
{
    std::size_t owned = 0;
    for (std::size_t i = 0; i < count; ++i)
        owned |= static_cast<std::size_t>(samples[i].getSuperResolutionSample() != nullptr);
    return owned != 0;
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
    // Small enough that what was looked at is still in the first cache when it is copied.
    constexpr std::size_t block = 256;
    for (std::size_t begin = 0; begin < count; begin += block) {
        const std::size_t size = std::min(block, count - begin);
        if (hasSuperResolution(from + begin, size) || hasSuperResolution(to + begin, size))
            std::copy_n(from + begin, size, to + begin);
        else // only null pointers and plain numbers on both sides
            std::memcpy(static_cast<void*>(to + begin), static_cast<const void*>(from + begin),
                        size * sizeof(DFSpectrumSample));
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
