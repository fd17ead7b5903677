// SPDX-License-Identifier: MIT
#include "toolkit/simulation/player.h"
#include <algorithm>

namespace simulation {

namespace {

constexpr std::int64_t nsPerTurn = 10'000'000;
constexpr std::int64_t nsPerMillisecond = 1'000'000;
constexpr std::int64_t longestPauseNs = 1'000'000'000; // a timer's milliseconds are few bits

} // namespace

Player::Player(Simulator& simulator, double rate, Sink sink)
    : m_simulator(simulator)
    , m_rate(rate)
    , m_sink(std::move(sink))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Player::play);
}

void Player::start()
{
    m_next = m_simulator.next();
    m_sinceStart.start();
    m_timer.start(0);
}

std::int64_t Player::nsUntilDue() const
{
    if (m_rate <= 0)
        return 0;
    const auto due = static_cast<std::int64_t>(static_cast<double>(m_next->atNs) / m_rate);
    return std::clamp<std::int64_t>(due - m_sinceStart.nsecsElapsed(), 0, longestPauseNs);
}

void Player::play()
{
    QElapsedTimer turn;
    turn.start();
    bool isFull = false;
    while (m_next && nsUntilDue() == 0 && turn.nsecsElapsed() < nsPerTurn) {
        isFull = m_isFull && m_isFull();
        if (isFull)
            break;
        // Taken out first: the sink may stop the player.
        const Emission emission = std::move(*m_next);
        m_next = m_simulator.next();
        m_sink(emission);
    }
    if (!m_next)
        return finish();
    const std::int64_t wait = isFull ? nsPerMillisecond : nsUntilDue();
    m_timer.start(static_cast<int>((wait + nsPerMillisecond - 1) / nsPerMillisecond));
}

void Player::stop()
{
    m_timer.stop();
    m_simulator.stop();
    while (m_next) {
        const Emission emission = std::move(*m_next);
        m_next = m_simulator.next();
        m_sink(emission);
    }
    finish();
}

void Player::finish()
{
    if (m_isFinished)
        return;
    m_isFinished = true;
    emit finished();
}

} // namespace simulation
