// SPDX-License-Identifier: MIT
#pragma once
// A channel grid without any cleverness, to compare the real one with: every question walks all channels.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

namespace support {

class GridModel {
public:
    struct Range {
        unsigned int first;
        unsigned int count;
        double start;
        double step;

        [[nodiscard]] double position(unsigned int k) const { return start + k * step; }
        [[nodiscard]] double last() const { return position(count - 1); }
        [[nodiscard]] bool contains(double x) const
        {
            return count > 0 && ((start <= x && x <= last()) || (last() <= x && x <= start));
        }
        [[nodiscard]] unsigned int nearest(double x) const
        {
            unsigned int best = 0;
            if (!std::isfinite(step))
                return best;
            for (unsigned int k = 1; k < count; ++k) {
                if (distance(k, x) < distance(best, x))
                    best = k;
            }
            return best;
        }

    private:
        [[nodiscard]] double distance(unsigned int k, double x) const
        {
            return position(k) == x ? 0.0 : std::abs(position(k) - x);
        }
    };

    /// False when the grid must refuse the range.
    bool add(const Range& range)
    {
        const std::uint64_t limit = std::uint64_t{1} << 31;
        if (std::uint64_t{range.first} + range.count > limit || count() + range.count > limit)
            return false;
        ranges.push_back(range);
        return true;
    }

    [[nodiscard]] std::uint64_t count() const
    {
        std::uint64_t sum = 0;
        for (const Range& range : ranges)
            sum += range.count;
        return sum;
    }

    [[nodiscard]] unsigned int minId() const
    {
        std::optional<unsigned int> least;
        for (const Range& range : ranges) {
            if (range.count > 0)
                least = std::min(least.value_or(range.first), range.first);
        }
        return least.value_or(0);
    }

    [[nodiscard]] unsigned int maxId() const
    {
        unsigned int most = 0;
        for (const Range& range : ranges) {
            if (range.count > 0)
                most = std::max(most, range.first + range.count - 1);
        }
        return most;
    }

    [[nodiscard]] const Range* holder(unsigned int id) const
    {
        for (const Range& range : ranges) {
            for (unsigned int k = 0; k < range.count; ++k) {
                if (range.first + k == id)
                    return &range;
            }
        }
        return nullptr;
    }

    [[nodiscard]] std::vector<unsigned int> closest(double x) const
    {
        std::vector<unsigned int> ids;
        for (const Range& range : ranges) {
            if (range.contains(x))
                ids.push_back(range.first + range.nearest(x));
        }
        return ids;
    }

    [[nodiscard]] std::vector<unsigned int> between(double x, double y) const
    {
        std::vector<unsigned int> ids;
        for (const Range& range : ranges) {
            if (!range.contains(x))
                continue;
            const unsigned int from = range.nearest(x);
            const double limited = std::min(std::max(y, std::min(range.start, range.last())),
                                            std::max(range.start, range.last()));
            const unsigned int to = std::isnan(y) ? from : range.nearest(limited);
            for (unsigned int k = from; k != to; from < to ? ++k : --k)
                ids.push_back(range.first + k);
            ids.push_back(range.first + to);
        }
        return ids;
    }

    [[nodiscard]] unsigned int findFirst(double start, double step, double stop) const
    {
        for (const Range& range : ranges) {
            if (range.contains(start) && range.contains(stop) && range.step == step)
                return range.first;
        }
        for (const Range& range : ranges) {
            if (range.contains(start) && range.contains(stop))
                return range.first;
        }
        return minId();
    }

    std::vector<Range> ranges;
};

} // namespace support
