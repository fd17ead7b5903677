// SPDX-License-Identifier: MIT
#pragma once
// From the reception thread to the page's: bounded, newest wins, nobody waits longer than a copy takes.
#include "values/channelrangedefinition.h"
#include "values/dfspectrumsample.h"
#include <QtGlobal>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace pageserver {

/// Larger maps are not shown: a viewer could not draw them, and one frame would take 10 MB.
inline constexpr std::size_t mostChannels = 1U << 20U;
inline constexpr std::size_t mostGridRanges = 0xFFFF; // a frame counts them in 16 bits

/// What is known about a trace besides its values.
struct TraceInfo {
    quint64 number = 0;    // of its stream, from 1
    qint64 deviceNs = 0;   // by the receiver's clock, since 1970
    qint64 receivedNs = 0; // by this machine's clock, since 1970
    quint64 lostSoFar = 0; // datagrams on the wire since the session began
    bool isReplayed = false;
    bool isStepped = false; // made while the playback was paused
};

/// One or more traces of one grid on their way: the newest, and what holds need of all of them.
struct LevelBatch {
    values::ChannelRangeDefinition grid;
    TraceInfo newest;
    std::vector<short> levels; // of the newest; "no value" is values::noLevel
    quint64 traces = 0;
    quint64 generation = 0; // of the grid: grows whenever it changes, also there and back
    // Of more than one trace, else empty.
    std::vector<short> highest;
    std::vector<short> lowest;
    std::vector<float> mean;    // of those that had a value
    std::vector<float> counted; // of how many that is
};

/// Hands traces over. A trace that comes before the last one was taken is put together with it: no trace is
/// missing in highest, lowest and mean, however late the other thread comes.
class LevelGate {
public:
    /// Thread: reception. Result: whether nothing was waiting, so that the other thread has to be told.
    [[nodiscard]] bool put(const values::ChannelRangeDefinition& grid, const TraceInfo& info,
                           std::span<const short> levels);

    /// Exchanges what waits for `batch`, whose memory is used again. False when nothing waits.
    /// Thread: the page's.
    [[nodiscard]] bool take(LevelBatch& batch);

private:
    void combine(std::span<const short> levels);

    std::mutex m_mutex;
    LevelBatch m_batch;
    values::ChannelRangeDefinition m_grid; // of the trace before
    quint64 m_generation = 0;
};

/// A whole direction-finding map at one time.
struct DfPicture {
    values::ChannelRangeDefinition grid;
    TraceInfo info;
    std::vector<values::DFSpectrumSample::Fields> samples;
};

/// One thing that another thread looks at; a newer one takes the place of the one that was not taken.
template <typename T>
class Latest {
public:
    /// Result: whether nothing was waiting.
    [[nodiscard]] bool put(std::shared_ptr<const T> thing)
    {
        const std::lock_guard lock{m_mutex};
        std::swap(m_thing, thing);
        return !thing;
    }

    /// Null when there is nothing new.
    [[nodiscard]] std::shared_ptr<const T> take()
    {
        const std::lock_guard lock{m_mutex};
        return std::exchange(m_thing, nullptr);
    }

private:
    std::mutex m_mutex;
    std::shared_ptr<const T> m_thing;
};

} // namespace pageserver
