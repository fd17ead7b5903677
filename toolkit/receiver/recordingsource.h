// SPDX-License-Identifier: MIT
#pragma once
// A recording as a source, with the recording's clock.
#include "nqbase/tavoos.h"
#include "toolkit/receiver/source.h"
#include "toolkit/recording/recording.h"
#include <QElapsedTimer>
#include <QTimer>
#include <optional>

namespace receiver {

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

    /// Whether the file could not be read to its end.
    [[nodiscard]] bool failed() const { return m_failed; }

    /// Holds the playback, for a receiver of its datagrams that cannot take more now.
    void pause(bool paused) { m_paused = paused; }

private:
    class Clock;
    void open();
    void play();
    void readNext();
    void end();
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
    quint64 m_played = 0;
    quint64 m_playedThisRound = 0;
    bool m_failed = false;
    bool m_paused = false;
    QElapsedTimer m_sinceStart;
    QTimer m_timer;
    std::string m_state = "not started";
};

} // namespace receiver
