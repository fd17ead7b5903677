// SPDX-License-Identifier: MIT
#pragma once
// A recording as a source, with the recording's clock.
#include "nqbase/tavoos.h"
#include "toolkit/receiver/recordingindex.h"
#include "toolkit/receiver/source.h"
#include "toolkit/recording/recording.h"
#include <QElapsedTimer>
#include <QTimer>
#include <atomic>
#include <future>
#include <optional>

namespace receiver {

/// Where a playback is.
struct PlaybackState {
    bool isPaused = false;
    bool hasEnded = false;
    double speed = 1.0;                          // times that of the recording; 0: as fast as possible
    double positionSeconds = 0;                  // since the recording's first datagram
    std::shared_ptr<const RecordingIndex> index; // null until the file has been read
};

/// Plays a recording at its own pace, a multiple of it, or as fast as possible. While it plays, the
/// operating-system layer's clock is that of the recording, so that maps get the stamps which live reception
/// gave them.
class RecordingSource : public Source {
    Q_OBJECT

public:
    RecordingSource(std::string path, const Playback& playback);
    ~RecordingSource() override;

    void start(Sink sink) override;
    [[nodiscard]] Facts facts() const override;

    /// Whether the file could not be read to its end, or something in it had to be left out.
    [[nodiscard]] bool failed() const override { return m_problems > 0; }

    /// Holds the playback, for a receiver of its datagrams that cannot take more now. Time goes on meanwhile.
    void setFull(bool isFull) { m_isFull = isFull; }

    /// Stops the recording's time, and lets it go on.
    void setPaused(bool isPaused);
    [[nodiscard]] bool isPaused() const { return m_isPaused; }

    /// Plays one datagram while paused.
    void step();

    /// Goes on at the first datagram that was received `seconds` after the recording's first one, also behind
    /// its end. Order: `restarted` before the first datagram from there.
    /// Errors: as `recording::openRecording`; the playback stays where it is then.
    void seek(double seconds);

    /// 0: as fast as possible.
    void setSpeed(double speed);

    /// Has the recording read in a thread of its own, so that `playback` has an index after a while.
    void makeIndex();

    [[nodiscard]] PlaybackState playback() const;

signals:
    /// Paused, stepped, moved, or at another speed.
    void playbackChanged();

private:
    class Clock;
    [[nodiscard]] std::unique_ptr<recording::DatagramSource> opened();
    void begin(std::unique_ptr<recording::DatagramSource> recording, double fromSeconds);
    void play();
    void playNext();
    void readNext();
    void countFromHere();
    void end();
    void tell(const std::string& problem);
    [[nodiscard]] double secondsInto(const recording::Datagram& datagram) const;
    [[nodiscard]] qint64 millisecondsUntilDue() const;

    std::string m_path;
    Playback m_playback;
    Sink m_sink;
    std::unique_ptr<recording::DatagramSource> m_recording;
    std::optional<recording::Datagram> m_next;
    std::shared_ptr<Clock> m_clock;
    std::shared_ptr<ITavoOS> m_oldClock;
    std::optional<std::int64_t> m_firstNs; // of the recording
    double m_skipBefore = 0;               // seconds; datagrams before are not played
    double m_anchor = 0;                   // seconds: where the playback was when m_sinceAnchor began
    double m_position = 0;                 // seconds
    quint64 m_fileBytes = 0;
    quint64 m_played = 0;
    quint64 m_playedThisRound = 0;
    bool m_isBroken = false; // where it cannot be read any further
    quint64 m_problems = 0;
    std::string m_firstProblem;
    bool m_isFull = false;
    bool m_isPaused = false;
    bool m_hasEnded = false;
    QElapsedTimer m_sinceAnchor;
    QTimer m_timer;
    std::string m_state = "not started";
    std::atomic<bool> m_stopIndexing{false};
    std::shared_future<std::shared_ptr<const RecordingIndex>> m_index; // its destructor waits for the thread
};

} // namespace receiver
