// SPDX-License-Identifier: MIT
#pragma once
// Frequency ranges that an operator configured, each with a comment.
#include "values/valuefrequencyitemmap.h"
#include <algorithm>

namespace values {

/// A frequency range with both ends, and a comment. Ends given the wrong way round are put in order.
class Q_DECL_EXPORT CommentedRange {
public:
    /// From 0 to 0 Hz, without a comment.
    CommentedRange() = default;
    /// Ends in Hz, in either order.
    CommentedRange(double start, double stop, const QString& comment = {})
        : m_start(std::min(start, stop))
        , m_stop(std::max(start, stop))
        , m_comment(comment)
    {}

    [[nodiscard]] double GetRangeStart() const { return m_start; } // Hz
    [[nodiscard]] double GetRangeStop() const { return m_stop; }   // Hz
    /// What the operator wrote.
    [[nodiscard]] const QString& GetComment() const { return m_comment; }
    bool operator==(const CommentedRange& other) const = default;

    /// "88000000-108000000 Hz FM broadcast".
    [[nodiscard]] QString ToText() const;

private:
    double m_start = 0.0;
    double m_stop = 0.0;
    QString m_comment;
};

/// Commented ranges by id.
class Q_DECL_EXPORT ValueCommentedRangeMap : public ValueFrequencyItemMap<CommentedRange> {
public:
    /// A map without ranges.
    explicit ValueCommentedRangeMap(const QString& name);

    /// Adds a range under an id that was never used before, and notifies with 7. Returns the id.
    /// Errors: NQException when an end is not a number, or no id is left; nothing changes then.
    int AddRange(double start, double stop, const QString& comment = {}, IObserver* originator = nullptr);

    /// Stores a range under `id`, as `SetItem`. Returns the id.
    /// Errors: NQException when an end is not a number or the id is too large; nothing changes then.
    int SetRange(RangeId id, double start, double stop, const QString& comment = {},
                 IObserver* originator = nullptr);

    /// The operations of the base class, by the names of ranges.
    bool RemoveRange(RangeId id, IObserver* originator = nullptr) { return RemoveItem(id, originator); }

    /// All ranges, and one by its id or null, as `GetItems` and `FindItem`.
    [[nodiscard]] const std::map<RangeId, CommentedRange>& GetRanges() const { return GetItems(); }
    [[nodiscard]] const CommentedRange* FindRange(RangeId id) const { return FindItem(id); }

private:
    RangeId m_nextId = 1;
};

extern template class ValueFrequencyItemMap<CommentedRange>;
extern template class ValueFrequencyItemMap<BlankingRangeItem>;

} // namespace values
