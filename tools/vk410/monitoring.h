// SPDX-License-Identifier: MIT
#pragma once
// A session with its status line, recorder and metrics, as monitor and demo run it.
#include "toolkit/receiver/session.h"
#include "toolkit/recording/recorder.h"
#include "tools/vk410/metricsserver.h"
#include <QElapsedTimer>
#include <QTimer>
#include <memory>
#include <optional>
#include <string>

namespace verbs {

struct MonitorOptions {
    bool stats = false; // a JSON object with all counters each second, on stdout
    std::string mirror;
    std::string recordTo;
    std::optional<std::uint16_t> metricsPort;
    double seconds = 0; // 0: until it is stopped
    receiver::SessionOptions session{};
};

/// Runs until it is told to stop, or the source ends.
class Monitoring {
public:
    Monitoring(std::unique_ptr<receiver::Source> source, const MonitorOptions& options);

    /// Runs the event loop; prints the ledger when it ends.
    /// Result: an ExitCode.
    int run();

    [[nodiscard]] receiver::Session& session() { return m_session; }

private:
    void tick();
    void printStats();
    [[nodiscard]] ledger::Counters counters();
    [[nodiscard]] std::string statusLine();

    MonitorOptions m_options;
    std::unique_ptr<recording::Recorder> m_recorder; // outlives the session, which feeds it
    receiver::Session m_session;
    std::unique_ptr<receiver::Source> m_source; // until it runs
    std::unique_ptr<MetricsServer> m_metrics;
    QTimer m_timer;
    QElapsedTimer m_sinceTick;
    receiver::Status m_last;
};

} // namespace verbs
