// SPDX-License-Identifier: MIT
#include "toolkit/checking/check.h"
#include <memory>
#include <utility>

namespace checking {

namespace {

constexpr std::size_t mostSenders = 64; // more come from foreign or spoilt bytes only

// Counts what the inspector tells.
class Counter : public inspection::Sink {
public:
    explicit Counter(Findings& findings)
        : m_findings(findings)
    {}

    void datagram(const inspection::DatagramInfo& datagram) override
    {
        m_isSound = datagram.valid;
        ++m_findings.datagrams;
        m_findings.bytes += datagram.bytes.size();
        m_findings.invalid += datagram.valid ? 0 : 1;
        const bool isCounted = m_senders.size() < mostSenders || m_senders.contains(datagram.origin);
        if (datagram.valid && datagram.sequence && isCounted)
            m_findings.missing += m_senders[datagram.origin].take(*datagram.sequence);
    }
    void attribute(const inspection::AttributeInfo& /*attribute*/) override {}
    void dropped(const inspection::Drop& drop) override
    {
        m_isSound = false;
        ++m_findings.drops[drop.reason];
    }

    [[nodiscard]] bool isSound() const { return m_isSound; }

private:
    Findings& m_findings;
    std::map<recording::Origin, inspection::SequenceWatch> m_senders;
    bool m_isSound = false; // the datagram at hand
};

void tell(Findings& findings, const std::string& problem)
{
    if (findings.problemCount++ < Findings::mostTold)
        findings.problems.push_back(problem);
}

void readAll(recording::DatagramSource& source, Findings& findings, const Visitor& visit)
{
    Counter counter{findings};
    inspection::Inspector inspector{counter};
    while (std::optional<recording::Datagram> datagram = source.next()) {
        // The reader converts in place; who visits wants the bytes as they came.
        recording::Datagram copy = *datagram;
        const auto* const bytes = reinterpret_cast<const unsigned char*>(datagram->bytes.constData());
        copy.bytes = recording::withSpareRoom(bytes, static_cast<std::size_t>(datagram->bytes.size()));
        inspector.inspect(std::move(copy));
        findings.soundDatagrams += counter.isSound() ? 1 : 0;
        if (visit)
            visit(*datagram, counter.isSound());
    }
}

} // namespace

Findings check(const std::string& path, const recording::Options& options, const Visitor& visit)
{
    Findings findings;
    try {
        const std::unique_ptr<recording::DatagramSource> source = recording::openRecording(path, options);
        source->onProblem([&findings](const recording::Problem& problem) { tell(findings, text(problem)); });
        readAll(*source, findings, visit);
        findings.ignored = source->ignored();
    } catch (const recording::BadFile& bad) {
        findings.isWhole = false;
        tell(findings, text(bad.problem()));
    }
    return findings;
}

} // namespace checking
