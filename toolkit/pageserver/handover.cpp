// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/handover.h"
#include "toolkit/pageserver/levels.h"

namespace pageserver {

namespace {

constexpr float allAlike = 1e30F;

} // namespace

bool LevelGate::put(const values::ChannelRangeDefinition& grid, const TraceInfo& info,
                    std::span<const short> levels)
{
    const std::lock_guard lock{m_mutex};
    const bool wasEmpty = m_batch.traces == 0;
    if (m_generation == 0 || !(m_grid == grid)) {
        m_grid = grid;
        ++m_generation;
    }
    if (!wasEmpty && m_batch.generation == m_generation && m_batch.levels.size() == levels.size()) {
        combine(levels);
        ++m_batch.traces;
    } else {
        // A new grid begins new holds, so that what waits on the old one is not missed.
        m_batch.traces = 1;
        m_batch.highest.clear();
    }
    m_batch.grid = grid;
    m_batch.generation = m_generation;
    m_batch.newest = info;
    m_batch.levels.assign(levels.begin(), levels.end());
    return wasEmpty;
}

void LevelGate::combine(std::span<const short> levels)
{
    if (m_batch.traces == 1) {
        m_batch.highest = m_batch.levels;
        m_batch.lowest = m_batch.levels;
        m_batch.mean.assign(levels.size(), 0.0F);
        m_batch.counted.assign(levels.size(), 0.0F);
        addToMeans(m_batch.mean, m_batch.counted, m_batch.levels, allAlike);
    }
    raise(m_batch.highest, levels);
    lower(m_batch.lowest, levels);
    addToMeans(m_batch.mean, m_batch.counted, levels, allAlike);
}

bool LevelGate::take(LevelBatch& batch)
{
    const std::lock_guard lock{m_mutex};
    if (m_batch.traces == 0)
        return false;
    std::swap(batch, m_batch);
    m_batch.traces = 0;
    return true;
}

} // namespace pageserver
