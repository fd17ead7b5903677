// SPDX-License-Identifier: MIT
#include "tools/vk410/monitoring.h"
#include "tools/vk410/stopsignals.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

namespace verbs {

namespace {

constexpr int secondMilliseconds = 1'000;
constexpr double silentSeconds = 3;
constexpr std::uint16_t defaultPagePort = 4410;

std::string frequencyText(double hertz)
{
    return fmt::format("{:.6f} MHz", hertz / 1e6);
}

std::string ageText(const receiver::Status& status)
{
    if (status.ageSeconds < 0)
        return "no data yet";
    if (status.ageSeconds > silentSeconds)
        return fmt::format("silent for {:.0f} s", status.ageSeconds);
    return fmt::format("age {:.0f} ms", status.ageSeconds * 1e3);
}

void say(const std::string& line)
{
    fmt::print(stderr, "{}\n", line);
}

} // namespace

void PageOptions::addTo(CLI::App& verb)
{
    verb.add_flag("--headless", headless, "no page");
    verb.add_option("--listen", listen,
                    "serve the page on ADDRESS:PORT; 127.0.0.1:4410, or a free port, if not given")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    // For work on the page itself.
    verb.add_option("--page-folder", folder)->group("");
}

Monitoring::Monitoring(std::unique_ptr<receiver::Source> source, const MonitorOptions& options)
    : m_options(options)
    , m_session(options.session)
    , m_source(std::move(source))
{
    QObject::connect(&m_session, &receiver::Session::said,
                     [](const QString& text) { say(text.toStdString()); });
    // A page stays to be looked at.
    if (options.page.headless || options.seconds > 0)
        QObject::connect(&m_session, &receiver::Session::finished, [] { QCoreApplication::quit(); });
    if (!options.mirror.empty())
        m_source->startMirror(receiver::parseListen(options.mirror));
    if (!options.recordTo.empty()) {
        m_recorder = std::make_unique<recording::Recorder>(options.recordTo, recording::Rotation{});
        m_session.addTap([this](const receiver::Received& received) {
            m_recorder->take(received.datagram->Bytes(), received.datagram->Size(), received.receivedNs,
                             received.origin);
        });
    }
    if (options.metricsPort) {
        m_metrics = std::make_unique<MetricsServer>(*options.metricsPort,
                                                    [this] { return ledger::metricsText(counters()); });
        say(fmt::format("metrics http://127.0.0.1:{}/metrics", m_metrics->port()));
    }
    QObject::connect(&m_timer, &QTimer::timeout, [this] { tick(); });
}

void Monitoring::servePage(pageserver::About about, pageserver::Surroundings surroundings)
{
    if (m_options.page.headless)
        return;
    if (auto* const recording = dynamic_cast<receiver::RecordingSource*>(m_source.get()))
        recording->makeIndex();
    about.program = "vk410 " VK410_VERSION;
    surroundings.counters = [this] { return counters(); };
    surroundings.recorder = [this]() -> std::optional<pageserver::RecorderState> {
        if (!m_recorder)
            return std::nullopt;
        return pageserver::RecorderState{m_options.recordTo, m_recorder->skipped()};
    };
    pageserver::Options options;
    options.about = std::move(about);
    options.folder = QString::fromStdString(m_options.page.folder);
    const auto serve = [&] {
        m_page = std::make_unique<pageserver::PageServer>(m_session, options, surroundings);
    };
    if (!m_options.page.listen.empty()) {
        const receiver::ListenSpec place = receiver::parseListen(m_options.page.listen, 0);
        options.address = place.address;
        options.port = place.port;
        return serve();
    }
    try {
        options.port = defaultPagePort;
        serve();
    } catch (const std::runtime_error&) { // somebody has it: any other will do
        options.port = 0;
        serve();
    }
}

std::string Monitoring::pageUrl() const
{
    return m_page ? m_page->url() : std::string{};
}

int Monitoring::run(const Announcement& announcement)
{
    const StopSignals stop;
    m_session.run(std::move(m_source));
    if (const std::string text = announcement(); !text.empty())
        say(text);
    m_sinceTick.start();
    m_sinceStart.start();
    m_timer.start(secondMilliseconds);
    if (m_options.seconds > 0)
        QTimer::singleShot(static_cast<int>(m_options.seconds * secondMilliseconds),
                           [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    m_timer.stop();
    if (m_options.stats)
        printStats();
    const ledger::Counters end = counters();
    fmt::print("{}{:<20} {:>14}\n{:<20} {:>16x}\n", ledger::reportText(m_session.ledger()), "traces",
               m_session.status().traces, "map contents", m_session.mapHash());
    if (m_recorder && m_recorder->failure())
        say(*m_recorder->failure());
    const receiver::Source* const source = m_session.source();
    return end.losses() == 0 && !source->failed() ? Done : NotSound;
}

ledger::Counters Monitoring::counters()
{
    if (m_recorder)
        m_session.ledger().setRecorderSkipped(m_recorder->skipped());
    return m_session.ledger().counters();
}

void Monitoring::tick()
{
    if (m_options.stats)
        printStats();
    const std::string line = statusLine();
    if (isStatusWanted())
        say(line);
    adviseWhenSilent(m_last);
}

// A terminal shows every second; a journal keeps what is said.
bool Monitoring::isStatusWanted()
{
    const bool isSilent = m_last.ageSeconds < 0 || m_last.ageSeconds > silentSeconds;
    const double seconds = static_cast<double>(m_sinceStart.elapsed()) / 1e3;
    return m_pace.isDue({isSilent, counters().losses()}, seconds) || ::isatty(STDERR_FILENO) == 1;
}

// Once each time.
void Monitoring::adviseWhenSilent(const receiver::Status& status)
{
    const double silence =
        status.ageSeconds < 0 ? static_cast<double>(m_sinceStart.elapsed()) / 1e3 : status.ageSeconds;
    if (silence <= silentSeconds)
        m_isToldOfSilence = false;
    else if (!std::exchange(m_isToldOfSilence, true) && !status.silence.empty())
        say("nothing arrives: " + status.silence);
}

std::string Monitoring::statusLine()
{
    const receiver::Status now = m_session.status();
    const double seconds = static_cast<double>(m_sinceTick.restart()) / 1e3;
    const auto rate = [seconds](quint64 new_, quint64 old) {
        return static_cast<double>(new_ - old) / seconds;
    };
    std::string line =
        fmt::format("{:.1f} traces/s | {:.0f} datagrams/s, {:.2f} MB/s", rate(now.traces, m_last.traces),
                    rate(now.datagrams, m_last.datagrams), rate(now.bytes, m_last.bytes) / 1e6);
    if (now.channels != 0)
        line += fmt::format(" | centre {}, span {}, {} ch", frequencyText(now.centreHz),
                            frequencyText(now.spanHz), now.channels);
    if (now.dfChannels != 0)
        line +=
            fmt::format(" | DF {} ch, {:.1f} sweeps/s", now.dfChannels, rate(now.dfSweeps, m_last.dfSweeps));
    line += fmt::format(" | {} | {}", ageText(now), ledger::lossText(counters()));
    if (now.datagrams == m_last.datagrams)
        line += " | " + now.state;
    m_last = now;
    return line;
}

void Monitoring::printStats()
{
    const ledger::Counters counters = this->counters();
    std::string line;
    for (const ledger::Line& each : ledger::lines())
        line += fmt::format("{}\"{}\":{}", line.empty() ? "{" : ",", each.metric, counters.*each.counter);
    fmt::print("{}}}\n", line);
    std::fflush(stdout);
}

} // namespace verbs
