// SPDX-License-Identifier: MIT
#include "toolkit/ledger/sequencetracker.h"
#include <utility>

namespace ledger {

void SequenceTracker::take(std::uint16_t sequence)
{
    const auto ahead = static_cast<std::int16_t>(static_cast<std::uint16_t>(sequence - m_expected));
    const int furthestBack = std::exchange(m_isAfterSilence, false) ? 0 : -window;
    if (!m_started || ahead < furthestBack) {
        m_restarts += m_started ? 1 : 0;
        m_missing.reset();
        m_started = true;
        m_expected = static_cast<std::uint16_t>(sequence + 1);
        return;
    }
    if (ahead >= 0)
        return skipTo(sequence);
    if (!m_missing[sequence]) {
        ++m_duplicates;
        return;
    }
    m_missing[sequence] = false;
    ++m_reordered;
    --m_lost;
}

std::uint64_t SequenceTracker::gapBefore(std::uint16_t sequence) const
{
    const auto ahead = static_cast<std::int16_t>(static_cast<std::uint16_t>(sequence - m_expected));
    return m_started && ahead > 0 ? static_cast<std::uint64_t>(ahead) : 0;
}

void SequenceTracker::skipTo(std::uint16_t sequence)
{
    for (; m_expected != sequence; ++m_expected) {
        m_missing[m_expected] = true;
        ++m_lost;
    }
    m_missing[sequence] = false;
    // What has left the window was lost for good; its number may come again as another datagram's.
    ++m_expected;
    m_missing[static_cast<std::uint16_t>(m_expected - window - 1)] = false;
}

} // namespace ledger
