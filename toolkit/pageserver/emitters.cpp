// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/emitters.h"
#include <algorithm>
#include <cmath>
#include <numbers>

namespace pageserver {

namespace {

using Fields = values::DFSpectrumSample::Fields;

constexpr double degree = std::numbers::pi / 180;
constexpr std::size_t mostSightings = 50'000; // of scans that come too fast, or without a time
constexpr double reachSteps = 2.5;            // sightings of one emitter lie at most this far from each other

bool isBelievable(const Fields& sample)
{
    return sample.validity == values::DFSpectrumSample::Validity::Valid &&
           sample.quality >= Emitters::qualityFloor && sample.level != values::noLevel;
}

// Whether no neighbour is stronger; of equals, the first one is the peak.
bool isPeak(std::span<const Fields> samples, std::size_t i)
{
    const bool overLeft = i == 0 || !isBelievable(samples[i - 1]) || samples[i - 1].level < samples[i].level;
    const bool overRight =
        i + 1 == samples.size() || !isBelievable(samples[i + 1]) || samples[i + 1].level <= samples[i].level;
    return overLeft && overRight;
}

// -180 to 180.
double turned(double degrees)
{
    return std::remainder(degrees, 360.0);
}

} // namespace

// Sightings at one place of the spectrum.
struct Emitters::Cluster {
    std::vector<const Sighting*> sightings;

    [[nodiscard]] Emitter emitter(qint64 nowNs) const;
    [[nodiscard]] double trend(double meanDeg) const;
};

void Emitters::add(const DfPicture& picture)
{
    m_newestNs = picture.info.receivedNs;
    std::vector<Sighting> peaks;
    for (const values::ChannelRange& range : picture.grid.GetRanges()) {
        if (range.count == 0)
            continue;
        const std::size_t first = range.firstChannel - picture.grid.GetMinChannelId();
        const std::span<const Fields> samples = std::span{picture.samples}.subspan(first, range.count);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (!isBelievable(samples[i]) || !isPeak(samples, i))
                continue;
            peaks.push_back({m_newestNs, range.position(static_cast<unsigned>(i)), std::abs(range.step),
                             samples[i].azimuth / 100.0, static_cast<double>(samples[i].quality),
                             samples[i].level / 100.0});
        }
    }
    std::ranges::sort(peaks, std::greater{}, &Sighting::level);
    peaks.resize(std::min(peaks.size(), mostPeaks));
    m_sightings.insert(m_sightings.end(), peaks.begin(), peaks.end());
    // Also what lies ahead: a playback may have been set back.
    while (m_sightings.size() > mostSightings)
        m_sightings.pop_front();
    std::erase_if(m_sightings, [this](const Sighting& each) {
        return each.atNs > m_newestNs || m_newestNs - each.atNs > keptNs;
    });
}

std::vector<Emitter> Emitters::list() const
{
    std::vector<const Sighting*> byFrequency;
    byFrequency.reserve(m_sightings.size());
    for (const Sighting& each : m_sightings)
        byFrequency.push_back(&each);
    std::ranges::stable_sort(byFrequency, {}, &Sighting::frequencyHz);
    std::vector<Cluster> clusters;
    for (const Sighting* const each : byFrequency) {
        const bool isNear =
            !clusters.empty() &&
            each->frequencyHz - clusters.back().sightings.back()->frequencyHz <= reachSteps * each->stepHz;
        if (!isNear)
            clusters.emplace_back();
        clusters.back().sightings.push_back(each);
    }
    std::vector<Emitter> emitters;
    emitters.reserve(clusters.size());
    for (const Cluster& cluster : clusters)
        emitters.push_back(cluster.emitter(m_newestNs));
    std::ranges::sort(emitters, std::greater{}, &Emitter::levelDb);
    emitters.resize(std::min(emitters.size(), mostEmitters));
    std::ranges::sort(emitters, {}, &Emitter::frequencyHz);
    return emitters;
}

Emitter Emitters::Cluster::emitter(qint64 nowNs) const
{
    double north = 0;
    double east = 0;
    double weight = 0;
    double frequency = 0;
    const Sighting* newest = sightings.front();
    for (const Sighting* const each : sightings) {
        north += each->quality * std::cos(each->azimuthDeg * degree);
        east += each->quality * std::sin(each->azimuthDeg * degree);
        weight += each->quality;
        frequency += each->quality * each->frequencyHz;
        if (each->atNs > newest->atNs || (each->atNs == newest->atNs && each->level > newest->level))
            newest = each;
    }
    const double mean = std::atan2(east, north) / degree;
    // Rounding may make the resultant a little longer than all of it.
    const double resultant = std::min(std::hypot(north, east) / weight, 1.0);
    Emitter emitter;
    emitter.frequencyHz = frequency / weight;
    emitter.azimuthDeg = mean < 0 ? mean + 360 : mean;
    emitter.spreadDeg = std::min(std::sqrt(-2 * std::log(std::max(resultant, 1e-9))) / degree, 180.0);
    emitter.quality = weight / static_cast<double>(sightings.size());
    emitter.levelDb = newest->level;
    emitter.ageMs = static_cast<double>(nowNs - newest->atNs) / 1e6;
    emitter.trendDegPerSecond = trend(mean);
    return emitter;
}

// Slope of the line of least squares through the azimuths, measured from their mean.
double Emitters::Cluster::trend(double meanDeg) const
{
    double meanSeconds = 0;
    double meanTurn = 0;
    const auto count = static_cast<double>(sightings.size());
    const qint64 origin = sightings.front()->atNs;
    const auto seconds = [origin](const Sighting& each) {
        return static_cast<double>(each.atNs - origin) / 1e9;
    };
    for (const Sighting* const each : sightings) {
        meanSeconds += seconds(*each) / count;
        meanTurn += turned(each->azimuthDeg - meanDeg) / count;
    }
    double both = 0;
    double time = 0;
    for (const Sighting* const each : sightings) {
        const double late = seconds(*each) - meanSeconds;
        both += late * (turned(each->azimuthDeg - meanDeg) - meanTurn);
        time += late * late;
    }
    // Over less than a fifth of a second, the noise of the bearings would be taken for a movement.
    constexpr double leastSeconds = 0.2;
    const bool isLongEnough = std::sqrt(time / count) >= leastSeconds;
    return isLongEnough ? both / time : 0.0;
}

} // namespace pageserver
