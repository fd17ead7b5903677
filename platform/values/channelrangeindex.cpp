// SPDX-License-Identifier: MIT
#include "values/channelrangeindex.h"
#include <limits>

namespace values {

void ChannelRangeIndex::add(const ChannelRange& range)
{
    if (range.count != 0) {
        addIds(range);
        addSpan(range);
    }
    ++m_size;
}

std::optional<std::size_t> ChannelRangeIndex::rangeHolding(unsigned int id) const
{
    const std::size_t found = leading(m_segments, [id](const Segment& s) { return s.end <= id; });
    if (found == m_segments.size() || m_segments[found].begin > id)
        return std::nullopt;
    return m_segments[found].range;
}

// Earlier ranges keep their ids: the new one gets what lies between them.
void ChannelRangeIndex::addIds(const ChannelRange& range)
{
    const quint64 end = quint64{range.firstChannel} + range.count;
    quint64 next = range.firstChannel;
    const std::size_t oldCount = m_segments.size();
    std::size_t first = leading(m_segments, [next](const Segment& s) { return s.end <= next; });
    for (; first < oldCount && m_segments[first].begin < end; ++first) {
        const Segment taken = m_segments[first];
        if (next < taken.begin)
            m_segments.push_back({next, taken.begin, m_size});
        next = taken.end;
    }
    if (next < end)
        m_segments.push_back({next, end, m_size});
    if (oldCount == 0 || oldCount == m_segments.size() ||
        m_segments[oldCount - 1].end <= m_segments[oldCount].begin)
        return; // in order already
    std::inplace_merge(m_segments.begin(), m_segments.begin() + static_cast<std::ptrdiff_t>(oldCount),
                       m_segments.end(),
                       [](const Segment& a, const Segment& b) { return a.begin < b.begin; });
}

void ChannelRangeIndex::addSpan(const ChannelRange& range)
{
    const double last = range.position(range.count - 1);
    if (!(range.start <= last) && !(last <= range.start))
        return; // a limit is not a number: it contains nothing
    const double low = std::min(range.start, last);
    const std::size_t from = leading(m_lows, [low](double other) { return other <= low; });
    const auto offset = static_cast<std::ptrdiff_t>(from);
    m_lows.insert(m_lows.begin() + offset, low);
    m_spans.insert(m_spans.begin() + offset, {std::max(range.start, last), 0.0, m_size});
    updateHighestBefore(from);
    updateHighest(from);
}

void ChannelRangeIndex::updateHighestBefore(std::size_t from)
{
    double highest = -std::numeric_limits<double>::infinity();
    if (from > 0)
        highest = std::max(m_spans[from - 1].highestBefore, m_spans[from - 1].high);
    for (std::size_t i = from; i < m_spans.size(); ++i) {
        m_spans[i].highestBefore = highest;
        highest = std::max(highest, m_spans[i].high);
    }
}

void ChannelRangeIndex::updateHighest(std::size_t from)
{
    const auto blocksFor = [](std::size_t count) { return (count + fanOut - 1) / fanOut; };
    std::size_t count = m_spans.size();
    for (std::size_t level = 0; level == 0 || count > 1; ++level) {
        if (level == m_highest.size())
            m_highest.emplace_back();
        std::vector<double>& highest = m_highest[level];
        highest.resize(blocksFor(count));
        from /= fanOut;
        for (std::size_t block = from; block < highest.size(); ++block) {
            double most = -std::numeric_limits<double>::infinity();
            const std::size_t end = std::min((block + 1) * fanOut, count);
            for (std::size_t i = block * fanOut; i < end; ++i)
                most = std::max(most, level == 0 ? m_spans[i].high : m_highest[level - 1][i]);
            highest[block] = most;
        }
        count = highest.size();
    }
}

} // namespace values
