// SPDX-License-Identifier: MIT
#pragma once
// Transmitters, found in direction-finding pictures of the last seconds.
#include "toolkit/pageserver/handover.h"
#include <deque>
#include <vector>

namespace pageserver {

struct Emitter {
    double frequencyHz = 0;
    double azimuthDeg = 0; // circular mean, weighted by quality
    double spreadDeg = 0;  // circular standard deviation
    double quality = 0;    // percent, mean
    double levelDb = 0;    // of the newest sighting
    double ageMs = 0;      // of the newest sighting, before the newest picture
    double trendDegPerSecond = 0;
};

/// Collects, in each picture, the peaks of level that have a bearing worth believing; those of one place of
/// the spectrum are one emitter.
class Emitters {
public:
    static constexpr qint64 keptNs = 5'000'000'000;
    static constexpr short qualityFloor = 30;        // percent
    static constexpr std::size_t mostPeaks = 200;    // of a picture, the strongest
    static constexpr std::size_t mostEmitters = 100; // the strongest

    void add(const DfPicture& picture);

    /// By frequency.
    [[nodiscard]] std::vector<Emitter> list() const;

private:
    struct Sighting {
        qint64 atNs;
        double frequencyHz;
        double stepHz;
        double azimuthDeg;
        double quality;
        double level;
    };
    struct Cluster;

    std::deque<Sighting> m_sightings; // by time
    qint64 m_newestNs = 0;
};

} // namespace pageserver
