// SPDX-License-Identifier: MIT
#include "toolkit/inspection/explanation.h"
#include "toolkit/inspection/optheadertext.h"
#include "toolkit/inspection/timetext.h"
#include "toolkit/inspection/whydropped.h"
#include "wire/layout.h"
#include "wire/optheader.h"
#include "wire/selectors.h"
#include <algorithm>
#include <fmt/format.h>

namespace inspection {
namespace {

constexpr char uninterpreted[] = "not interpreted";
constexpr std::size_t shownBytes = 8;
constexpr std::uint32_t shownItems = 8;

std::string hex(std::span<const unsigned char> bytes)
{
    std::string text;
    for (const unsigned char byte : bytes.first(std::min(bytes.size(), shownBytes)))
        text += fmt::format("{:02X} ", byte);
    return bytes.size() > shownBytes ? text + ".." : text;
}

std::string selectorText(std::uint32_t selectors)
{
    std::string text = fmt::format("0x{:08X}", selectors);
    for (unsigned bit = 0; bit < wire::itemSize.size(); ++bit) {
        if ((selectors >> bit & 1U) != 0)
            text += fmt::format(" selBit{}{}", bit, wire::itemSize[bit] == 0 ? " (unknown)" : "");
    }
    if ((selectors & wire::selector::hostOrderFlag) != 0)
        text += ", little-endian data";
    return text;
}

// One line of an attribute's header.
struct HeaderField {
    std::size_t offset;
    std::size_t size;
    std::string_view name; // empty: not interpreted
};

template <typename T>
constexpr HeaderField named(wire::Field<T> field, std::string_view name)
{
    return {field.offset, sizeof(T), name};
}

constexpr std::array normalFields{named(wire::attribute::tag, "tag"),
                                  named(wire::attribute::length, "length"),
                                  named(wire::attribute::count, "count"),
                                  named(wire::attribute::channel, "channel"),
                                  named(wire::attribute::optHeaderLength, "optHeaderLength"),
                                  named(wire::attribute::selectors, "selectors")};
constexpr std::array extendedFields{named(wire::extended::tag, "tag"),
                                    HeaderField{2, 2, {}},
                                    named(wire::extended::length, "length"),
                                    HeaderField{8, 16, {}},
                                    named(wire::extended::count, "count"),
                                    named(wire::extended::channel, "channel"),
                                    named(wire::extended::optHeaderLength, "optHeaderLength"),
                                    named(wire::extended::selectors, "selectors"),
                                    named(wire::extended::word40, "word40"),
                                    HeaderField{44, 16, {}}};

std::uint32_t converted(wire::View bytes, std::size_t offset, std::size_t size)
{
    switch (size) {
    case 1:
        return bytes.getOrZero(wire::Field<std::uint8_t>{offset}, wire::ByteOrder::Little);
    case 2:
        return bytes.getOrZero(wire::Field<std::uint16_t>{offset}, wire::ByteOrder::Little);
    default:
        return bytes.getOrZero(wire::Field<std::uint32_t>{offset}, wire::ByteOrder::Little);
    }
}

std::string headerValue(std::string_view name, std::uint32_t value, const AttributeHeader& header)
{
    if (name == "selectors")
        return selectorText(value);
    if (name == "length") {
        const std::uint64_t behind = wire::tag::isExtended(header.tag) ? wire::extended::lengthExcludes
                                                                       : wire::attribute::lengthExcludes;
        return fmt::format("{}: the attribute takes {} bytes", value, value + behind);
    }
    if (name == "tag" && !header.known)
        return fmt::format("{}: unknown, stepped over", value);
    return std::to_string(value);
}

} // namespace

void Explanation::line(std::uint64_t offset, std::uint64_t size, std::string_view name,
                       std::string_view value)
{
    const bool isInside = offset < m_received.size() || (offset == m_received.size() && size == 0);
    if (!isInside)
        return;
    const std::span<const unsigned char> bytes =
        std::span{m_received}.subspan(offset, std::min<std::uint64_t>(size, m_received.size() - offset));
    fmt::print(m_out, "{:>7}  {:<26}  {:<22}  {}\n", offset, hex(bytes), name, value);
}

void Explanation::datagram(const DatagramInfo& datagram)
{
    const auto bytes = datagram.bytes.bytes();
    m_received.assign(bytes.begin(), bytes.end());
    fmt::print(m_out, "datagram {}: {} bytes at byte {} of the file\n", datagram.index, bytes.size(),
               datagram.position);
    if (datagram.receivedNs)
        fmt::print(m_out, "received {}, {}\n", timeText(*datagram.receivedNs), text(datagram.origin));
    fmt::print(m_out, "\n{:>7}  {:<26}  {:<22}  {}\n", "byte", "bytes", "name", "value");

    namespace layout = wire::datagram;
    line(0, 4, "magic", datagram.valid ? "good" : "bad: 00 0C 5A 10 or 10 5A 0C 00 expected");
    line(4, 4, "", uninterpreted);
    line(layout::sequence.offset, 2, "sequence",
         datagram.sequence ? std::to_string(*datagram.sequence) : "cut");
    line(10, 2, "", uninterpreted);
    const std::optional<std::uint32_t> length = datagram.bytes.get(layout::totalLength);
    line(layout::totalLength.offset, 4, "totalLength", length ? std::to_string(*length) : "cut");
    if (!datagram.valid) {
        line(layout::headerSize, bytes.size(), "", uninterpreted);
        fmt::print(m_out, "dropped: the whole datagram, for its magic\n");
    }
}

void Explanation::attribute(const AttributeInfo& attribute)
{
    explainHeader(attribute.header);
    explainOptHeader(attribute.header);
    explainData(attribute);
}

void Explanation::explainHeader(const AttributeHeader& header)
{
    fmt::print(m_out, "attribute {}\n", header.index);
    const bool isExtended = wire::tag::isExtended(header.tag);
    const std::span<const HeaderField> fields = isExtended ? std::span<const HeaderField>{extendedFields}
                                                           : std::span<const HeaderField>{normalFields};
    for (const HeaderField& field : fields) {
        const std::size_t offset = header.offset + field.offset;
        if (field.name.empty())
            line(offset, field.size, "", uninterpreted);
        else
            line(offset, field.size, field.name,
                 headerValue(field.name, converted(header.converted, offset, field.size), header));
    }
}

void Explanation::explainOptHeader(const AttributeHeader& header)
{
    const std::size_t begin = header.offset + headerSizeOf(header.tag);
    const wire::View all{m_received.data(), m_received.size()};
    const std::optional<wire::View> bytes = all.sub(begin, header.optHeaderLength);
    if (!bytes || header.optHeaderLength == 0)
        return;
    const wire::ByteOrder order = optHeaderOrder(header.selectors);
    std::size_t at = 0;
    for (const wire::NamedField& field : wire::optHeaderFields(header.tag)) {
        if (!bytes->sub(field.offset, wire::widthOf(field.kind)))
            break;
        at = field.offset + wire::widthOf(field.kind);
        line(begin + field.offset, wire::widthOf(field.kind), field.name,
             numberText(field, *bytes, order).value_or(uninterpreted) + meaningText(field, *bytes, order));
    }
    if (at < bytes->size())
        line(begin + at, bytes->size() - at, "optHeader",
             fmt::format("{} bytes {}", bytes->size() - at, uninterpreted));
}

void Explanation::explainData(const AttributeInfo& attribute)
{
    const AttributeHeader& header = attribute.header;
    for (const FieldInfo& field : attribute.fields)
        explainField(field, header.count);
    const std::uint64_t end = std::uint64_t{header.offset} + header.size;
    std::uint64_t at = header.offset + headerSizeOf(header.tag) + header.optHeaderLength;
    if (attribute.dataEnd)
        at = *attribute.dataEnd;
    else if (!attribute.fields.empty())
        at = attribute.fields.back().offset + std::uint64_t{attribute.fields.back().itemSize} * header.count;
    if (attribute.rawBytes)
        line(at, attribute.rawBytes->size(), "selBit0",
             fmt::format("{} bytes as they came", attribute.rawBytes->size()));
    else if (at < end)
        line(at, end - at, "", fmt::format("{} bytes {}", end - at, uninterpreted));
    else if (at > end)
        fmt::print(m_out, "note: the fields end {} bytes behind the attribute's own length\n", at - end);
}

void Explanation::explainField(const FieldInfo& field, std::uint32_t count)
{
    std::string value = fmt::format("{} items of {} bits:", count, field.itemSize * 8);
    for (std::uint32_t i = 0; i < std::min(count, shownItems); ++i)
        value += fmt::format("{} {}", i == 0 ? "" : ",", field.at(i));
    if (count > shownItems)
        value += ", ..";
    line(field.offset, std::uint64_t{count} * field.itemSize, fmt::format("selBit{}", field.bit), value);
}

void Explanation::dropped(const Drop& drop)
{
    if (drop.header) {
        explainHeader(*drop.header);
        explainOptHeader(*drop.header);
    }
    line(drop.begin, drop.end - drop.begin, "", fmt::format("{} bytes dropped", drop.end - drop.begin));
    fmt::print(m_out, "dropped: {}: {}\n", drop.reason, drop.detail);
}

} // namespace inspection
