// SPDX-License-Identifier: MIT
#pragma once
// Max, min, average and hold of a stream of level traces.
#include "toolkit/pageserver/handover.h"
#include <array>
#include <vector>

namespace pageserver {

/// Kept from every trace, so that a viewer who comes late sees the true ones. Another grid begins them anew.
class Holds {
public:
    static constexpr unsigned mostAveraged = 10'000;
    static constexpr qint64 holdNs = 5'000'000'000;

    void add(const LevelBatch& batch);

    /// Max, min and hold begin anew with the next trace.
    void reset();

    /// 1 to `mostAveraged`: older traces fade as if that many were kept. The average begins anew.
    void setAveraged(unsigned traces);

    // Values of each channel; values::noLevel where there was none.
    [[nodiscard]] const std::vector<short>& max() const { return m_max; }
    [[nodiscard]] const std::vector<short>& min() const { return m_min; }
    [[nodiscard]] std::vector<short> average() const;
    /// The highest of the last 5 s, to half a second.
    [[nodiscard]] std::vector<short> hold() const;

    [[nodiscard]] unsigned averagedSoFar() const { return m_averagedSoFar; }
    /// When the first trace of max and min was received.
    [[nodiscard]] qint64 sinceNs() const { return m_sinceNs; }

private:
    // The highest of one part of the time.
    struct Slice {
        qint64 number = -1; // of the slice since 1970
        std::vector<short> highest;
    };
    static constexpr qint64 sliceNs = holdNs / 10;

    void begin(const LevelBatch& batch);
    void addToAverage(const LevelBatch& batch);

    quint64 m_generation = 0; // of the grid
    std::vector<short> m_max;
    std::vector<short> m_min;
    std::array<Slice, 11> m_slices; // the last 10, and the one that fills
    qint64 m_newestSlice = 0;
    std::vector<float> m_mean;
    std::vector<float> m_counted;
    unsigned m_window = 16;
    unsigned m_averagedSoFar = 0;
    qint64 m_sinceNs = 0;
};

} // namespace pageserver
