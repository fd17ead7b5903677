// SPDX-License-Identifier: MIT
#pragma once
// What value maps need to know about their records: what "cleared" is, how records are copied, held and
// averaged.
#include "values/bearing.h"
#include "values/dfspectrumsample.h"
#include "values/levels.h"
#include <QtGlobal>
#include <algorithm>
#include <cstddef>
#include <cstring>

namespace values {

/// Mean of numbers, one by one. `window` 0: all count alike; else older ones fade as if that many were kept.
class RunningMean {
public:
    void add(double number, unsigned int window)
    {
        if (window == 0 || m_count < window)
            ++m_count;
        m_mean += (number - m_mean) / m_count;
    }
    [[nodiscard]] bool empty() const { return m_count == 0; }
    [[nodiscard]] double mean() const { return m_mean; }

private:
    double m_mean = 0.0;
    unsigned int m_count = 0;
};

/// Mean of directions: angles near north on both sides average to north. Each counts by its quality.
/// Units: hundredths of a degree.
class Q_DECL_EXPORT RunningDirection {
public:
    void add(quint16 azimuth, qint16 quality, unsigned int window);
    [[nodiscard]] quint16 mean() const;

private:
    RunningMean m_north;
    RunningMean m_east;
};

/// Mean of bearings or direction-finding samples.
struct Q_DECL_EXPORT RunningBearing {
    RunningMean level;
    RunningMean elevation;
    RunningMean quality;
    RunningDirection azimuth;
};

/// Levels.
struct Q_DECL_EXPORT levelHandler {
    static constexpr const char* typeName = "levels";
    static constexpr short cleared() { return noLevel; }
    static bool isCleared(short value) { return value == noLevel; }
    static void assign(short* to, const short* from, std::size_t count)
    {
        std::memcpy(to, from, count * sizeof(short));
    }
    static short levelOf(short value) { return value; }

    struct Mean {
        RunningMean level;
    };
    static void average(Mean& mean, short value, unsigned int window);
    static short averaged(const Mean& mean);
};

/// Bearings.
struct Q_DECL_EXPORT BearingHandler {
    static constexpr const char* typeName = "bearings";
    static constexpr Bearing cleared() { return Bearing{}; }
    static bool isCleared(const Bearing& value) { return value.level == noLevel; }
    static void assign(Bearing* to, const Bearing* from, std::size_t count)
    {
        std::memcpy(to, from, count * sizeof(Bearing));
    }
    static short levelOf(const Bearing& value) { return value.level; }

    using Mean = RunningBearing;
    static void average(Mean& mean, const Bearing& value, unsigned int window);
    static Bearing averaged(const Mean& mean);
};

/// Direction-finding samples.
struct Q_DECL_EXPORT DFSpectrumSampleHandler {
    static constexpr const char* typeName = "direction-finding spectrum";
    static DFSpectrumSample cleared() { return {}; }
    static bool isCleared(const DFSpectrumSample& value) { return value.getLevel() == noLevel; }

    /// Copies; blocks in which no record has super-resolution data, here or there, as plain memory.
    static void assign(DFSpectrumSample* to, const DFSpectrumSample* from, std::size_t count);
    static short levelOf(const DFSpectrumSample& value) { return value.getLevel(); }

    /// Only valid samples count; super-resolution data is left out.
    using Mean = RunningBearing;
    static void average(Mean& mean, const DFSpectrumSample& value, unsigned int window);
    static DFSpectrumSample averaged(const Mean& mean);
};

} // namespace values
