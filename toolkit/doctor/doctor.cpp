// SPDX-License-Identifier: MIT
#include "toolkit/doctor/doctor.h"
#include <fmt/format.h>
#include <utility>

namespace doctor {

namespace {

using Kind = receiver::SourceSpec::Kind;

bool isLive(Kind kind)
{
    return kind == Kind::Udp || kind == Kind::Tcp;
}

// Of one count that should be 0.
Finding countOf(const char* check, quint64 count, const std::string& what, const std::string& fix)
{
    std::string found = fmt::format("{} {}", count, what);
    if (count == 0)
        return {check, Outcome::Fine, std::move(found), {}};
    return {check, Outcome::Problem, std::move(found), fix};
}

// Whether each byte of the file was in something that could be handed out.
Finding checkWhole(const receiver::Source::Facts& facts, const std::string& source)
{
    if (facts.problems == 0)
        return {"whole", Outcome::Fine, fmt::format("{} bytes read to their end", facts.fileBytes), {}};
    const std::string more =
        facts.problems > 1 ? fmt::format("; and {} more problems", facts.problems - 1) : std::string{};
    return {"whole", Outcome::Problem, facts.firstProblem + more,
            fmt::format(
                "'vk410 check {0} --repair OUT' keeps what is sound; 'vk410 inspect {0}' names all that is "
                "not; a full disk or a killed recorder cuts a file",
                source)};
}

Finding checkPackets(const ledger::Counters& counters, const receiver::Session& session, double seconds,
                     const std::string& source)
{
    const std::string silence = session.status().silence;
    const std::string when = silence.empty() ? std::string{} : fmt::format(" in {:.1f} s", seconds);
    if (counters.datagrams > 0)
        return {"datagrams",
                Outcome::Fine,
                fmt::format("{} datagrams, {} bytes{}", counters.datagrams, counters.bytes, when),
                {}};
    return {
        "datagrams", Outcome::Problem, "none came" + when,
        silence.empty()
            ? fmt::format("'vk410 inspect {}' says what it holds instead; record again, at the port of the "
                          "mass data",
                          source)
            : silence};
}

// Nobody may read the rules of a firewall but root; what came through is proof enough.
Finding checkFirewall(const ledger::Counters& counters, const receiver::SourceSpec& spec)
{
    if (counters.datagrams > 0)
        return {"firewall", Outcome::Fine, "lets datagrams through", {}};
    const char* const protocol = spec.kind == Kind::Udp ? "udp" : "tcp";
    return {"firewall", Outcome::Unknown, "cannot be asked from here",
            fmt::format(
                "'sudo nft list ruleset' shows its rules; 'sudo nft insert rule inet filter input {} dport "
                "{} accept' opens the port where there is a table filter",
                protocol, spec.port)};
}

Finding checkMagic(const ledger::Counters& counters, const receiver::SourceSpec& spec,
                   const std::string& source)
{
    return countOf(
        "magic", counters.invalid, fmt::format("of {} without the magic of mass data", counters.datagrams),
        isLive(spec.kind)
            ? fmt::format("something else sends to this port: 'sudo tcpdump -c 3 -Xni any port {}' "
                          "shows who",
                          spec.port)
            : fmt::format("other traffic was recorded, too: 'vk410 inspect {0} --port PORT' takes one "
                          "port of it, 'vk410 check {0} --repair OUT' leaves it out",
                          source));
}

Finding checkSequence(const ledger::Counters& counters, const receiver::SourceSpec& spec,
                      const std::string& source)
{
    const quint64 sum = counters.wireLost + counters.wireDuplicates + counters.wireReordered;
    Finding finding = countOf(
        "sequence", sum, "lost, doubled or out of order on the wire",
        isLive(spec.kind)
            ? "'ip -s link' shows what network cards dropped; two routes or mirrors double"
            : fmt::format(
                  "they were so when they were recorded, and cannot be had from here; 'vk410 inspect {}' "
                  "lists the senders: two in one recording double",
                  source));
    finding.found = fmt::format("{} lost, {} doubled, {} out of order on the wire", counters.wireLost,
                                counters.wireDuplicates, counters.wireReordered);
    return finding;
}

Finding checkTags(const ledger::Ledger& ledger, const ledger::Counters& counters)
{
    Finding finding =
        countOf("tags", counters.unrouted + counters.unknownTag, "attributes without a processor",
                "--tag panorama=TAG, zerospan=TAG or df=TAG says which of them carry what");
    std::string tags;
    for (const auto& [tag, count] : ledger.unroutedByTag())
        tags += fmt::format("{}tag {}: {}", tags.empty() ? " (" : ", ", tag, count);
    if (!tags.empty())
        finding.found += tags + ")";
    return finding;
}

Finding checkAccepted(const ledger::Ledger& ledger, const ledger::Counters& counters)
{
    Finding finding = countOf(
        "processors", counters.notAccepted, "attributes that their processor dropped",
        "--scan-range JOB:START-STOP/STEP says what a direction finder scans; 'vk410 inspect' shows it");
    std::string reasons;
    for (const auto& [reason, count] : ledger.notAcceptedByReason())
        reasons += fmt::format("{}{}: {}", reasons.empty() ? " (" : ", ", reason, count);
    if (!reasons.empty())
        finding.found += reasons + ")";
    return finding;
}

Finding checkMaps(const ledger::Counters& counters, const std::string& source)
{
    if (counters.mapRejected > 0)
        return {"maps", Outcome::Problem, fmt::format("{} traces refused by a map", counters.mapRejected),
                fmt::format("'vk410 inspect {}' shows their sizes", source)};
    if (counters.mapWrites > 0)
        return {"maps", Outcome::Fine, fmt::format("{} traces in maps", counters.mapWrites), {}};
    const bool isExplained = counters.invalid + counters.selectorErrors + counters.truncated +
                                 counters.unknownTag + counters.unrouted + counters.notAccepted >
                             0;
    return {"maps", Outcome::Problem, "no trace reached a map",
            isExplained
                ? "the problem above explains it"
                : "the first trace of a panorama only brings its grid: wait for, or record, more than "
                  "one"};
}

} // namespace

std::vector<Finding> checkArrivals(receiver::Session& session, const receiver::SourceSpec& spec,
                                   const std::string& source, double seconds)
{
    const ledger::Ledger& ledger = session.ledger();
    const ledger::Counters counters = ledger.counters();
    std::vector<Finding> findings;
    if (spec.kind == Kind::Recording)
        findings.push_back(checkWhole(session.source()->facts(), source));
    findings.push_back(checkPackets(counters, session, seconds, source));
    if (isLive(spec.kind))
        findings.push_back(checkFirewall(counters, spec));
    if (spec.kind == Kind::Tcp)
        findings.push_back(countOf("framing", counters.framing, "streams given up at an impossible length",
                                   "this is not the mass-data port; the receiver's manual names it"));
    if (counters.datagrams == 0)
        return findings;
    findings.push_back(checkMagic(counters, spec, source));
    findings.push_back(checkSequence(counters, spec, source));
    if (spec.kind == Kind::Udp)
        findings.push_back(countOf("kernel", counters.kernelDropped,
                                   "dropped because the socket's buffer was full",
                                   "sudo sysctl -w net.core.rmem_max=8388608"));
    findings.push_back(countOf("contents", counters.selectorErrors + counters.truncated,
                               "attributes with a refused selector word, or cut",
                               fmt::format("'vk410 inspect {} --count 100 --json' names them", source)));
    findings.push_back(checkTags(ledger, counters));
    findings.push_back(checkAccepted(ledger, counters));
    findings.push_back(checkMaps(counters, source));
    return findings;
}

} // namespace doctor
