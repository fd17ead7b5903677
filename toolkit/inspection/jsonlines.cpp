// SPDX-License-Identifier: MIT
#include "toolkit/inspection/jsonlines.h"
#include "toolkit/inspection/optheadertext.h"
#include <fmt/format.h>
#include <iterator>

namespace inspection {
namespace {

constexpr std::uint16_t dfScanTag = 5301;

// Written as it comes, not through a tree of values: a datagram may hold a million items.
template <typename... Values>
void add(std::string& line, fmt::format_string<Values...> text, Values&&... values)
{
    fmt::format_to(std::back_inserter(line), text, std::forward<Values>(values)...);
}

void addHex(std::string& line, wire::View bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    line += '"';
    for (const unsigned char byte : bytes.bytes()) {
        line += digits[byte >> 4U];
        line += digits[byte & 15U];
    }
    line += '"';
}

void addItems(std::string& line, const FieldInfo& field, std::uint32_t count)
{
    add(line, R"("selBit{}":[)", field.bit);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i > 0)
            line += ',';
        const fmt::format_int digits{field.at(i)};
        line.append(digits.data(), digits.size());
    }
    line += ']';
}

// Whole numbers only: what is a float there is not interpreted, and may be no number of JSON.
void addOptHeaderFields(std::string& line, const AttributeInfo& attribute)
{
    const std::size_t before = line.size();
    const wire::ByteOrder order = optHeaderOrder(attribute.header.selectors);
    for (const wire::NamedField& field : wire::optHeaderFields(attribute.header.tag)) {
        const auto number = numberText(field, *attribute.optHeader, order);
        if (number && field.kind != wire::FieldKind::Float32)
            add(line, R"({}"{}":{})", line.size() == before ? R"("optHeaderFields":{)" : ",", field.name,
                *number);
    }
    if (line.size() != before)
        line += "},";
}

} // namespace

void JsonLines::datagram(const DatagramInfo& datagram)
{
    add(m_line, R"({{"type":"datagram","index":{},"offset":{},"size":{},"valid":{},"sequence":)",
        datagram.index, datagram.position, datagram.bytes.size(), datagram.valid);
    if (datagram.sequence)
        add(m_line, "{}", *datagram.sequence);
    else
        m_line += "null";
    if (datagram.receivedNs)
        add(m_line, R"(,"received":{})", *datagram.receivedNs);
    if (datagram.origin.transport != recording::Transport::File)
        add(m_line, R"(,"source":"{}")", text(datagram.origin)); // digits and addresses: nothing to escape
    m_line += '}';
    write();
}

void JsonLines::attribute(const AttributeInfo& attribute)
{
    const AttributeHeader& header = attribute.header;
    add(m_line,
        R"({{"type":"attribute","datagram":{},"index":{},"offset":{},"tag":{},"known":{},"channel":{},)"
        R"("count":{},"selectors":{},)",
        header.datagram, header.index, header.offset, header.tag, header.known, header.channel, header.count,
        header.selectors);
    if (attribute.optHeader) {
        m_line += R"("optHeader":)";
        addHex(m_line, *attribute.optHeader);
        m_line += ',';
        // The header of a direction-finding scan says where the fields belong; the others name themselves.
        if (header.tag == dfScanTag)
            addOptHeaderFields(m_line, attribute);
    }
    m_line += R"("fields":{)";
    if (attribute.rawBytes) {
        m_line += R"("selBit0":)";
        addHex(m_line, *attribute.rawBytes);
    }
    for (const FieldInfo& field : attribute.fields) {
        if (&field != attribute.fields.data())
            m_line += ',';
        addItems(m_line, field, header.count);
    }
    m_line += R"(},"dataEnd":)";
    if (attribute.dataEnd)
        add(m_line, "{}}}", *attribute.dataEnd);
    else
        m_line += "null}";
    write();
}

void JsonLines::dropped(const Drop& drop)
{
    // Both texts come from this program and the library, and hold nothing to escape.
    add(m_line, R"({{"type":"error","datagram":{},"attribute":{},"reason":"{}","detail":"{}"}})",
        drop.datagram, drop.attribute, drop.reason, drop.detail);
    write();
}

void JsonLines::write()
{
    m_line += '\n';
    std::fwrite(m_line.data(), 1, m_line.size(), m_out);
    m_line.clear();
}

} // namespace inspection
