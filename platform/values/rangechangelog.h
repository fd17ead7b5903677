// SPDX-License-Identifier: MIT
#pragma once
// What happened to a map of ranges, in order, so that a follower can catch up without comparing everything.
#include <QtGlobal>
#include <cstddef>
#include <deque>

namespace values {

/// Names a range within its map.
using RangeId = unsigned int;

/// One change of a range map. Kinds other than the named ones are kept and handed on.
struct RangeChange {
    /// The kinds that range maps log themselves.
    static constexpr int addedOrChanged = 1;
    static constexpr int removed = 2;
    static constexpr int cleared = 3; // the id says nothing

    int kind;   // what happened
    RangeId id; // of the range that it happened to
    bool operator==(const RangeChange& other) const = default;
};

/// The newest changes of a range map. Changes are counted from the first one ever, which has index 0; the
/// oldest ones are forgotten when the log is full.
class Q_DECL_EXPORT RangeChangeLog {
public:
    /// Changes that a log keeps unless it is told otherwise.
    static constexpr std::size_t defaultLength = 1000;

    /// Adds a change, and forgets the oldest one where the log is full.
    void Append(const RangeChange& change);

    /// Number of changes ever; one more than the index of the newest.
    [[nodiscard]] quint64 GetTotalCount() const { return m_oldest + m_changes.size(); }

    /// Index of the oldest change still here; the total count when the log is empty.
    [[nodiscard]] quint64 GetOldestIndex() const { return m_oldest; }

    /// Whether no change is kept.
    [[nodiscard]] bool empty() const { return m_changes.empty(); }

    /// Errors: NQException for an index that is not here.
    /// The change with that index.
    [[nodiscard]] const RangeChange& GetChange(quint64 index) const;

    /// How many changes are kept. Shortening forgets the oldest ones; 0 keeps none.
    void SetLength(std::size_t length);

private:
    void forget();

    std::deque<RangeChange> m_changes;
    quint64 m_oldest = 0;
    std::size_t m_length = defaultLength;
};

} // namespace values
