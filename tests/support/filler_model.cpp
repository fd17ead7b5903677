// SPDX-License-Identifier: MIT
#include "support/filler_model.h"

namespace support {

namespace {

bool inRange(const GridModel& grid, double a, double b)
{
    for (const GridModel::Range& range : grid.ranges) {
        const double low = range.start;
        const double high = range.count == 0 ? low : range.last();
        if (low <= a && a <= high && low <= b && b <= high)
            return true;
    }
    return false;
}

std::optional<std::int64_t> whole(double x)
{
    if (!(x >= -9223372036854775808.0) || !(x < 9223372036854775808.0))
        return std::nullopt;
    return static_cast<std::int64_t>(x);
}

bool stepFits(const GridModel& grid, double start, double stop, std::optional<double> step, int count)
{
    if (count == 1)
        return true;
    const GridModel::Range* const range =
        grid.holder(step ? grid.findFirst(start, *step, stop) : grid.minId());
    if (!range)
        return false;
    const auto a = whole(range->step);
    const auto b = whole((stop - start) / (static_cast<double>(count) - 1.0));
    return a && b && (*a & 0xFFFFFFFF) == (*b & 0xFFFFFFFF);
}

} // namespace

void FillerModel::setData(double start, double stop, std::optional<double> step, int count,
                          const short* levels)
{
    if (step && start == 0.0) {
        endScan();
        notifyBoth();
        return;
    }
    if (count < 0)
        return;
    const GridModel grid = m_primary.grid;
    std::vector<unsigned int> ids;
    if (inRange(grid, start, stop) && stepFits(grid, start, stop, step, count))
        ids = grid.between(start, start + 1.0);
    if (ids.empty()) {
        drop(grid);
        return;
    }
    const unsigned int first = ids.front();
    const bool back = lastChannel > first;
    if (!step && back)
        m_primary.notify(10);
    if (step && (pScan ? pScanFinish : back))
        m_primary.endScan();
    if (levels)
        m_primary.write(first, static_cast<unsigned int>(count), levels);
    if (m_mirror)
        m_mirror->write(first, static_cast<unsigned int>(count), levels);
    lastChannel = first == 0 && count == 0 ? 0 : first + static_cast<unsigned int>(count) - 1;
    notifyBoth();
}

void FillerModel::endScan()
{
    m_primary.endScan();
    lastChannel = 0;
    if (m_mirror)
        m_mirror->endScan();
}

void FillerModel::setSingle(double freq, short level, bool notifies)
{
    if (freq == 0.0) {
        m_primary.endScan();
    } else if (m_primary.grid.ranges.empty()) {
        return;
    } else if (!inRange(m_primary.grid, freq, freq)) {
        m_primary.clear(m_primary.grid.minId(), m_primary.grid.maxId());
    } else {
        const std::vector<unsigned int> ids = m_primary.grid.closest(freq);
        if (ids.size() == 1) {
            m_primary.write(ids.front(), 1, &level);
            lastChannel = ids.front();
        }
    }
    if (notifies)
        m_primary.notify(10);
}

void FillerModel::clearAll()
{
    if (m_primary.grid.ranges.empty())
        return;
    for (LevelMapModel* const map : {&m_primary, m_mirror}) {
        if (!map)
            continue;
        map->clear(-1, 0xFFFFFFFFU);
        map->notify(10);
    }
}

void FillerModel::setGrid(const GridModel& grid, std::size_t code)
{
    m_primary.install(grid, code);
    if (m_mirror)
        m_mirror->install(grid, code);
    lastChannel = 0;
}

void FillerModel::createGrid(double start, double stop, double step, bool keepEmpty)
{
    if (keepEmpty && m_primary.grid.ranges.empty())
        return;
    if (step == 0.0)
        return; // an infinite number of channels, or not a number
    const double count = (stop - start) / step + 1.0;
    if (!(count > -1.0 && count < 2147483648.0))
        return;
    GridModel grid;
    grid.add({0, static_cast<unsigned int>(count), start, step});
    setGrid(grid, 10);
}

void FillerModel::drop(const GridModel& grid)
{
    for (LevelMapModel* const map : {&m_primary, m_mirror}) {
        if (map)
            map->clear(grid.minId(), grid.maxId());
    }
    notifyBoth();
}

void FillerModel::notifyBoth()
{
    m_primary.notify(10);
    if (m_mirror)
        m_mirror->notify(10);
}

} // namespace support
