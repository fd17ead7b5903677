// SPDX-License-Identifier: MIT
#pragma once
// Ends a program in its event loop when the user says so.
#include <QObject>
#include <QSocketNotifier>
#include <memory>

namespace verbs {

/// While it lives, the first SIGINT or SIGTERM quits the event loop; a second one kills, as without it.
class StopSignals {
public:
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace verbs
