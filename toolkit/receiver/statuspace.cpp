// SPDX-License-Identifier: MIT
#include "toolkit/receiver/statuspace.h"

namespace receiver {

bool StatusPace::isDue(const Condition& now, double seconds)
{
    const double since = seconds - m_toldAt;
    const bool isTurn = now.isSilent != m_told.isSilent;
    const bool isLoss = now.losses != m_told.losses && since >= lossSeconds;
    if (!m_isFirst && !isTurn && !isLoss && since < calmSeconds)
        return false;
    m_isFirst = false;
    m_told = now;
    m_toldAt = seconds;
    return true;
}

} // namespace receiver
