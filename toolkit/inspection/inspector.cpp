// SPDX-License-Identifier: MIT
#include "toolkit/inspection/inspector.h"
#include "toolkit/inspection/whydropped.h"
#include "wire/layout.h"
#include "wire/selectors.h"
#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <utility>

namespace inspection {
namespace {

using wire::ByteOrder;

constexpr unsigned widenedBit = 17;

std::array<const void*, 24> byBit(const DataPointers& data)
{
    return {data.selBit0,  data.selBit1,  data.selBit2,  data.selBit3,  data.selBit4,  data.selBit5,
            data.selBit6,  data.selBit7,  data.selBit8,  data.selBit9,  data.selBit10, data.selBit11,
            data.selBit12, data.selBit13, data.selBit14, data.selBit15, data.selBit16, data.selBit17,
            data.selBit18, data.selBit19, data.selBit20, data.selBit21, nullptr,       data.selBit23};
}

// A number of a header that the reader has turned to host order.
template <typename T>
T hostField(wire::View header, wire::Field<T> field)
{
    return header.getOrZero(field, ByteOrder::Little);
}

} // namespace

std::int64_t FieldInfo::at(std::uint32_t index) const
{
    const unsigned char* const item = items + std::size_t{index} * storedSize;
    switch (storedSize) {
    case 2:
        return wire::load<std::int16_t>(item, ByteOrder::Little);
    case 4:
        return wire::load<std::int32_t>(item, ByteOrder::Little);
    default:
        return wire::load<std::int64_t>(item, ByteOrder::Little);
    }
}

Inspector::Inspector(Sink& sink)
    : m_sink(sink)
{
    m_processor.SetMassDataObserver(this);
    for (const std::uint16_t tag : wire::tag::known)
        m_processor.RegisterTagProcessor(this, TRACE_TAG{tag}, 0);
}

void Inspector::inspect(recording::Datagram datagram)
{
    DatagramInfo info;
    info.index = m_count++;
    info.position = datagram.position;
    info.receivedNs = datagram.receivedNs;
    info.origin = datagram.origin;
    const auto size = static_cast<std::size_t>(datagram.bytes.size());
    // Below a header's size the reader does not tell where its bytes lie.
    std::array<unsigned char, wire::datagram::headerSize> few{};
    std::memcpy(few.data(), datagram.bytes.constData(), std::min(size, few.size()));
    auto reader =
        std::make_unique<UdpDatagram>(std::make_unique<QByteArray>(std::exchange(datagram.bytes, {})));
    const auto* const first = reinterpret_cast<const unsigned char*>(reader->GetNextAttribute());
    info.valid = reader->IsValid();
    if (reader->HasSeqNumber())
        info.sequence = wire::byteSwapped<std::uint16_t>(reader->GetSeqNumber());
    m_converted = first ? wire::View{first - few.size(), size} : wire::View{few.data(), size};
    info.bytes = m_converted;
    m_attributes = 0;
    m_last.reset();
    m_walkedTo = wire::datagram::headerSize;
    m_gaveUp = false;
    m_allSound = m_allSound && info.valid;
    m_sink.datagram(info);
    m_processor.ProcessDatagram(reader.release());
}

void Inspector::AttributeDone(const AttributeReport& report)
{
    if (report.offset > m_walkedTo)
        tellNotWalked(report.offset, farStep(*m_last));
    m_last = headerOf(report);
    m_walkedTo = report.offset + report.size;
    switch (report.outcome) {
    case AttributeOutcome::UnknownTag:
        tellUnknown();
        break;
    case AttributeOutcome::SelectorError:
        tellRefused(report.reason.toStdString(), whyRefused(*m_last));
        break;
    case AttributeOutcome::Truncated:
        tellRefused(reasonTruncated, whyTruncated(*m_last));
        break;
    case AttributeOutcome::Dispatched: // told when the processor is called
    case AttributeOutcome::Unrouted:   // there is none: every known tag has its processor
        break;
    }
    ++m_attributes;
}

AttributeHeader Inspector::headerOf(const AttributeReport& report) const
{
    const wire::View bytes = *m_converted.sub(report.offset, m_converted.size() - report.offset);
    AttributeHeader header;
    header.datagram = m_count - 1;
    header.index = m_attributes;
    header.offset = report.offset;
    header.size = report.size;
    header.tag = report.tag;
    header.known = report.outcome != AttributeOutcome::UnknownTag;
    header.channel = report.channel;
    header.converted = m_converted;
    if (wire::tag::isExtended(report.tag)) {
        header.count = hostField(bytes, wire::extended::count) & 0xFFFFU;
        header.optHeaderLength = hostField(bytes, wire::extended::optHeaderLength);
        header.selectors = hostField(bytes, wire::extended::selectors);
    } else {
        header.count = hostField(bytes, wire::attribute::count);
        header.optHeaderLength = hostField(bytes, wire::attribute::optHeaderLength);
        header.selectors = hostField(bytes, wire::attribute::selectors);
    }
    return header;
}

void Inspector::tellUnknown()
{
    AttributeInfo info;
    info.header = *m_last;
    if (info.header.optHeaderLength > 0)
        info.optHeader =
            m_converted.sub(info.header.offset + wire::attribute::headerSize, info.header.optHeaderLength);
    m_sink.attribute(info);
}

void Inspector::SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable)
{
    AttributeInfo info;
    info.header = *m_last;
    unsigned char* const behindHeader = data->extHeader ? data->extOptHeader : attribute->OptHeader();
    const std::uint32_t optHeaderOffset = offsetOf(behindHeader);
    if (optHeaderAvailable)
        info.optHeader = m_converted.sub(optHeaderOffset, info.header.optHeaderLength);
    if (info.header.tag == wire::tag::rawBytes) {
        const std::uint32_t begin = offsetOf(data->selBit0);
        const std::uint32_t end = info.header.offset + info.header.size;
        info.rawBytes = m_converted.sub(begin, end > begin ? end - begin : 0);
    } else {
        info.fields = {m_fields.data(), collectFields(*data)};
    }
    if (data->dataEnd)
        info.dataEnd = offsetOf(data->dataEnd);
    m_sink.attribute(info);
}

// Result: the number of fields put into `m_fields`.
std::size_t Inspector::collectFields(const DataPointers& data)
{
    const auto pointers = byBit(data);
    const bool isWords = m_last->tag == wire::tag::words;
    std::size_t size = 0;
    std::uint32_t end = data.dataEnd ? offsetOf(data.dataEnd) : 0;
    // From the last to the first: only the field behind the widened one tells where that lies.
    for (unsigned bit = pointers.size(); bit-- > 0;) {
        if (!pointers[bit])
            continue;
        const unsigned itemSize = isWords ? 4U : wire::itemSize[bit];
        const bool isWidened = bit == widenedBit;
        end = isWidened ? end - m_last->count * itemSize : offsetOf(pointers[bit]);
        m_fields[m_fields.size() - ++size] = {
            bit, end, itemSize, static_cast<const unsigned char*>(pointers[bit]), isWidened ? 8U : itemSize};
    }
    std::rotate(m_fields.begin(), m_fields.end() - static_cast<std::ptrdiff_t>(size), m_fields.end());
    return size;
}

std::uint32_t Inspector::offsetOf(const void* place) const
{
    return static_cast<std::uint32_t>(static_cast<const unsigned char*>(place) - m_converted.data());
}

void Inspector::DatagramDone(const DatagramReport& report)
{
    if (report.valid && !m_gaveUp && m_walkedTo < report.size)
        tellNotWalked(report.size, whyNotWalked(m_last, m_converted));
}

// The attribute at hand is dropped, and everything behind it.
void Inspector::tellRefused(std::string reason, std::string detail)
{
    m_gaveUp = true;
    const std::uint64_t data =
        std::uint64_t{m_last->offset} + headerSizeOf(m_last->tag) + m_last->optHeaderLength;
    const auto end = static_cast<std::uint32_t>(m_converted.size());
    const auto begin = static_cast<std::uint32_t>(std::min<std::uint64_t>(data, end));
    tellDrop({m_count - 1, m_attributes, std::move(reason), std::move(detail), m_last, begin, end});
}

// The reader's cursor went past the bytes from where it stood, or never got to them.
void Inspector::tellNotWalked(std::uint32_t upTo, const std::string& why)
{
    tellDrop({m_count - 1, m_attributes, reasonNotWalked,
              fmt::format("{} bytes at byte {}: {}", upTo - m_walkedTo, m_walkedTo, why), std::nullopt,
              m_walkedTo, upTo});
}

void Inspector::tellDrop(const Drop& drop)
{
    m_allSound = false;
    m_sink.dropped(drop);
}

// Nobody drops what this processor is handed, and there are no sockets here.
void Inspector::AttributeNotAccepted(const char* /*reason*/) {}
void Inspector::StreamBroken(quint32 /*claimedLength*/) {}
void Inspector::MirrorClientCut(qint64 /*waiting*/) {}

} // namespace inspection
