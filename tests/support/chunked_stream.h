// SPDX-License-Identifier: MIT
#pragma once
// A stream whose bytes arrive in pieces, without sockets.
#include "wire/datagramwriter.h"
#include <algorithm>
#include <cstdint>
#include <vector>

namespace support {

/// Has the first piece at once; `arrive` brings the others.
class ChunkedStream {
public:
    explicit ChunkedStream(std::vector<wire::Bytes> pieces)
        : m_pieces(std::move(pieces))
    {
        arrive();
    }

    /// Brings the next piece. Result: whether there was one.
    bool arrive()
    {
        if (m_next == m_pieces.size())
            return false;
        const wire::Bytes& piece = m_pieces[m_next++];
        m_there.insert(m_there.end(), piece.begin(), piece.end());
        return true;
    }

    /// Takes up to `size` bytes that have arrived.
    long long read(char* to, long long size)
    {
        const long long count = std::min<long long>(size, unread());
        std::copy_n(m_there.begin() + static_cast<std::ptrdiff_t>(m_taken), count, to);
        m_taken += static_cast<std::size_t>(count);
        return count;
    }

    [[nodiscard]] long long unread() const { return static_cast<long long>(m_there.size() - m_taken); }

private:
    std::vector<wire::Bytes> m_pieces;
    std::size_t m_next = 0;
    wire::Bytes m_there;
    std::size_t m_taken = 0;
};

} // namespace support
