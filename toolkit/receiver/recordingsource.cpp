// SPDX-License-Identifier: MIT
#include "toolkit/receiver/recordingsource.h"
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
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
    m_stopIndexing = true;
    if (m_oldClock)
        TavoOS::Install(m_oldClock);
}

void RecordingSource::start(Sink sink)
{
    m_sink = std::move(sink);
    m_oldClock = TavoOS::Install(m_clock);
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(m_path, unknown);
    m_fileBytes = unknown ? 0 : size;
    begin(opened(), m_playback.fromSeconds);
}

std::unique_ptr<recording::DatagramSource> RecordingSource::opened()
{
    std::unique_ptr<recording::DatagramSource> recording = recording::openRecording(m_path, {});
    recording->onProblem([this](const recording::Problem& problem) { tell(m_path + ": " + text(problem)); });
    return recording;
}

void RecordingSource::tell(const std::string& problem)
{
    if (m_problems++ == 0)
        m_firstProblem = problem;
    emit said(QString::fromStdString(problem));
}

void RecordingSource::begin(std::unique_ptr<recording::DatagramSource> recording, double fromSeconds)
{
    m_recording = std::move(recording);
    m_state = "playing";
    m_hasEnded = false;
    m_skipBefore = fromSeconds;
    m_playedThisRound = 0;
    readNext();
    m_position = fromSeconds;
    countFromHere();
    m_timer.start(0);
}

// The recording's time goes on from where the playback is.
void RecordingSource::countFromHere()
{
    m_anchor = m_position;
    m_sinceAnchor.start();
}

// The next datagram, also one that is not played.
void RecordingSource::readNext()
{
    try {
        m_next = m_recording->next();
    } catch (const recording::BadFile& bad) {
        tell(bad.what());
        m_isBroken = true;
        m_next.reset();
    }
    if (m_next && !m_firstNs)
        m_firstNs = m_next->receivedNs.value_or(0);
    if (m_next && m_playback.untilSeconds && secondsInto(*m_next) >= *m_playback.untilSeconds)
        m_next.reset();
}

double RecordingSource::secondsInto(const recording::Datagram& datagram) const
{
    return static_cast<double>(datagram.receivedNs.value_or(0) - m_firstNs.value_or(0)) / 1e9;
}

qint64 RecordingSource::millisecondsUntilDue() const
{
    if (m_isFull)
        return 1;
    if (m_playback.rate <= 0.0 || !m_next->receivedNs)
        return 0;
    const double dueMs = (secondsInto(*m_next) - m_anchor) * 1e3 / m_playback.rate;
    const double waitMs = dueMs - static_cast<double>(m_sinceAnchor.elapsed());
    return static_cast<qint64>(std::clamp(waitMs, 0.0, static_cast<double>(longestPauseMilliseconds)));
}

void RecordingSource::play()
{
    QElapsedTimer turn;
    turn.start();
    while (m_next && !turn.hasExpired(millisecondsPerTurn)) {
        if (secondsInto(*m_next) < m_skipBefore)
            readNext();
        else if (!m_isPaused && millisecondsUntilDue() == 0)
            playNext();
        else
            break;
    }
    if (!m_next)
        return end();
    const bool isSkipping = secondsInto(*m_next) < m_skipBefore;
    if (isSkipping || !m_isPaused)
        m_timer.start(isSkipping ? 0 : static_cast<int>(millisecondsUntilDue()));
}

void RecordingSource::playNext()
{
    recording::Datagram datagram = std::move(*m_next);
    m_clock->set(datagram.receivedNs.value_or(0));
    m_position = secondsInto(datagram);
    m_sink({std::make_unique<UdpDatagram>(std::make_unique<QByteArray>(std::move(datagram.bytes))),
            datagram.receivedNs.value_or(0), datagram.origin});
    ++m_played;
    ++m_playedThisRound;
    readNext();
}

void RecordingSource::end()
{
    // A round without a datagram would be followed by the next one at once.
    if (m_playback.loop && !m_isBroken && m_playedThisRound != 0) {
        emit restarted();
        return begin(opened(), m_playback.fromSeconds);
    }
    m_state = "played to its end";
    m_hasEnded = true;
    emit said(QString::fromStdString(fmt::format("{}: {} datagrams played", m_path, m_played)));
    emit finished();
}

void RecordingSource::setPaused(bool isPaused)
{
    if (!isPaused && m_hasEnded) { // once more
        m_isPaused = false;
        return seek(m_playback.fromSeconds);
    }
    if (isPaused == m_isPaused)
        return;
    m_isPaused = isPaused;
    if (!isPaused) {
        countFromHere();
        m_timer.start(0);
    }
    emit playbackChanged();
}

void RecordingSource::step()
{
    const bool isReady = m_isPaused && m_next && secondsInto(*m_next) >= m_skipBefore;
    if (!isReady)
        return;
    playNext();
    if (!m_next)
        end();
    emit playbackChanged();
}

void RecordingSource::seek(double seconds)
{
    std::unique_ptr<recording::DatagramSource> recording = opened();
    emit restarted();
    begin(std::move(recording), seconds);
    emit playbackChanged();
}

void RecordingSource::setSpeed(double speed)
{
    m_playback.rate = speed;
    countFromHere();
    if (!m_isPaused && !m_hasEnded)
        m_timer.start(0);
    emit playbackChanged();
}

void RecordingSource::makeIndex()
{
    m_index = std::async(std::launch::async, [this, path = m_path] {
        return std::shared_ptr<const RecordingIndex>(
            std::make_shared<RecordingIndex>(indexRecording(path, m_stopIndexing)));
    });
}

PlaybackState RecordingSource::playback() const
{
    PlaybackState state{m_isPaused, m_hasEnded, m_playback.rate, m_position, nullptr};
    if (m_index.valid() && m_index.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
        state.index = m_index.get();
    return state;
}

Source::Facts RecordingSource::facts() const
{
    Facts facts;
    facts.name = m_path;
    facts.state = m_state;
    facts.fileBytes = m_fileBytes;
    facts.fileBytesRead = m_next ? m_next->position : m_fileBytes;
    facts.problems = m_problems;
    facts.firstProblem = m_firstProblem;
    return facts;
}

} // namespace receiver
