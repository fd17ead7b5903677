// SPDX-License-Identifier: MIT
#include "values/rangechangelog.h"
#include "nqbase/nqexception.h"

namespace values {

void RangeChangeLog::Append(const RangeChange& change)
{
    m_changes.push_back(change);
    forget();
}

const RangeChange& RangeChangeLog::GetChange(quint64 index) const
{
    if (index < m_oldest || index >= GetTotalCount())
        throw NQException(QStringLiteral("Change %1 is not in the log, which holds %2 to %3")
                              .arg(index)
                              .arg(m_oldest)
                              .arg(GetTotalCount()),
                          QStringLiteral("values::RangeChangeLog"), QStringLiteral("values/rangechangelog"),
                          QStringLiteral("GetChange"), __LINE__);
    return m_changes[static_cast<std::size_t>(index - m_oldest)];
}

void RangeChangeLog::SetLength(std::size_t length)
{
    m_length = length;
    forget();
}

void RangeChangeLog::forget()
{
    while (m_changes.size() > m_length) {
        m_changes.pop_front();
        ++m_oldest;
    }
}

} // namespace values
