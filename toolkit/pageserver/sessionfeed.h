// SPDX-License-Identifier: MIT
#pragma once
// The session's end of the hand-over: what it brings to viewers, and does for them.
#include "toolkit/pageserver/commands.h"
#include "toolkit/pageserver/handover.h"
#include "toolkit/pageserver/state.h"
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace pageserver {

/// Everything that travels between the two threads.
struct Handover {
    LevelGate panorama;
    LevelGate zeroSpan;
    LevelGate secondZeroSpan;
    Latest<DfPicture> df;
    Latest<SessionState> state;
    std::atomic<quint64> viewerSkipped{0}; // from the page's thread
};

/// What the session does not know itself.
struct Surroundings {
    /// The session's counters, with those of the recorder.
    std::function<ledger::Counters()> counters = nullptr;
    std::function<std::optional<RecorderState>()> recorder = [] { return std::nullopt; };
    /// Of a demo; null: faults cannot be injected.
    std::function<InjectedFaults()> faults = nullptr;
    std::function<void(const simulation::Faults&)> setFaults = nullptr;
};

/// Copies each trace when it is complete, and the rest four times a second.
/// Thread: the session's. It never waits for the page's thread longer than that takes to exchange two
/// pointers.
class SessionFeed : public QObject, private IObserver {
    Q_OBJECT

public:
    /// `wake` tells the page's thread that something waits; it is called again only after that was taken.
    /// Owner: session and hand-over are borrowed.
    SessionFeed(receiver::Session& session, Handover& handover, Surroundings surroundings,
                std::function<void()> wake);

    ~SessionFeed() override;

    /// Does what a viewer asked for. Result: what is wrong with it, if anything.
    [[nodiscard]] std::optional<std::string> execute(const Command& command);

private:
    void Update(Observable* subject, TChangeCode code) override;
    void handOver(LevelGate& gate, quint64& number, const receiver::CountedLevelMap& map);
    void handOverDf(bool endsSweep);
    [[nodiscard]] TraceInfo infoOf(const values::MappingBase& map, quint64 number);
    void tick();
    void publish();
    void captureStatus();
    void captureRates(StatusState& status);
    void captureRanges();
    [[nodiscard]] std::string stateName(const receiver::Status& status) const;
    [[nodiscard]] receiver::RecordingSource* recording() const;
    [[nodiscard]] values::ValueCommentedRangeMap& rangesOf(RangeKind kind);
    void perform(const AddRange& range);
    void perform(const RemoveRange& range);
    void perform(const ControlPlayback& control);
    void perform(const SetFaults& faults);

    receiver::Session& m_session;
    Handover& m_handover;
    Surroundings m_surroundings;
    std::function<void()> m_wake;
    quint64 m_panoramaTraces = 0;
    quint64 m_zeroSpanTraces = 0;
    quint64 m_secondZeroSpanTraces = 0;
    quint64 m_dfPictures = 0;
    QElapsedTimer m_sinceDf;
    qint64 m_deviceNs = 0; // of the newest trace
    bool m_hasEnded = false;
    bool m_isTooLarge = false; // a map is, to be shown
    QTimer m_timer;
    unsigned m_ticks = 0;
    std::shared_ptr<const StatusState> m_status = std::make_shared<StatusState>();
    std::shared_ptr<const Ranges> m_ranges = std::make_shared<Ranges>();
    QElapsedTimer m_sinceRates;
    ledger::Counters m_ratedCounters;
    quint64 m_ratedTraces = 0;
};

} // namespace pageserver
