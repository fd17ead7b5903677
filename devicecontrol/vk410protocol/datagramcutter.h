// SPDX-License-Identifier: MIT
#pragma once
// Cuts a stream of bytes into datagrams by the length in each one's header.
#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <memory>
#include <optional>

/// Takes bytes from a device as they arrive. No magic is asked for: that is the dispatcher's.
/// Owner:  the device is the caller's and lives as long as the cutter.
/// Thread: that of the device.
class DatagramCutter {
public:
    using Bytes = std::unique_ptr<QByteArray>;

    explicit DatagramCutter(QIODevice& device);

    /// The longest datagram that is believed.
    void setMaxSize(quint32 bytes) { m_maxSize = bytes; }

    /// The next whole datagram, two spare bytes reserved behind it; null: more bytes have to come, or the
    /// stream is broken.
    [[nodiscard]] Bytes next();

    /// The length of the header at which the stream was given up: it cannot be true, or there is no memory
    /// for it. Nothing is taken from the device any more.
    [[nodiscard]] std::optional<quint32> brokenAt() const { return m_brokenAt; }

    /// Why the stream was given up; empty while it is sound.
    [[nodiscard]] QString reason() const { return m_reason; }

    /// Whether the device holds bytes that `next` would take.
    [[nodiscard]] bool canContinue() const;

    /// Whether the device holds the rest of a datagram, or the header of another.
    [[nodiscard]] bool mayHaveWhole() const;

private:
    [[nodiscard]] bool begin();
    void takeBytes();
    void giveUp(quint32 length, const QString& reason);

    QIODevice& m_device;
    quint32 m_maxSize;
    Bytes m_buffer;      // the datagram being assembled; null between datagrams
    quint32 m_total = 0; // its length from its header
    std::optional<quint32> m_brokenAt;
    QString m_reason;
};
