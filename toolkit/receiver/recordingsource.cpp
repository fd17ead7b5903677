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
    m_recording = recording::openRecording(m_path, {});
    m_recording->onProblem([this](const recording::Problem& problem) {
        emit said(QString::fromStdString(m_path + ": " + text(problem)));
    });
    m_oldClock = TavoOS::Install(m_clock);
    m_state = "playing";
    if (readNext())
        m_firstNs = m_next->receivedNs.value_or(0);
    m_sinceStart.start();
    m_timer.start(0);
}

bool RecordingSource::readNext()
{
    try {
        m_next = m_recording->next();
    } catch (const recording::BadFile& bad) {
        emit said(QString::fromUtf8(bad.what()));
        m_next.reset();
    }
    return m_next.has_value();
}

qint64 RecordingSource::millisecondsUntilDue() const
{
    if (m_playback.rate <= 0.0 || !m_next->receivedNs)
        return 0;
    const double dueMs = static_cast<double>(*m_next->receivedNs - m_firstNs) / 1e6 / m_playback.rate;
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
        readNext();
    }
    if (m_next) {
        m_timer.start(static_cast<int>(millisecondsUntilDue()));
        return;
    }
    m_state = "played to its end";
    emit said(QString::fromStdString(fmt::format("{}: {} datagrams played to its end", m_path, m_played)));
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
