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
    /// Takes one number in.
    void add(double number, unsigned int window)
    {
        if (window == 0 || m_count < window)
            ++m_count;
        m_mean += (number - m_mean) / m_count;
    }
    /// Whether there was no number yet.
    [[nodiscard]] bool empty() const { return m_count == 0; }
    /// The mean; 0 without numbers.
    [[nodiscard]] double mean() const { return m_mean; }

private:
    double m_mean = 0.0;
    unsigned int m_count = 0;
};

/// Mean of directions: angles near north on both sides average to north. Each counts by its quality.
/// Units: hundredths of a degree.
class Q_DECL_EXPORT RunningDirection {
public:
    /// Takes one direction in.
    void add(quint16 azimuth, qint16 quality, unsigned int window);
    /// The mean direction.
    [[nodiscard]] quint16 mean() const;

private:
    RunningMean m_north;
    RunningMean m_east;
};

/// Mean of bearings or direction-finding samples.
struct Q_DECL_EXPORT RunningBearing {
    /// One mean for each property.
    RunningMean level;
    RunningMean elevation;
    RunningMean quality;
    RunningDirection azimuth;
};

/// Levels.
struct Q_DECL_EXPORT levelHandler {
    /// What maps call their kind.
    static constexpr const char* typeName = "levels";

    /// The record that says "no value", and how to know it, copy records and compare their levels.
    static constexpr short cleared() { return noLevel; }
    static bool isCleared(short value) { return value == noLevel; }
    static void assign(short* to, const short* from, std::size_t count)
    {
        std::memcpy(to, from, count * sizeof(short));
    }
    static short levelOf(short value) { return value; }

    /// Mean of records: how one is taken in, and the mean as a record.
    struct Mean {
        RunningMean level; // cleared ones do not count
    };

    /// Takes a record into a mean, and makes a record of the mean.
    static void average(Mean& mean, short value, unsigned int window);
    static short averaged(const Mean& mean);
};

/// Bearings.
struct Q_DECL_EXPORT BearingHandler {
    /// What maps call their kind.
    static constexpr const char* typeName = "bearings";

    /// The record that says "no value", and how to know it, copy records and compare their levels.
    static constexpr Bearing cleared() { return Bearing{}; }
    static bool isCleared(const Bearing& value) { return value.level == noLevel; }
    static void assign(Bearing* to, const Bearing* from, std::size_t count)
    {
        std::memcpy(to, from, count * sizeof(Bearing));
    }
    static short levelOf(const Bearing& value) { return value.level; }

    /// Mean of records: how one is taken in, and the mean as a record.
    using Mean = RunningBearing;
    static void average(Mean& mean, const Bearing& value, unsigned int window);
    static Bearing averaged(const Mean& mean);
};

/// Direction-finding samples.
struct Q_DECL_EXPORT DFSpectrumSampleHandler {
    /// What maps call their kind.
    static constexpr const char* typeName = "direction-finding spectrum";

    /// The record that says "no value", and how to know it.
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
