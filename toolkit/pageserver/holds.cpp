// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/holds.h"
#include "toolkit/pageserver/levels.h"
#include <cmath>

namespace pageserver {

void Holds::add(const LevelBatch& batch)
{
    if (m_max.size() != batch.levels.size() || m_generation != batch.generation)
        begin(batch);
    if (m_sinceNs == 0)
        m_sinceNs = batch.newest.receivedNs;
    const bool isOne = batch.highest.empty();
    const std::vector<short>& highest = isOne ? batch.levels : batch.highest;
    raise(m_max, highest);
    lower(m_min, isOne ? batch.levels : batch.lowest);
    m_newestSlice = batch.newest.receivedNs / sliceNs;
    Slice& slice = m_slices[static_cast<std::size_t>(m_newestSlice) % m_slices.size()];
    if (slice.number != m_newestSlice) {
        slice.number = m_newestSlice;
        slice.highest.assign(highest.size(), values::noLevel);
    }
    raise(slice.highest, highest);
    addToAverage(batch);
}

void Holds::begin(const LevelBatch& batch)
{
    m_generation = batch.generation;
    m_max.resize(batch.levels.size());
    m_min.resize(batch.levels.size());
    m_mean.assign(batch.levels.size(), 0.0F);
    m_counted.assign(batch.levels.size(), 0.0F);
    m_averagedSoFar = 0;
    reset();
}

void Holds::reset()
{
    std::fill(m_max.begin(), m_max.end(), values::noLevel);
    std::fill(m_min.begin(), m_min.end(), values::noLevel);
    for (Slice& slice : m_slices)
        slice.number = -1;
    m_sinceNs = 0;
}

void Holds::setAveraged(unsigned traces)
{
    m_window = traces;
    std::fill(m_mean.begin(), m_mean.end(), 0.0F);
    std::fill(m_counted.begin(), m_counted.end(), 0.0F);
    m_averagedSoFar = 0;
}

void Holds::addToAverage(const LevelBatch& batch)
{
    const auto window = static_cast<float>(m_window);
    m_averagedSoFar = static_cast<unsigned>(std::min<quint64>(m_averagedSoFar + batch.traces, m_window));
    if (batch.highest.empty())
        return addToMeans(m_mean, m_counted, batch.levels, window);
    // Traces that came together count as their mean, as often as they were.
    for (std::size_t i = 0; i < m_mean.size(); ++i) {
        const float count = std::min(m_counted[i] + batch.counted[i], window);
        const float share = std::min(batch.counted[i] / std::max(count, 1.0F), 1.0F);
        m_mean[i] += (batch.mean[i] - m_mean[i]) * share;
        m_counted[i] = count;
    }
}

std::vector<short> Holds::average() const
{
    std::vector<short> levels(m_mean.size());
    for (std::size_t i = 0; i < levels.size(); ++i)
        levels[i] = m_counted[i] > 0.0F ? static_cast<short>(std::lrint(m_mean[i])) : values::noLevel;
    return levels;
}

std::vector<short> Holds::hold() const
{
    std::vector<short> highest(m_max.size(), values::noLevel);
    const auto isRecent = [this](const Slice& slice) {
        return slice.number <= m_newestSlice && m_newestSlice - slice.number < std::ssize(m_slices);
    };
    for (const Slice& slice : m_slices) {
        if (slice.number >= 0 && isRecent(slice) && slice.highest.size() == highest.size())
            raise(highest, slice.highest);
    }
    return highest;
}

} // namespace pageserver
