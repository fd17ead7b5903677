// SPDX-License-Identifier: MIT
#pragma once
// Search structures of a channel grid with many ranges.
#include "values/channelrangedefinition.h"
#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

namespace values {

/// Finds ranges by channel id and by position. Kept up to date range by range, so that look-ups only read.
class ChannelRangeIndex {
public:
    /// Takes the next range of the grid in. Ranges in ascending order cost logarithmic time.
    void add(const ChannelRange& range);

    /// Number of ranges taken in.
    [[nodiscard]] std::size_t size() const { return m_size; }

    /// The first range that holds `id`.
    [[nodiscard]] std::optional<std::size_t> rangeHolding(unsigned int id) const;

    /// Calls `action(number)` for every range that contains `x`, in any order.
    template <typename Action>
    void forEachContaining(double x, const Action& action) const
    {
        const auto end = std::upper_bound(m_spans.begin(), m_spans.end(), x,
                                          [](double value, const Span& span) { return value < span.low; });
        const auto count = static_cast<std::size_t>(end - m_spans.begin());
        if (count == 0)
            return;
        const std::size_t top = m_highest.size() - 1;
        for (std::size_t block = 0; block < m_highest[top].size(); ++block)
            visit(top, block, count, x, action);
    }

private:
    static constexpr std::size_t fanOut = 8;

    // Ids begin to end - 1, of which `range` is the first holder.
    struct Segment {
        quint64 begin;
        quint64 end;
        std::size_t range;
    };
    struct Span {
        double low;
        double high;
        std::size_t range;
    };

    template <typename Action>
    void visit(std::size_t level, std::size_t block, std::size_t count, double x, const Action& action) const
    {
        if (m_highest[level][block] < x)
            return;
        const std::size_t begin = block * fanOut;
        if (level == 0) {
            const std::size_t end = std::min(begin + fanOut, count);
            for (std::size_t i = begin; i < end; ++i) {
                if (m_spans[i].high >= x)
                    action(m_spans[i].range);
            }
            return;
        }
        const std::size_t end = std::min(begin + fanOut, m_highest[level - 1].size());
        for (std::size_t child = begin; child < end; ++child)
            visit(level - 1, child, count, x, action);
    }

    void addIds(const ChannelRange& range);
    void addSpan(const ChannelRange& range);
    void updateHighest(std::size_t from);

    std::vector<Segment> m_segments;            // ascending, without overlap
    std::vector<Span> m_spans;                  // ascending by `low`
    std::vector<std::vector<double>> m_highest; // [level][block]: the highest `high` below that block
    std::size_t m_size = 0;
};

} // namespace values
