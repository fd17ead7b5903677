// SPDX-License-Identifier: MIT
#pragma once
// The event loop of a verb: until its time is over, it is stopped, or the verb quits it.
#include "tools/vk410/stopsignals.h"
#include <functional>

namespace verbs {

/// While it lives, Ctrl-C and SIGTERM end the event loop; make it before anything is said or received.
class EventLoop {
public:
    /// Runs until it is stopped, or for `seconds` if that is not 0. Twice a second it calls `tick`.
    void run(double seconds, const std::function<void()>& tick);

private:
    StopSignals m_stop;
};

} // namespace verbs
