// SPDX-License-Identifier: MIT
// vk410 monitor: a session with status line, ledger, recorder, mirror and metrics.
#include "tools/vk410/dfoptions.h"
#include "tools/vk410/monitoring.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/tagoptions.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>

namespace verbs {
namespace {

struct Arguments {
    std::string source;
    double rate = 1.0;
    TagOptions tags;
    DfOptions df;
    MonitorOptions options;
};

int monitor(const Arguments& arguments)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    MonitorOptions options = arguments.options;
    arguments.df.apply(options.session);
    arguments.tags.apply(options.session);
    Monitoring monitoring{openSource(arguments.source, {.rate = arguments.rate}), options};
    monitoring.servePage({}, {});
    return monitoring.run([&monitoring] {
        const std::string page = monitoring.pageUrl();
        return page.empty() ? page : "page " + page;
    });
}

} // namespace

void addMonitor(CLI::App& program, Run& run)
{
    CLI::App* const verb = program.add_subcommand(
        "monitor", "watch mass data: a live page, a status line, the ledger at the end");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SOURCE", arguments->source, sourceHelp)->required();
    arguments->options.page.addTo(*verb);
    verb->add_flag("--stats", arguments->options.stats, "all counters as a JSON object a second on stdout");
    verb->add_option("--mirror", arguments->options.mirror,
                     "forward a tcp:// stream to clients of ADDRESS:PORT")
        ->check(notEmpty())
        ->type_name("ADDRESS:PORT");
    verb->add_option("--record", arguments->options.recordTo, "keep what is received in FILE")
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--metrics", arguments->options.metricsPort,
                     "Prometheus text on http://127.0.0.1:PORT/metrics")
        ->check(portFrom(0))
        ->type_name("PORT");
    verb->add_option("--for", arguments->options.seconds, "stop after SECONDS")
        ->check(numberFrom(0))
        ->type_name("SECONDS");
    verb->add_option("--rate", arguments->rate, "play a recording R times as fast; 0: as fast as possible")
        ->check(numberFrom(0))
        ->type_name("R");
    arguments->tags.addTo(*verb);
    arguments->df.addTo(*verb);
    verb->footer("Examples:\n"
                 "  vk410 monitor udp://:5555 --scan-range 1:145M-155M/12.5k\n"
                 "  vk410 monitor tcp://192.0.2.7:5555 --mirror 127.0.0.1:7000 --record a.pcap\n"
                 "  vk410 monitor a.pcap --rate 0");
    verb->callback([arguments, &run] { run = [arguments] { return monitor(*arguments); }; });
}

} // namespace verbs
