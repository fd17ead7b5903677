// SPDX-License-Identifier: MIT
#pragma once
// An operator, and an observer besides, who change a session's values and ranges all the time.
#include "toolkit/receiver/session.h"
#include <QTimer>
#include <random>

namespace soak {

/// Changes values, suppress, blanking and scan ranges from a timer and from inside the notifications of
/// values and maps. Owner: the session is borrowed and outlives it.
class Meddler : public IObserver {
public:
    Meddler(receiver::Session& session, ScanRangeContainer scanRanges, unsigned seed);
    ~Meddler() override;

    void start() { m_timer.start(); }

    /// Stops, and leaves values and ranges as they were at first.
    void rest();

    [[nodiscard]] quint64 changes() const { return m_changes; }

private:
    void Update(Observable* subject, TChangeCode code) override;
    void changeSomething();
    void changeValue();
    void changeRanges();
    void changeScanRanges();
    [[nodiscard]] unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    receiver::Session& m_session;
    ScanRangeContainer m_scanRanges;
    std::mt19937 m_random;
    QTimer m_timer;
    quint64 m_changes = 0;
    int m_depth = 0; // of notifications inside notifications
};

} // namespace soak
