// SPDX-License-Identifier: MIT
#pragma once
// What the sequence numbers of a stream say about its way: lost, doubled and late datagrams.
#include <bitset>
#include <cstdint>

namespace ledger {

/// Counts by the 16-bit sequence numbers of one sender, which wrap.
class SequenceTracker {
public:
    /// Takes the number of the next datagram received.
    void take(std::uint16_t sequence);

    /// How many would be missing right before `sequence`, if it came next.
    [[nodiscard]] std::uint64_t gapBefore(std::uint16_t sequence) const;

    /// The next number starts a new sequence.
    void restart() { m_started = false; }

    /// Nothing has come for longer than a network holds anything back: a number that lies behind is no late
    /// one, its sender began anew.
    void followSilence() { m_isAfterSilence = true; }

    /// Datagrams that never came. A late one takes its count back.
    [[nodiscard]] std::uint64_t lost() const { return m_lost; }
    [[nodiscard]] std::uint64_t duplicates() const { return m_duplicates; }
    /// Datagrams that came after a later one.
    [[nodiscard]] std::uint64_t reordered() const { return m_reordered; }
    /// Jumps backwards by more than a network reorders: the sender began anew.
    [[nodiscard]] std::uint64_t restarts() const { return m_restarts; }

private:
    // How far behind the newest number a late datagram is still believed to be late.
    static constexpr int window = 1'024;

    void skipTo(std::uint16_t sequence);

    std::bitset<65'536> m_missing; // numbers that were skipped and may still come
    std::uint16_t m_expected = 0;
    bool m_started = false;
    bool m_isAfterSilence = false;
    std::uint64_t m_lost = 0;
    std::uint64_t m_duplicates = 0;
    std::uint64_t m_reordered = 0;
    std::uint64_t m_restarts = 0;
};

} // namespace ledger
