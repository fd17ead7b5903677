// SPDX-License-Identifier: MIT
#include "toolkit/exporting/collector.h"
#include <algorithm>
#include <fmt/format.h>

namespace exporting {

namespace {

constexpr double nanosecond = 1e-9;
constexpr std::int64_t microsecondNs = 1'000;

// What comes twice or late has its rows.
bool isInTheTable(const ledger::Line& line)
{
    return line.counter == &ledger::Counters::wireDuplicates ||
           line.counter == &ledger::Counters::wireReordered;
}

// Attributes of other kinds are nobody's loss here.
bool isLossOf(const ledger::Line& line, What what)
{
    using C = ledger::Counters;
    const bool isOther = line.counter == &C::unrouted || line.counter == &C::unknownTag ||
                         (line.counter == &C::notAccepted && what != What::Df);
    return line.isLoss && !isOther && !isInTheTable(line);
}

} // namespace

Collector::Collector(receiver::Session& session, What what, Writer& writer)
    : m_session(session)
    , m_writer(writer)
{
    const receiver::ReceiverValues& values = session.values();
    switch (what) {
    case What::Levels:
        // Not the map: the first trace of a session only brings its grid there.
        connect(&session.ifPanorama(), &MdpIfpan::signalTraceData, this,
                [this](const std::vector<short>& levels, double /*realFreq*/, size_t stamp, double firstHz,
                       double lastHz) { takePanorama(levels, stamp, firstHz, lastHz); });
        return;
    case What::ZeroSpan:
        values.zeroSpan->onScan([this, map = values.zeroSpan.get()] { takeZeroSpan(*map); });
        return;
    case What::SecondZeroSpan:
        values.zeroSpan2->onScan([this, map = values.zeroSpan2.get()] { takeZeroSpan(*map); });
        return;
    case What::Df:
        values.dfSpectrum->onWrite([this](long first, unsigned int count) {
            takeDf(static_cast<unsigned int>(std::max(first, 0L)), count);
        });
        return;
    }
}

Collector::~Collector()
{
    const receiver::ReceiverValues& values = m_session.values();
    values.zeroSpan->onScan(nullptr);
    values.zeroSpan2->onScan(nullptr);
    values.dfSpectrum->onWrite(nullptr);
}

void Collector::takePanorama(const std::vector<short>& levels, quint64 deviceNs, double firstHz,
                             double lastHz)
{
    if (levels.empty())
        return;
    const double step = levels.size() > 1 ? (lastHz - firstHz) / static_cast<double>(levels.size() - 1) : 0.0;
    write(Trace{when(static_cast<std::int64_t>(deviceNs)), firstHz, step, levels});
}

void Collector::takeZeroSpan(const receiver::CountedLevelMap& map)
{
    const std::vector<values::ChannelRange>& ranges = map.GetChannelRangeDefinition().GetRanges();
    if (ranges.empty() || map.GetValues().empty())
        return;
    write(Trace{when(static_cast<std::int64_t>(map.GetTimeStamp()) * microsecondNs),
                ranges.front().start * nanosecond, ranges.front().step * nanosecond, map.GetValues()});
}

void Collector::takeDf(unsigned int first, unsigned int count)
{
    const receiver::CountedDFSpectrumMap& map = *m_session.values().dfSpectrum;
    const values::ChannelRangeDefinition& grid = map.GetChannelRangeDefinition();
    m_frequencies.clear();
    unsigned int id = first;
    for (const values::ChannelRange& range : grid.GetRanges()) {
        for (; id - first < count && range.holds(id); ++id)
            m_frequencies.push_back(range.position(id - range.firstChannel));
    }
    const std::size_t written = m_frequencies.size();
    const std::size_t begin = first - grid.GetMinChannelId();
    if (written == 0 || first < grid.GetMinChannelId() || begin + written > map.GetValues().size())
        return;
    write(DfBlock{when(static_cast<std::int64_t>(map.GetTimeStamp()) * microsecondNs), first, m_frequencies,
                  map.GetValues().subspan(begin, written)});
}

template <typename Row>
void Collector::write(Row row)
{
    if (m_failure)
        return;
    try {
        m_writer.write(row);
        ++m_rows;
    } catch (const CannotExport& failure) {
        fail(failure);
    }
}

void Collector::update()
{
    if (m_failure)
        return;
    try {
        m_writer.update();
    } catch (const CannotExport& failure) {
        fail(failure);
    }
}

void Collector::fail(const CannotExport& failure)
{
    m_failure = failure.what();
    emit failed();
}

When Collector::when(std::int64_t deviceNs)
{
    const quint64 lost = m_session.lostOnTheWire();
    // A late datagram takes its loss back; the next loss is then told already.
    const quint64 before = lost > m_lost ? lost - m_lost : 0;
    m_lost += before;
    return {m_session.lastReceivedNs() != 0 ? m_session.lastReceivedNs() : deviceNs, deviceNs, before};
}

quint64 lossesOf(const ledger::Counters& counters, What what)
{
    quint64 sum = 0;
    for (const ledger::Line& line : ledger::lines())
        sum += isLossOf(line, what) ? counters.*line.counter : 0;
    return sum;
}

std::string lossText(const ledger::Counters& counters, What what)
{
    std::string losses;
    std::string others;
    for (const ledger::Line& line : ledger::lines()) {
        const quint64 count = counters.*line.counter;
        if (count != 0 && isLossOf(line, what))
            losses += fmt::format("{}{} {}", losses.empty() ? "" : " | ", line.name, count);
        else if (count != 0 && isInTheTable(line))
            others += fmt::format(", {} {}", line.name, count);
    }
    return (losses.empty() ? "no losses" : losses) + others;
}

} // namespace exporting
