// SPDX-License-Identifier: MIT
#include "tools/vk410/dfoptions.h"
#include "tools/vk410/validators.h"

namespace verbs {

void DfOptions::addTo(CLI::App& verb)
{
    verb.add_option("--df", m_processor, "processor of direction-finding scans; scan if none is given")
        ->check(oneOf({"scan", "scif"}))
        ->type_name("scan|scif");
    // One value each: a source may follow.
    verb.add_option("--scan-range", m_scanRanges,
                    "a job's JOB:START-STOP/STEP in Hz, k, M or G: 1:145M-155M/12.5k; one option a job")
        ->allow_extra_args(false)
        ->type_name("RANGE");
    verb.add_option("--exclude", m_excluded,
                    "leave out suppress:START-STOP, or blanking:START-STOP when the receiver blanks")
        ->allow_extra_args(false)
        ->type_name("RANGE");
}

void DfOptions::apply(receiver::SessionOptions& session) const
{
    using Processor = receiver::SessionOptions::DfProcessor;
    session.df = m_processor == "scif" ? Processor::Scif : Processor::Scan;
    session.scanRanges = receiver::parseScanRanges(m_scanRanges);
    for (const std::string& text : m_excluded)
        session.excluded.push_back(receiver::parseExcludedRange(text));
}

} // namespace verbs
