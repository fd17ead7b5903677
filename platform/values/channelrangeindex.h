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
        const std::size_t count = leading(m_lows, [x](double low) { return low <= x; });
        if (count == 0)
            return;
        const Span& last = m_spans[count - 1];
        if (last.high >= x)
            action(last.range);
        if (last.highestBefore < x)
            return; // as in all grids without overlap
        std::size_t width = 1;
        for (std::size_t level = 1; level < m_highest.size(); ++level)
            width *= fanOut;
        visit(m_highest.size() - 1, 0, width, count - 1, x, action);
    }

private:
    static constexpr std::size_t fanOut = 8;

    // Ids begin to end - 1, of which `range` is the first holder.
    struct Segment {
        quint64 begin;
        quint64 end;
        std::size_t range;
    };
    // A range on the axis; where it begins stands in `m_lows`.
    struct Span {
        double high;
        double highestBefore; // the highest `high` of all spans that begin before this one
        std::size_t range;
    };

    // How many items `holds` is true for, which are the first ones. A binary search without branches: a
    // processor would guess half of them wrongly.
    template <typename Item, typename Predicate>
    static std::size_t leading(const std::vector<Item>& items, const Predicate& holds)
    {
        std::size_t first = 0;
        std::size_t left = items.size();
        while (left > 1) {
            const std::size_t half = left / 2;
            first += half * static_cast<std::size_t>(holds(items[first + half - 1]));
            left -= half;
        }
        return first + static_cast<std::size_t>(left == 1 && holds(items[first]));
    }

    // Looks below one block for spans with `high` >= x among the first `count` spans, which have `low` <= x.
    // `width` is the number of spans below each child of the block.
    template <typename Action>
    void visit(std::size_t level, std::size_t block, std::size_t width, std::size_t count, double x,
               const Action& action) const
    {
        if (m_highest[level][block] < x)
            return;
        const std::size_t begin = block * fanOut;
        const std::size_t end = std::min(begin + fanOut, (count + width - 1) / width);
        for (std::size_t child = begin; child < end; ++child) {
            if (level > 0)
                visit(level - 1, child, width / fanOut, count, x, action);
            else if (m_spans[child].high >= x)
                action(m_spans[child].range);
        }
    }

    void addIds(const ChannelRange& range);
    void addSpan(const ChannelRange& range);
    void updateHighestBefore(std::size_t from);
    void updateHighest(std::size_t from);

    std::vector<Segment> m_segments;            // ascending, without overlap
    std::vector<double> m_lows;                 // ascending; alone, so that a search touches little memory
    std::vector<Span> m_spans;                  // which begin at `m_lows`
    std::vector<std::vector<double>> m_highest; // [level][block]: the highest `high` below that block
    std::size_t m_size = 0;
};

} // namespace values
