// SPDX-License-Identifier: MIT
#pragma once
// Finished scans on their way to another thread.
#include "values/channelrangedefinition.h"
#include "values/combiners.h"
#include <QtGlobal>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace values {

/// A finished scan.
template <typename T>
struct Scan {
    ChannelRangeDefinition grid; // of its time
    std::vector<T> values;       // from the lowest channel id of the grid to the highest
    quint64 timeStamp = 0;       // map stamp
    quint64 number = 0;          // counted by the map, from 1
    quint64 combinedScans = 1;   // how many scans are held in this one
};

/// A bounded ring of finished scans. When it is full the newest scan takes the place of the oldest.
/// Thread: the map's thread stores, any other takes; neither waits for the other longer than a few pointers
/// take to be exchanged (or one scan to be combined, with a hold time).
template <typename T, typename Handler>
class Q_DECL_EXPORT RealTimeBuffer {
public:
    /// For so many scans, at least one; `holdTime` as in `SetHoldTime`.
    explicit RealTimeBuffer(std::size_t depth, quint64 holdTime = 0)
        : m_ring(depth < 1 ? 1 : depth)
        , m_holdTime(holdTime)
    {}

    /// Takes the oldest scan out by exchanging it for what `scan` was, whose memory is used again. False, and
    /// `scan` stays as it is, when there is none.
    bool Take(Scan<T>& scan)
    {
        const std::lock_guard lock{m_mutex};
        if (m_count == 0)
            return false;
        std::swap(scan, m_ring[m_oldest]);
        leaveOldest();
        return true;
    }

    /// Number of scans that wait.
    [[nodiscard]] std::size_t GetCount() const
    {
        const std::lock_guard lock{m_mutex};
        return m_count;
    }

    /// Number of scans that were overwritten before anybody took them.
    [[nodiscard]] quint64 GetOverwrittenCount() const
    {
        const std::lock_guard lock{m_mutex};
        return m_overwritten;
    }

    /// How many scans fit; at least one. The oldest that do not fit any more are overwritten.
    /// Thread: the map's.
    void SetDepth(std::size_t depth)
    {
        const std::lock_guard lock{m_mutex};
        std::vector<Scan<T>> ring(depth < 1 ? 1 : depth);
        while (m_count > ring.size())
            overwriteOldest();
        for (std::size_t i = 0; i < m_count; ++i)
            std::swap(ring[i], m_ring[slot(i)]);
        m_ring.swap(ring);
        m_oldest = 0;
    }

    /// Scans that end less than this after the first one of the newest entry are held in that entry.
    /// Units: map stamp, microseconds; 0: every scan is an entry of its own.
    void SetHoldTime(quint64 holdTime)
    {
        const std::lock_guard lock{m_mutex};
        m_holdTime = holdTime;
    }

    /// Called by the map for each finished scan.
    /// Thread: the map's.
    void Store(const ChannelRangeDefinition& grid, std::span<const T> values, quint64 timeStamp,
               quint64 number)
    {
        Scan<T> scan;
        {
            const std::lock_guard lock{m_mutex};
            if (holdInNewest(grid, values, timeStamp, number))
                return;
            if (m_count == m_ring.size())
                overwriteOldest();
            std::swap(scan, m_ring[slot(m_count)]); // for its memory
        }
        // The long part, without the lock: nobody else knows this scan yet.
        scan.grid = grid;
        scan.values.resize(values.size());
        if (!values.empty())
            Handler::assign(scan.values.data(), values.data(), values.size());
        scan.timeStamp = timeStamp;
        scan.number = number;
        scan.combinedScans = 1;
        const std::lock_guard lock{m_mutex};
        std::swap(scan, m_ring[slot(m_count)]);
        ++m_count;
        m_newestSince = timeStamp;
    }

private:
    bool holdInNewest(const ChannelRangeDefinition& grid, std::span<const T> values, quint64 timeStamp,
                      quint64 number)
    {
        if (m_holdTime == 0 || m_count == 0)
            return false;
        Scan<T>& newest = m_ring[slot(m_count - 1)];
        // Unsigned: a clock that went backwards starts a new entry.
        if (timeStamp - m_newestSince >= m_holdTime || newest.values.size() != values.size() ||
            !(newest.grid == grid))
            return false;
        for (std::size_t i = 0; i < values.size(); ++i)
            holdRecord<Handler>(newest.values[i], values[i], Hold::Highest);
        newest.timeStamp = timeStamp;
        newest.number = number;
        ++newest.combinedScans;
        return true;
    }

    // Place of the entry that is `position` behind the oldest.
    [[nodiscard]] std::size_t slot(std::size_t position) const
    {
        return (m_oldest + position) % m_ring.size();
    }

    void leaveOldest()
    {
        m_oldest = slot(1);
        --m_count;
    }

    void overwriteOldest()
    {
        leaveOldest();
        ++m_overwritten;
    }

    mutable std::mutex m_mutex;
    std::vector<Scan<T>> m_ring;
    std::size_t m_oldest = 0;
    std::size_t m_count = 0;
    quint64 m_holdTime;
    quint64 m_newestSince = 0; // stamp of the first scan held in the newest entry
    quint64 m_overwritten = 0;
};

} // namespace values
