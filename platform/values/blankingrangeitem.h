// SPDX-License-Identifier: MIT
#pragma once
// Live state of one blanking range.
#include <QString>
#include <QtGlobal>

namespace values {

/// A blanking range, and whether the receiver reported it blanked in this sweep.
class Q_DECL_EXPORT BlankingRangeItem {
public:
    BlankingRangeItem() = default;
    /// Limits in Hz, a map stamp, and whether it is blanked.
    BlankingRangeItem(quint64 begin, quint64 end, quint64 timeStamp, bool blanked)
        : m_begin(begin)
        , m_end(end)
        , m_timeStamp(timeStamp)
        , m_blanked(blanked)
    {}

    [[nodiscard]] quint64 GetBegin() const { return m_begin; }         // Hz
    [[nodiscard]] quint64 GetEnd() const { return m_end; }             // Hz
    [[nodiscard]] quint64 GetTimeStamp() const { return m_timeStamp; } // of the last change; map stamp
    /// Whether the receiver reported it blanked in this sweep.
    [[nodiscard]] bool IsBlanked() const { return m_blanked; }
    bool operator==(const BlankingRangeItem& other) const = default;

    /// "88000000-108000000 Hz blanked @17".
    [[nodiscard]] QString ToText() const
    {
        return QStringLiteral("%1-%2 Hz %3 @%4")
            .arg(m_begin)
            .arg(m_end)
            .arg(m_blanked ? QStringLiteral("blanked") : QStringLiteral("open"))
            .arg(m_timeStamp);
    }

private:
    quint64 m_begin = 0;
    quint64 m_end = 0;
    quint64 m_timeStamp = 0;
    bool m_blanked = false;
};

} // namespace values
