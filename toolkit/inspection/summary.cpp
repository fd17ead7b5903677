// SPDX-License-Identifier: MIT
#include "toolkit/inspection/summary.h"
#include "toolkit/inspection/optheadertext.h"
#include "toolkit/inspection/timetext.h"
#include <algorithm>
#include <fmt/format.h>

namespace inspection {
namespace {

// A receiver has a few dozen of each; more come from foreign or spoilt bytes only.
constexpr std::size_t maxRows = 1024;
constexpr std::size_t maxStreams = 64;
constexpr std::size_t maxErrors = 20;
constexpr std::size_t maxSelectors = 3;

constexpr unsigned halfRange = 0x8000; // what is nearer behind than ahead came late, or twice
constexpr unsigned stragglers = 256;   // so far behind, a datagram was overtaken on its way

double seconds(std::int64_t from, std::int64_t to)
{
    if (to < from)
        return -seconds(to, from);
    // Unsigned, for times of any distance; not as floating numbers, which would lose the nanoseconds.
    return static_cast<double>(static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from)) / 1e9;
}

std::string range(std::uint32_t low, std::uint32_t high)
{
    return low == high ? std::to_string(low) : fmt::format("{}..{}", low, high);
}

std::string list(const std::set<std::uint32_t>& selectors)
{
    std::string text;
    for (const std::uint32_t word : selectors)
        text += fmt::format("{}0x{:X}", text.empty() ? "" : " ", word);
    return selectors.size() > maxSelectors ? text.substr(0, text.rfind(' ')) + " .." : text;
}

// What a trace covers, where its optional header says so.
std::optional<std::uint32_t> spanHzOf(const AttributeInfo& attribute)
{
    if (!attribute.optHeader)
        return std::nullopt;
    const wire::ByteOrder order = optHeaderOrder(attribute.header.selectors);
    for (const wire::NamedField& field : wire::optHeaderFields(attribute.header.tag)) {
        if (field.name == "span")
            return attribute.optHeader->get(wire::Field<std::uint32_t>{field.offset}, order);
    }
    return std::nullopt;
}

} // namespace

std::uint32_t SequenceWatch::take(std::uint16_t sequence)
{
    const std::optional<std::uint16_t> last = m_last;
    m_last = sequence;
    if (!last)
        return 0;
    const auto ahead = static_cast<std::uint16_t>(sequence - *last - 1);
    if (ahead < halfRange) {
        m_gaps += ahead > 0 ? 1 : 0;
        m_missing += ahead;
        return ahead;
    }
    ++m_backwards;
    if (ahead > UINT16_MAX - stragglers)
        m_last = last; // otherwise the sender has begun anew
    return 0;
}

Summary::Summary(std::FILE* out, std::string name)
    : m_out(out)
    , m_name(std::move(name))
{}

void Summary::datagram(const DatagramInfo& datagram)
{
    ++m_datagrams;
    m_bytes += datagram.bytes.size();
    m_position = datagram.position;
    m_behindGap = false;
    m_now = datagram.receivedNs;
    if (m_now) {
        m_first = std::min(m_first.value_or(*m_now), *m_now);
        m_last = std::max(m_last.value_or(*m_now), *m_now);
    }
    if (!datagram.valid)
        listError(datagram.index, "Bad Magic", "");
    const bool isFull = m_streams.size() >= maxStreams && !m_streams.contains(datagram.origin);
    if (isFull) {
        ++m_datagramsWithoutStream;
        return;
    }
    Stream& stream = m_streams[datagram.origin];
    ++stream.datagrams;
    stream.invalid += datagram.valid ? 0 : 1;
    if (datagram.valid && datagram.sequence)
        m_behindGap = stream.sequence.take(*datagram.sequence) > 0;
}

void Summary::attribute(const AttributeInfo& attribute)
{
    const AttributeHeader& header = attribute.header;
    const std::pair key{header.tag, header.channel};
    if (m_rows.size() >= maxRows && !m_rows.contains(key)) {
        ++m_attributesWithoutRow;
        return;
    }
    Row& row = m_rows[key];
    row.known = header.known;
    ++row.attributes;
    row.bytes += header.size;
    row.minCount = std::min(row.minCount, header.count);
    row.maxCount = std::max(row.maxCount, header.count);
    if (const std::optional<std::uint32_t> spanHz = spanHzOf(attribute)) {
        row.minSpanHz = std::min(row.minSpanHz.value_or(*spanHz), *spanHz);
        row.maxSpanHz = std::max(row.maxSpanHz.value_or(*spanHz), *spanHz);
    }
    if (row.selectors.size() <= maxSelectors)
        row.selectors.insert(header.selectors);
    row.gaps += m_behindGap ? 1 : 0;
    if (!row.first)
        row.first = m_now;
    row.last = m_now;
}

void Summary::dropped(const Drop& drop)
{
    listError(drop.datagram, drop.reason, fmt::format(" in attribute {}: {}", drop.attribute, drop.detail));
}

void Summary::listError(std::uint64_t datagram, const std::string& reason, const std::string& detail)
{
    ++m_errorCount;
    ++m_errorsByReason[reason];
    if (m_errors.size() < maxErrors)
        m_errors.push_back(fmt::format("datagram {} at byte {}: {}{}", datagram, m_position, reason, detail));
}

void Summary::finish()
{
    printHead();
    printRows();
    printErrors();
}

void Summary::printHead() const
{
    fmt::print(m_out, "{}: {} datagrams, {} bytes\n", m_name, m_datagrams, m_bytes);
    if (m_first)
        fmt::print(m_out, "from {} to {}, {:.3f} s\n", timeText(*m_first), timeText(*m_last),
                   seconds(*m_first, *m_last));
    for (const auto& [origin, stream] : m_streams) {
        const SequenceWatch& sequence = stream.sequence;
        fmt::print(m_out, "{}: {} datagrams, {} invalid; sequence gaps {}, missing {}, backwards {}\n",
                   text(origin), stream.datagrams, stream.invalid, sequence.gaps(), sequence.missing(),
                   sequence.backwards());
    }
    if (m_datagramsWithoutStream > 0)
        fmt::print(m_out, "further senders: {} datagrams\n", m_datagramsWithoutStream);
}

void Summary::printRows() const
{
    if (m_rows.empty())
        return;
    std::vector<Cells> table{{"tag", "channel", "attributes", "bytes", "count", "span/Hz", "selectors",
                              "gaps", "rate/s", "age/s"}};
    for (const auto& row : m_rows)
        table.push_back(cellsOf(row));
    std::array<std::size_t, std::tuple_size_v<Cells>> width{};
    for (const Cells& cells : table) {
        for (std::size_t i = 0; i < cells.size(); ++i)
            width[i] = std::max(width[i], cells[i].size());
    }
    fmt::print(m_out, "\n");
    for (const Cells& cells : table) {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i)
            line += fmt::format("{}{:>{}}", i == 0 ? "" : "  ", cells[i], width[i]);
        fmt::print(m_out, "{}\n", line);
    }
    if (std::any_of(m_rows.begin(), m_rows.end(), [](const auto& row) { return !row.second.known; }))
        fmt::print(m_out, "? not a known tag: stepped over\n");
    if (m_attributesWithoutRow > 0)
        fmt::print(m_out, "further tags and channels: {} attributes\n", m_attributesWithoutRow);
}

Summary::Cells
Summary::cellsOf(const std::pair<const std::pair<std::uint16_t, std::uint32_t>, Row>& row) const
{
    const auto& [key, what] = row;
    std::string rate = "-";
    std::string age = "-";
    if (what.first && what.last && *what.last > *what.first)
        rate = fmt::format("{:.1f}",
                           static_cast<double>(what.attributes - 1) / seconds(*what.first, *what.last));
    if (what.last && m_last)
        age = fmt::format("{:.3f}", seconds(*what.last, *m_last));
    return {fmt::format("{}{}", key.first, what.known ? "" : "?"),
            std::to_string(key.second),
            std::to_string(what.attributes),
            std::to_string(what.bytes),
            range(what.minCount, what.maxCount),
            what.minSpanHz ? range(*what.minSpanHz, *what.maxSpanHz) : "-",
            list(what.selectors),
            std::to_string(what.gaps),
            rate,
            age};
}

void Summary::printErrors() const
{
    if (m_errorCount == 0)
        return;
    fmt::print(m_out, "\n{} errors", m_errorCount);
    const char* separator = ": ";
    for (const auto& [reason, count] : m_errorsByReason) {
        fmt::print(m_out, "{}{} {}", separator, count, reason);
        separator = ", ";
    }
    fmt::print(m_out, "\n");
    for (const std::string& error : m_errors)
        fmt::print(m_out, "  {}\n", error);
    if (m_errorCount > m_errors.size())
        fmt::print(m_out, "  and {} more\n", m_errorCount - m_errors.size());
}

} // namespace inspection
