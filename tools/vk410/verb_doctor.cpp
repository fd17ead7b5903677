// SPDX-License-Identifier: MIT
// vk410 doctor: connected, but nothing appears.
#include "toolkit/doctor/doctor.h"
#include "toolkit/doctor/wayin.h"
#include "toolkit/simulation/scene.h"
#include "tools/vk410/dfoptions.h"
#include "tools/vk410/eventloop.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/tagoptions.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <fmt/format.h>

namespace verbs {
namespace {

using receiver::SourceSpec;

struct Arguments {
    std::string source;
    double seconds = 3;
    bool json = false;
    TagOptions tags;
    DfOptions df;
};

// Prints findings as they come, and counts the problems.
class Report {
public:
    explicit Report(bool isJson)
        : m_isJson(isJson)
    {}

    void add(const doctor::Finding& finding)
    {
        ++m_number;
        const bool isProblem = finding.outcome == doctor::Outcome::Problem;
        m_problems += isProblem ? 1 : 0;
        m_isBlocked = isProblem && finding.check != doctor::socketBuffer;
        fmt::print("{}\n", m_isJson ? json(m_number, finding) : text(m_number, finding));
        std::fflush(stdout);
    }
    void add(const std::vector<doctor::Finding>& findings)
    {
        for (const doctor::Finding& finding : findings)
            add(finding);
    }
    /// Whether nothing can arrive after the last finding.
    [[nodiscard]] bool isBlocked() const { return m_isBlocked; }

    int finish() const
    {
        if (!m_isJson)
            fmt::print("{}\n", m_problems == 0   ? "all fine"
                               : m_problems == 1 ? "1 problem"
                                                 : fmt::format("{} problems", m_problems));
        return m_problems == 0 ? Done : NotSound;
    }

private:
    bool m_isJson;
    std::size_t m_number = 0;
    std::size_t m_problems = 0;
    bool m_isBlocked = false;
};

doctor::Finding checkScene(const SourceSpec& spec)
{
    try {
        return {
            "scene", doctor::Outcome::Fine, simulation::sceneNamed(spec.path).name + " can be simulated", {}};
    } catch (const simulation::BadScene& bad) {
        return {"scene", doctor::Outcome::Problem, bad.what(),
                "sim:band, sim:zerospan, sim:df and sim:demo are built in"};
    }
}

std::vector<doctor::Finding> checkWayIn(const SourceSpec& spec, double seconds)
{
    switch (spec.kind) {
    case SourceSpec::Kind::Udp:
        return doctor::checkUdp(spec);
    case SourceSpec::Kind::Tcp:
        return doctor::checkTcp(spec, seconds);
    case SourceSpec::Kind::Recording:
        return doctor::checkRecording(spec);
    case SourceSpec::Kind::Simulation:
        break;
    }
    return {checkScene(spec)};
}

std::vector<doctor::Finding> listen(const Arguments& arguments, const receiver::SessionOptions& options,
                                    const SourceSpec& spec)
{
    EventLoop loop;
    receiver::Session session{options};
    QObject::connect(&session, &receiver::Session::finished, [] { QCoreApplication::quit(); });
    session.run(openSource(arguments.source, {.rate = spec.kind == SourceSpec::Kind::Recording ? 0.0 : 1.0}));
    Progress progress;
    loop.run(spec.kind == SourceSpec::Kind::Recording ? 0 : arguments.seconds, [&] {
        progress.show("listening, " + shareText({progress.seconds(), arguments.seconds}, progress.seconds()));
    });
    progress.end();
    return doctor::checkArrivals(session, spec, arguments.source, progress.seconds());
}

int examine(const Arguments& arguments)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    receiver::SessionOptions options;
    arguments.tags.apply(options);
    arguments.df.apply(options);
    Report report{arguments.json};
    SourceSpec spec;
    try {
        spec = receiver::parseSource(arguments.source);
    } catch (const receiver::BadSource& bad) {
        report.add(doctor::Finding{"address", doctor::Outcome::Problem, bad.what(), "write it in that form"});
        return report.finish();
    }
    report.add(doctor::Finding{"address", doctor::Outcome::Fine, arguments.source, {}});
    report.add(checkWayIn(spec, arguments.seconds));
    if (report.isBlocked())
        return report.finish();
    report.add(listen(arguments, options, spec));
    return report.finish();
}

} // namespace

void addDoctor(CLI::App& program, Run& run)
{
    CLI::App* const verb = program.add_subcommand(
        "doctor", "connected, but nothing appears: numbered checks, each with its fix");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SOURCE", arguments->source, sourceHelp)->required();
    verb->add_option("--for", arguments->seconds, "listen for SECONDS; 3 if not given")
        ->check(numberFrom(0.1, 3600))
        ->type_name("SECONDS");
    verb->add_flag("--json", arguments->json, "one JSON object a line");
    arguments->tags.addTo(*verb);
    arguments->df.addTo(*verb);
    verb->footer("Exit codes: 0 all fine, 1 a problem was found, 2 wrong usage.\n"
                 "Examples:\n"
                 "  vk410 doctor udp://:5555\n"
                 "  vk410 doctor tcp://192.0.2.7:5555 --for 10\n"
                 "  vk410 doctor a.pcap --json");
    verb->callback([arguments, &run] { run = [arguments] { return examine(*arguments); }; });
}

} // namespace verbs
