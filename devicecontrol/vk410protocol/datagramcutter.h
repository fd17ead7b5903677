// SPDX-License-Identifier: MIT
#pragma once
// Cuts a stream of bytes into datagrams by the length in each one's header.
#include <QByteArray>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

/// Takes bytes as they arrive. No magic is asked for: that is the dispatcher's.
/// Thread: any, one at a time.
class DatagramCutter {
public:
    using Bytes = std::unique_ptr<QByteArray>;
    /// Puts up to so many bytes that have arrived in a place, without waiting. Result: how many; 0: none are
    /// there.
    using Read = std::function<qint64(char*, qint64)>;

    explicit DatagramCutter(Read read);

    /// Another stream begins: what was read of the one before is forgotten.
    void restart();

    /// The longest datagram that is believed.
    void setMaxSize(quint32 bytes) { m_maxSize = bytes; }

    /// The next whole datagram, two spare bytes reserved behind it; null: more bytes have to arrive, or the
    /// stream is broken.
    [[nodiscard]] Bytes next();

    /// The length of the header at which the stream was given up: it cannot be true, or there is no memory
    /// for it. Nothing is read any more.
    [[nodiscard]] std::optional<quint32> brokenAt() const { return m_brokenAt; }

    /// Why the stream was given up; empty while it is sound.
    [[nodiscard]] QString reason() const { return m_reason; }

    /// Whether a datagram may be whole with `unread` bytes more than were read so far.
    [[nodiscard]] bool mayHaveWhole(qint64 unread) const;

    /// What was read of a header that is not whole, at most 15 bytes.
    [[nodiscard]] QByteArray partOfHeader() const;
    void forgetPartOfHeader();

private:
    [[nodiscard]] qint64 held() const { return m_chunkEnd - m_chunkBegin; }
    [[nodiscard]] bool hasPartOfHeader() const;
    [[nodiscard]] qint64 missing() const { return qint64{m_total} - m_buffer->size(); }
    [[nodiscard]] bool begin();
    void take();
    [[nodiscard]] bool readMore();
    [[nodiscard]] bool readIntoChunk();
    [[nodiscard]] bool readIntoDatagram();
    void giveUp(quint32 length, const QString& reason);

    Read m_read;
    quint32 m_maxSize;
    std::unique_ptr<char[]> m_chunk; // what was read and not yet cut
    qint64 m_chunkBegin = 0;
    qint64 m_chunkEnd = 0;
    Bytes m_buffer;      // the datagram being assembled; null between datagrams
    quint32 m_total = 0; // its length from its header
    std::optional<quint32> m_brokenAt;
    QString m_reason;
};
