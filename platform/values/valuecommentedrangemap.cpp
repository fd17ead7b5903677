// SPDX-License-Identifier: MIT
#include "values/valuecommentedrangemap.h"
#include "values/formats.h"
#include <cmath>

namespace values {

template class ValueFrequencyItemMap<CommentedRange>;
template class ValueFrequencyItemMap<BlankingRangeItem>;

QString CommentedRange::ToText() const
{
    return QStringLiteral("%1-%2 Hz %3")
        .arg(FormatNumber<double>::toText(m_start), FormatNumber<double>::toText(m_stop), m_comment)
        .trimmed();
}

ValueCommentedRangeMap::ValueCommentedRangeMap(const QString& name)
    : ValueFrequencyItemMap<CommentedRange>(name)
{}

int ValueCommentedRangeMap::AddRange(double start, double stop, const QString& comment, IObserver* originator)
{
    return SetRange(m_nextId, start, stop, comment, originator);
}

int ValueCommentedRangeMap::SetRange(RangeId id, double start, double stop, const QString& comment,
                                     IObserver* originator)
{
    if (std::isnan(start) || std::isnan(stop))
        throw NQException(QStringLiteral("An end of the range is not a number"),
                          QStringLiteral("values::ValueCommentedRangeMap"),
                          QStringLiteral("values/valuecommentedrangemap"), QStringLiteral("SetRange"),
                          __LINE__);
    if (id <= maxId) // before observers are told: they may add ranges, too
        m_nextId = std::max(m_nextId, id + 1);
    return SetItem(id, CommentedRange{start, stop, comment}, originator);
}

} // namespace values
