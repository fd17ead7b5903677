// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/viewer.h"
#include <QWebSocket>
#include <algorithm>
#include <limits>

namespace pageserver {

namespace {

// A stream that comes just as often as the viewer wants it, and not quite evenly, loses nothing.
constexpr double evenness = 0.95;

std::uint32_t clamped(quint64 number)
{
    return static_cast<std::uint32_t>(std::min<quint64>(number, std::numeric_limits<std::uint32_t>::max()));
}

} // namespace

Viewer::Viewer(std::unique_ptr<QWebSocket> socket, Showcase& showcase, std::atomic<quint64>& skippedByAll)
    : m_socket(std::move(socket))
    , m_showcase(showcase)
    , m_skippedByAll(skippedByAll)
{
    m_clock.start();
    m_sinceProgress.start();
    m_due.setSingleShot(true);
    m_due.setTimerType(Qt::PreciseTimer);
    connect(&m_due, &QTimer::timeout, this, &Viewer::pump);
    connect(m_socket.get(), &QWebSocket::textMessageReceived, this, &Viewer::asked);
    connect(m_socket.get(), &QWebSocket::disconnected, this, &Viewer::left);
    connect(m_socket.get(), &QWebSocket::bytesWritten, this, [this] {
        m_sinceProgress.start();
        pump();
    });
}

Viewer::~Viewer()
{
    // Closing the socket writes, and says so.
    m_socket->disconnect(this);
}

bool Viewer::hasRoom() const
{
    return m_socket->isValid() && m_socket->bytesToWrite() < roomBytes;
}

void Viewer::pump()
{
    // Also of one that does not read: its losses are told to the others.
    for (const Stream stream : streams)
        countMissed(stream);
    if (!hasRoom())
        return;
    if (m_socket->bytesToWrite() == 0)
        m_sinceProgress.start(); // nothing waits that it could read
    sendTexts();
    sendFrames();
}

void Viewer::countMissed(Stream stream)
{
    Sent& sent = of(stream);
    const quint64 newest = m_showcase.streams.newest(stream).number;
    if (sent.number == 0 || newest <= sent.number || !m_wish.streams[static_cast<std::size_t>(stream)])
        return;
    const quint64 missed = newest - sent.number - 1;
    sent.skipped += missed - sent.missed;
    m_skippedByAll += missed - sent.missed;
    sent.missed = missed;
}

void Viewer::send(const messages::Json& message)
{
    m_socket->sendTextMessage(QString::fromUtf8(messages::bytes(message)));
}

void Viewer::sendTexts()
{
    const Board& board = m_showcase.board;
    if (board.statusNumber() == 0)
        return;
    if (!std::exchange(m_isGreeted, true))
        send(messages::hello(m_showcase.about, board.status()));
    if (std::exchange(m_statusNumber, board.statusNumber()) != board.statusNumber()) {
        messages::Json status = messages::status(board.status(), m_showcase.streams);
        status["viewers"] = m_showcase.viewers;
        status["viewer"] = {{"skipped", skipped()}};
        send(status);
    }
    const quint64 valuesBefore = std::exchange(m_valuesNumber, board.valuesNumber());
    if (valuesBefore != m_valuesNumber)
        send(messages::values(board.valuesSince(valuesBefore)));
    if (std::exchange(m_rangesNumber, board.rangesNumber()) != board.rangesNumber())
        send(messages::ranges(board.ranges()));
    const quint64 emitters = m_showcase.emittersNumber;
    if (std::exchange(m_emittersNumber, emitters) != emitters)
        m_socket->sendTextMessage(m_showcase.emitters);
}

void Viewer::sendFrames()
{
    const qint64 now = m_clock.nsecsElapsed();
    qint64 nextDue = std::numeric_limits<qint64>::max();
    for (const Stream stream : streams) {
        Sent& sent = of(stream);
        const quint64 newest = m_showcase.streams.newest(stream).number;
        const bool isNew = newest > sent.number || (sent.isOutdated && newest != 0);
        if (!isNew || !m_wish.streams[static_cast<std::size_t>(stream)])
            continue;
        if (now < sent.dueNs)
            nextDue = std::min(nextDue, sent.dueNs);
        else if (hasRoom())
            sendFrame(stream, sent);
    }
    if (nextDue != std::numeric_limits<qint64>::max())
        m_due.start(static_cast<int>((nextDue - now) / 1'000'000 + 1));
}

void Viewer::sendFrame(Stream stream, Sent& sent)
{
    const TraceInfo& newest = m_showcase.streams.newest(stream);
    const bool isFirst = sent.number == 0;
    const quint64 lost = isFirst || newest.lostSoFar < sent.lost ? 0 : newest.lostSoFar - sent.lost;
    QByteArray frame = m_showcase.streams.frame(stream, m_wish.arrays);
    address(frame, {m_frames++, clamped(sent.skipped), clamped(lost)});
    m_socket->sendBinaryMessage(frame);
    sent.number = newest.number;
    sent.missed = 0;
    sent.lost = newest.lostSoFar;
    sent.isOutdated = false;
    const auto interval = static_cast<qint64>(1e9 * evenness / m_wish.maxPerSecond);
    sent.dueNs = std::max(sent.dueNs + interval, m_clock.nsecsElapsed());
}

void Viewer::subscribe(const Subscribe& wish)
{
    for (std::size_t i = 0; i < m_sent.size(); ++i) {
        // What it did not want meanwhile was not skipped.
        if (wish.streams[i] && !m_wish.streams[i])
            m_sent[i] = {.skipped = m_sent[i].skipped};
        m_sent[i].isOutdated = m_sent[i].isOutdated || wish.arrays != m_wish.arrays;
        m_sent[i].dueNs = 0;
    }
    m_wish = wish;
    pump();
}

void Viewer::tell(const messages::Json& message)
{
    if (hasRoom())
        send(message);
}

void Viewer::outdate()
{
    for (Sent& sent : m_sent)
        sent.isOutdated = true;
}

bool Viewer::isGone() const
{
    return !m_socket->isValid() && m_socket->bytesToWrite() == 0;
}

bool Viewer::isStalled() const
{
    return m_socket->bytesToWrite() > 0 && m_sinceProgress.hasExpired(stalledMilliseconds);
}

qint64 Viewer::waitingBytes() const
{
    return m_socket->bytesToWrite();
}

void Viewer::cut()
{
    m_socket->abort();
}

quint64 Viewer::skipped() const
{
    quint64 sum = 0;
    for (const Sent& sent : m_sent)
        sum += sent.skipped;
    return sum;
}

} // namespace pageserver
