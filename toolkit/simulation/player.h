// SPDX-License-Identifier: MIT
#pragma once
// Plays a simulation in real time.
#include "toolkit/simulation/simulator.h"
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <functional>

namespace simulation {

/// Hands out the datagrams of a simulator when they are due. Each is due by the time since the start, so that
/// late timers do not add up; what is late follows at once.
/// Thread: that of the event loop. One turn takes at most 10 ms.
class Player : public QObject {
    Q_OBJECT

public:
    using Sink = std::function<void(const Emission&)>;
    using IsFull = std::function<bool()>;

    /// `rate`: times the speed of the scene; 0: as fast as possible.
    /// Owner: the simulator is borrowed and outlives the player.
    Player(Simulator& simulator, double rate, Sink sink);

    /// Time begins now.
    void start();

    /// Asked before each datagram; while it says yes, none is handed out.
    void setBackPressure(IsFull isFull) { m_isFull = std::move(isFull); }

    /// Ends the scene: the last datagrams are handed out inside this call, whatever is due.
    void stop();

    [[nodiscard]] bool isFinished() const { return m_isFinished; }

signals:
    /// The last datagram has been handed out.
    void finished();

private:
    void play();
    [[nodiscard]] std::int64_t nsUntilDue() const;
    void finish();

    Simulator& m_simulator;
    double m_rate;
    Sink m_sink;
    IsFull m_isFull;
    std::optional<Emission> m_next;
    QElapsedTimer m_sinceStart;
    QTimer m_timer;
    bool m_isFinished = false;
};

} // namespace simulation
