// SPDX-License-Identifier: MIT
#pragma once
// A level map and its filler written down as plainly as their rules, to compare the real ones with.
#include "support/effect_log.h"
#include "support/grid_model.h"
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// A level map; its calls go to a log in the words of `RecordingMap`.
class LevelMapModel {
public:
    static constexpr std::size_t maxChannels = 200;
    static constexpr short cleared = 32766;

    LevelMapModel(EffectLog& log, std::string name)
        : m_log(&log)
        , m_name(std::move(name))
    {}

    void install(const GridModel& newGrid, std::size_t code)
    {
        m_log->add(m_name + " SetChannelRangeDefinition " + std::to_string(newGrid.count()) + " " +
                   std::to_string(code));
        const std::size_t size = newGrid.count() == 0 ? 0 : newGrid.maxId() - newGrid.minId() + 1;
        if (size > maxChannels)
            return; // refused; all stays
        grid = newGrid;
        values.assign(size, cleared);
        ended = false;
        notify(code);
    }

    void write(std::int64_t first, unsigned int count, const short* levels)
    {
        m_log->add(m_name + " SetChannelValues " + std::to_string(first) + "+" + std::to_string(count) +
                   (levels ? "" : " null"));
        if (!levels)
            return;
        bool any = false;
        for (std::int64_t i = 0; i < count; ++i)
            any = any || inside(first + i);
        if (!any)
            return; // nothing, or refused
        if (ended && !keep)
            values.assign(values.size(), cleared);
        ended = false;
        for (std::int64_t i = 0; i < count; ++i) {
            if (inside(first + i))
                values[static_cast<std::size_t>(first + i - grid.minId())] = levels[i];
        }
    }

    void clear(std::int64_t first, unsigned int last)
    {
        m_log->add(m_name + " ClearChannelRange " + std::to_string(first) + " " + std::to_string(last));
        for (std::size_t i = 0; i < values.size(); ++i) {
            const std::int64_t id = grid.minId() + static_cast<std::int64_t>(i);
            if (id >= first && id <= last)
                values[i] = cleared;
        }
    }

    void endScan()
    {
        m_log->add(m_name + " EndOfScan");
        ended = true;
        ++scans;
    }

    void notify(std::size_t code) { m_log->add(m_name + " HasChanged " + std::to_string(code)); }

    GridModel grid;
    std::vector<short> values;
    std::uint64_t scans = 0;
    bool keep = false;
    bool ended = false;

private:
    [[nodiscard]] bool inside(std::int64_t id) const
    {
        return !values.empty() && id >= grid.minId() && id <= grid.maxId();
    }

    EffectLog* m_log;
    std::string m_name;
};

/// The level map filler.
class FillerModel {
public:
    FillerModel(LevelMapModel& primary, LevelMapModel* mirror)
        : m_primary(primary)
        , m_mirror(mirror)
    {}

    void setData(double start, double stop, std::optional<double> step, int count, const short* levels);
    void endScan();
    void setSingle(double freq, short level, bool notifies);
    void clearAll();
    void setGrid(const GridModel& grid, std::size_t code);
    void createGrid(double start, double stop, double step, bool keepEmpty);

    std::uint32_t lastChannel = 0;
    bool pScan = false;
    bool pScanFinish = false;

private:
    void drop(const GridModel& grid);
    void notifyBoth();

    LevelMapModel& m_primary;
    LevelMapModel* m_mirror;
};

} // namespace support
