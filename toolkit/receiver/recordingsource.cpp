// SPDX-License-Identifier: MIT
#include "toolkit/receiver/recordingsource.h"
#include <algorithm>
#include <atomic>
#include <fmt/format.h>

namespace receiver {

namespace {

constexpr qint64 millisecondsPerTurn = 10;
constexpr qint64 longestPauseMilliseconds = 1'000; // so that a stop is noticed in the pauses of a recording

} // namespace

class RecordingSource::Clock final : public ITavoOS {
public:
    void set(std::int64_t ns) { m_microseconds = static_cast<quint64>(std::max<std::int64_t>(ns, 0)) / 1000; }
    [[nodiscard]] quint64 GetCurrentTimeStamp() const override { return m_microseconds; }

private:
    std::atomic<quint64> m_microseconds{0};
};

RecordingSource::RecordingSource(std::string path, const Playback& playback)
    : m_path(std::move(path))
    , m_playback(playback)
    , m_clock(std::make_shared<Clock>())
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &RecordingSource::play);
}

RecordingSource::~RecordingSource()
{
    if (m_oldClock)
        TavoOS::Install(m_oldClock);
}

void RecordingSource::start(Sink sink)
{
    m_sink = std::move(sink);
    m_oldClock = TavoOS::Install(m_clock);
    open();
    m_timer.start(0);
}

void RecordingSource::open()
{
    m_recording = recording::openRecording(m_path, {});
    m_recording->onProblem([this](const recording::Problem& problem) {
        emit said(QString::fromStdString(m_path + ": " + text(problem)));
    });
    m_state = "playing";
    m_firstNs.reset();
    m_playedThisRound = 0;
    readNext();
    m_sinceStart.start();
}

// The next datagram of the range.
void RecordingSource::readNext()
{
    try {
        do {
            m_next = m_recording->next();
            if (m_next && !m_firstNs)
                m_firstNs = m_next->receivedNs.value_or(0);
        } while (m_next && secondsInto(*m_next) < m_playback.fromSeconds);
    } catch (const recording::BadFile& bad) {
        emit said(QString::fromUtf8(bad.what()));
        m_failed = true;
        m_next.reset();
    }
    if (m_next && m_playback.untilSeconds && secondsInto(*m_next) >= *m_playback.untilSeconds)
        m_next.reset();
}

double RecordingSource::secondsInto(const recording::Datagram& datagram) const
{
    return static_cast<double>(datagram.receivedNs.value_or(0) - m_firstNs.value_or(0)) / 1e9;
}

qint64 RecordingSource::millisecondsUntilDue() const
{
    if (m_paused)
        return 1;
    if (m_playback.rate <= 0.0 || !m_next->receivedNs)
        return 0;
    const double dueMs = (secondsInto(*m_next) - m_playback.fromSeconds) * 1e3 / m_playback.rate;
    const double waitMs = dueMs - static_cast<double>(m_sinceStart.elapsed());
    return static_cast<qint64>(std::clamp(waitMs, 0.0, static_cast<double>(longestPauseMilliseconds)));
}

void RecordingSource::play()
{
    QElapsedTimer turn;
    turn.start();
    while (m_next && millisecondsUntilDue() == 0 && !turn.hasExpired(millisecondsPerTurn)) {
        recording::Datagram datagram = std::move(*m_next);
        m_clock->set(datagram.receivedNs.value_or(0));
        m_sink({std::make_unique<UdpDatagram>(std::make_unique<QByteArray>(std::move(datagram.bytes))),
                datagram.receivedNs.value_or(0), datagram.origin});
        ++m_played;
        ++m_playedThisRound;
        readNext();
    }
    if (m_next)
        m_timer.start(static_cast<int>(millisecondsUntilDue()));
    else
        end();
}

void RecordingSource::end()
{
    // A round without a datagram would be followed by the next one at once.
    if (m_playback.loop && !m_failed && m_playedThisRound != 0) {
        emit restarted();
        open();
        m_timer.start(0);
        return;
    }
    m_state = "played to its end";
    emit said(QString::fromStdString(fmt::format("{}: {} datagrams played", m_path, m_played)));
    emit finished();
}

Source::Facts RecordingSource::facts() const
{
    Facts facts;
    facts.name = m_path;
    facts.state = m_state;
    return facts;
}

} // namespace receiver
