// SPDX-License-Identifier: MIT
#pragma once
// A stream whose bytes arrive in pieces, without sockets.
#include "wire/datagramwriter.h"
#include <QIODevice>
#include <algorithm>
#include <vector>

namespace support {

/// Has the first piece at once; `arrive` brings the others.
class ChunkedDevice : public QIODevice {
public:
    explicit ChunkedDevice(std::vector<wire::Bytes> pieces)
        : m_pieces(std::move(pieces))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
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

    [[nodiscard]] bool isSequential() const override { return true; }
    [[nodiscard]] qint64 bytesAvailable() const override
    {
        return static_cast<qint64>(m_there.size() - m_taken);
    }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        const qint64 count = std::min(size, bytesAvailable());
        std::copy_n(m_there.begin() + static_cast<std::ptrdiff_t>(m_taken), count, data);
        m_taken += static_cast<std::size_t>(count);
        return count;
    }
    qint64 writeData(const char* /*data*/, qint64 /*size*/) override { return -1; }

private:
    std::vector<wire::Bytes> m_pieces;
    std::size_t m_next = 0;
    std::vector<unsigned char> m_there;
    std::size_t m_taken = 0;
};

} // namespace support
