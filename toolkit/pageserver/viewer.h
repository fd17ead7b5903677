// SPDX-License-Identifier: MIT
#pragma once
// One viewer: what it wants, what it has got, and what it may get now.
#include "toolkit/pageserver/board.h"
#include "toolkit/pageserver/commands.h"
#include "toolkit/pageserver/messages.h"
#include "toolkit/pageserver/streams.h"
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <array>
#include <atomic>
#include <memory>

class QWebSocket;

namespace pageserver {

/// What all viewers look at.
struct Showcase {
    About about;
    Board board;
    Streams streams;
    quint64 emittersNumber = 0; // grows with each look at the emitters
    QString emitters{};         // what was seen then, as all viewers get it
    int viewers = 0;
};

/// Sends the newest of everything as fast as the viewer reads and wants it. Nothing is queued for it but what
/// its socket holds: what it is too slow for, it never gets, and the number of such frames is told.
/// Thread: the page's.
class Viewer : public QObject {
    Q_OBJECT

public:
    /// While more waits in the socket, nothing is sent.
    static constexpr qint64 roomBytes = 256 * 1024;
    static constexpr qint64 stalledMilliseconds = 60'000;

    /// Owner: the showcase is borrowed. `skippedByAll` counts the frames that it is not sent, too.
    Viewer(std::unique_ptr<QWebSocket> socket, Showcase& showcase, std::atomic<quint64>& skippedByAll);
    ~Viewer() override;

    /// Sends what is newer than what was sent.
    void pump();

    void subscribe(const Subscribe& wish);

    /// An answer to this viewer alone; dropped when it does not read.
    void tell(const messages::Json& message);

    /// The newest frames are not what they should be any more: it gets them again.
    void outdate();

    /// Whether its connection is over; it may have been before the viewer was there.
    [[nodiscard]] bool isGone() const;

    /// Whether it has read nothing for a minute although something waited for it.
    [[nodiscard]] bool isStalled() const;

    /// Bytes that wait for it in this process.
    [[nodiscard]] qint64 waitingBytes() const;

    /// Ends the connection, without waiting for it.
    void cut();

    [[nodiscard]] quint64 skipped() const;

signals:
    void asked(const QString& text);
    void left();

private:
    // The frames of one stream.
    struct Sent {
        quint64 number = 0; // of the last trace; 0: none
        quint64 lost = 0;   // datagrams on the wire, when that one was made
        quint64 missed = 0; // traces since that one, but for the newest; counted as skipped already
        quint64 skipped = 0;
        qint64 dueNs = 0;        // not before; by m_clock
        bool isOutdated = false; // sent, but not with the arrays that are wanted now
    };

    [[nodiscard]] bool hasRoom() const;
    void send(const messages::Json& message);
    void countMissed(Stream stream);
    void sendTexts();
    void sendFrames();
    void sendFrame(Stream stream, Sent& sent);
    [[nodiscard]] Sent& of(Stream stream) { return m_sent[static_cast<std::size_t>(stream)]; }

    std::unique_ptr<QWebSocket> m_socket;
    Showcase& m_showcase;
    std::atomic<quint64>& m_skippedByAll;
    Subscribe m_wish;
    std::array<Sent, 5> m_sent; // by the number of the stream
    std::uint32_t m_frames = 0;
    bool m_isGreeted = false;
    quint64 m_statusNumber = 0;
    quint64 m_valuesNumber = 0;
    quint64 m_rangesNumber = 0;
    quint64 m_emittersNumber = 0;
    QElapsedTimer m_clock;
    QElapsedTimer m_sinceProgress;
    QTimer m_due;
};

} // namespace pageserver
