// SPDX-License-Identifier: MIT
#pragma once
// How often a session that nobody watches says how it is: a journal keeps every line.
#include <QtGlobal>

namespace receiver {

/// What a change of is worth a line.
struct Condition {
    bool isSilent = true; // nothing came for a while
    quint64 losses = 0;   // so far
};

/// Picks the moments out of one look a second. Thread: any one.
class StatusPace {
public:
    /// Between two lines while nothing changes.
    static constexpr double calmSeconds = 60;

    /// Losses that go on are told as often as this.
    static constexpr double lossSeconds = 10;

    /// Whether `now`, `seconds` after the start, is to be told: the first time, when data comes or stays
    /// away, when something more was lost, else once in `calmSeconds`.
    [[nodiscard]] bool isDue(const Condition& now, double seconds);

private:
    bool m_isFirst = true;
    Condition m_told;
    double m_toldAt = 0;
};

} // namespace receiver
