// SPDX-License-Identifier: MIT
#pragma once
// A session with its page, status line, recorder and metrics, as monitor and demo run it.
#include "toolkit/pageserver/pageserver.h"
#include "toolkit/receiver/session.h"
#include "toolkit/receiver/statuspace.h"
#include "toolkit/recording/recorder.h"
#include "tools/vk410/metricsserver.h"
#include <CLI/App.hpp>
#include <QElapsedTimer>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace verbs {

/// How the live page is served.
struct PageOptions {
    bool headless = false;
    std::string listen; // ADDRESS:PORT; empty: loopback, port 4410 or a free one
    std::string folder; // of the page's files; empty: those in the program

    /// Adds --headless, --listen and --page-folder to a verb.
    void addTo(CLI::App& verb);
};

struct MonitorOptions {
    PageOptions page;
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

    /// What is to be said when the source has started; nothing if it is empty.
    using Announcement = std::function<std::string()>;

    /// Runs the event loop; prints the ledger when it ends.
    /// Result: an ExitCode.
    int run(const Announcement& announcement);

    [[nodiscard]] receiver::Session& session() { return m_session; }

    /// Serves the page, unless it is not wanted. `about` and `surroundings` say what only the verb knows.
    /// Errors: std::runtime_error when the place is taken.
    void servePage(pageserver::About about, pageserver::Surroundings surroundings);

    /// "http://127.0.0.1:4410"; empty without a page.
    [[nodiscard]] std::string pageUrl() const;

private:
    void tick();
    [[nodiscard]] bool isStatusWanted();
    void adviseWhenSilent(const receiver::Status& status);
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
    QElapsedTimer m_sinceStart;
    bool m_isToldOfSilence = false;
    receiver::StatusPace m_pace;
    receiver::Status m_last;
    std::unique_ptr<pageserver::PageServer> m_page; // goes first: it looks at all of them
};

} // namespace verbs
