// SPDX-License-Identifier: MIT
// vk410 demo: a simulated receiver and a monitor, over real sockets, in one command.
#include "toolkit/receiver/udpsource.h"
#include "toolkit/sending/sender.h"
#include "toolkit/simulation/player.h"
#include "toolkit/simulation/simulationsource.h"
#include "tools/vk410/dfoptions.h"
#include "tools/vk410/monitoring.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <fmt/format.h>
#include <memory>

namespace verbs {
namespace {

struct Arguments {
    std::string scene = "demo";
    double drop = 0;
    DfOptions df;
    MonitorOptions options;
};

// A source on a port of loopback that nobody has.
std::unique_ptr<receiver::UdpSource> sourceOnAFreePort()
{
    receiver::SourceSpec spec;
    spec.kind = receiver::SourceSpec::Kind::Udp;
    spec.address = QHostAddress(QHostAddress::LocalHost);
    return std::make_unique<receiver::UdpSource>(spec);
}

simulation::Scene sceneOf(const std::string& name)
{
    simulation::Scene scene = simulation::sceneNamed(name);
    scene.startNs = receiver::nowNs();
    return scene;
}

int demo(const Arguments& arguments)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    const simulation::Scene scene = sceneOf(arguments.scene);
    MonitorOptions options = arguments.options;
    arguments.df.apply(options.session);
    if (options.session.scanRanges.empty())
        options.session.scanRanges = simulation::scanRangesOf(scene);
    simulation::Simulator simulator{scene, 1};
    simulation::Faults faults;
    faults.drop = arguments.drop;
    simulator.setFaults(faults);
    auto source = sourceOnAFreePort();
    const receiver::UdpSource& listening = *source; // the session keeps it
    Monitoring monitoring{std::move(source), options};
    std::unique_ptr<sending::UdpSender> sender;
    simulation::Player player{
        simulator, 1.0, [&sender](const simulation::Emission& emission) { sender->send(emission.bytes); }};
    monitoring.servePage(
        {.isDemo = true},
        {.faults =
             [&simulator] {
                 return pageserver::InjectedFaults{simulator.faults(), simulator.faultCounts()};
             },
         .setFaults = [&simulator](const simulation::Faults& wanted) { simulator.setFaults(wanted); }});
    return monitoring.run([&] {
        sender =
            std::make_unique<sending::UdpSender>(QHostAddress(QHostAddress::LocalHost), listening.port());
        player.start();
        const std::string page = monitoring.pageUrl();
        return fmt::format("simulator → udp 127.0.0.1:{} → monitor{}{} (Ctrl-C stops both)", listening.port(),
                           page.empty() ? "" : " ", page);
    });
}

} // namespace

void addDemo(CLI::App& program, Run& run)
{
    CLI::App* const verb =
        program.add_subcommand("demo", "simulated receiver and monitor in one command, until Ctrl-C");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SCENE", arguments->scene, "demo (default), band, zerospan, df, or a scene file");
    arguments->options.page.addTo(*verb);
    verb->add_option("--for", arguments->options.seconds, "stop after SECONDS")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->add_option("--drop", arguments->drop, "lose datagrams with probability P on the way")
        ->check(numberFrom(0, 1))
        ->type_name("P");
    verb->add_option("--record", arguments->options.recordTo, "keep what is received in FILE")
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--metrics", arguments->options.metricsPort,
                     "Prometheus text on http://127.0.0.1:PORT/metrics")
        ->check(portFrom(0))
        ->type_name("PORT");
    arguments->df.addTo(*verb);
    verb->footer("The ledger goes to stdout when it ends. Exit code 1: something was lost.\n"
                 "Examples:\n"
                 "  vk410 demo --headless --for 3\n"
                 "  vk410 demo df --headless --for 3 --drop 0.01\n"
                 "  vk410 demo zerospan --headless --for 3 --record a.pcap");
    verb->callback([arguments, &run] { run = [arguments] { return demo(*arguments); }; });
}

} // namespace verbs
