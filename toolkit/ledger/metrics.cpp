// SPDX-License-Identifier: MIT
// The ledger as text.
#include "toolkit/ledger/ledger.h"
#include <fmt/format.h>

namespace ledger {

std::string lossText(const Counters& counters)
{
    std::string text;
    for (const Line& line : lines()) {
        const quint64 count = counters.*line.counter;
        if (!line.isLoss || count == 0)
            continue;
        text += fmt::format("{}{} {}", text.empty() ? "" : " | ", line.name, count);
    }
    return text.empty() ? "no losses" : text;
}

std::string reportText(const Ledger& ledger)
{
    const Counters counters = ledger.counters();
    std::string text;
    for (const Line& line : lines()) {
        const quint64 count = counters.*line.counter;
        text += fmt::format("{:<20} {:>14}", line.name, count);
        if (line.isLoss && count != 0)
            text += fmt::format("  {}", line.definition);
        text += "\n";
    }
    for (const auto& [reason, count] : ledger.notAcceptedByReason())
        text += fmt::format("  not accepted, {}: {}\n", reason, count);
    for (const auto& [tag, count] : ledger.unroutedByTag())
        text += fmt::format("  no processor for tag {}: {}\n", tag, count);
    text += fmt::format("{:<20} {:>14}\n", "sums balance", counters.balances() ? "yes" : "NO");
    return text;
}

std::string metricsText(const Counters& counters)
{
    std::string text;
    for (const Line& line : lines()) {
        text += fmt::format("# HELP vk410_{}_total {}\n# TYPE vk410_{}_total counter\nvk410_{}_total {}\n",
                            line.metric, line.definition, line.metric, line.metric, counters.*line.counter);
    }
    return text;
}

} // namespace ledger
