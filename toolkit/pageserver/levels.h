// SPDX-License-Identifier: MIT
#pragma once
// Operations on whole traces of levels, in which values::noLevel is a gap.
#include "values/levels.h"
#include <algorithm>
#include <span>

namespace pageserver {

// Plain loops over plain arrays, so that the compiler makes vectors of them.

/// Raises each of `highest` to the level, where that is higher.
inline void raise(std::span<short> highest, std::span<const short> levels)
{
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const short held = highest[i];
        const short level = levels[i];
        const bool wins = (level != values::noLevel) & ((held == values::noLevel) | (level > held));
        highest[i] = wins ? level : held;
    }
}

/// Lowers each of `lowest` to the level, where that is lower.
inline void lower(std::span<short> lowest, std::span<const short> levels)
{
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const short held = lowest[i];
        const short level = levels[i];
        const bool wins = (level != values::noLevel) & ((held == values::noLevel) | (level < held));
        lowest[i] = wins ? level : held;
    }
}

/// Takes a trace into means of `counted` traces each. Older ones fade as if `window` of them were
/// kept.
inline void addToMeans(std::span<float> means, std::span<float> counted, std::span<const short> levels,
                       float window)
{
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const float isThere = levels[i] == values::noLevel ? 0.0F : 1.0F;
        const float count = std::min(counted[i] + isThere, window);
        means[i] += isThere * (static_cast<float>(levels[i]) - means[i]) / std::max(count, 1.0F);
        counted[i] = count;
    }
}

} // namespace pageserver
