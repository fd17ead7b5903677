// SPDX-License-Identifier: MIT
#include "toolkit/support/capture_bytes.h"
#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>

namespace support {
namespace {

class Writer {
public:
    explicit Writer(wire::ByteOrder order)
        : m_order(order)
    {}
    template <typename T>
    Writer& put(T value)
    {
        std::array<std::uint8_t, sizeof(T)> bytes;
        wire::store(bytes.data(), value, m_order);
        std::ranges::copy(bytes, std::back_inserter(m_bytes));
        return *this;
    }
    Writer& put16(std::size_t value) { return put(static_cast<std::uint16_t>(value)); }
    Writer& put32(std::uint64_t value) { return put(static_cast<std::uint32_t>(value)); }
    Writer& put(const Bytes& bytes)
    {
        std::ranges::copy(bytes, std::back_inserter(m_bytes));
        return *this;
    }
    Writer& pad()
    {
        m_bytes.resize((m_bytes.size() + 3) / 4 * 4);
        return *this;
    }
    Bytes take() { return std::move(m_bytes); }

private:
    wire::ByteOrder m_order;
    Bytes m_bytes;
};

std::uint32_t sizeOnTheWire(const CapturedPacket& packet)
{
    return packet.originalSize.value_or(static_cast<std::uint32_t>(packet.bytes.size()));
}

Bytes pcap(const std::vector<CapturedPacket>& packets, std::uint32_t linkType, bool nanoseconds,
           wire::ByteOrder order)
{
    Writer file{order};
    file.put32(nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4).put16(2).put16(4).put32(0).put32(0).put32(262144);
    file.put32(linkType);
    for (const CapturedPacket& packet : packets) {
        const std::int64_t fraction = packet.receivedNs % 1'000'000'000;
        file.put32(static_cast<std::uint64_t>(packet.receivedNs / 1'000'000'000));
        file.put32(static_cast<std::uint64_t>(nanoseconds ? fraction : fraction / 1000));
        file.put32(packet.bytes.size()).put32(sizeOnTheWire(packet)).put(packet.bytes);
    }
    return file.take();
}

// A block with its length in front and behind.
Bytes block(std::uint32_t type, const Bytes& content, wire::ByteOrder order)
{
    const std::size_t size = content.size() + 12;
    return Writer{order}.put32(type).put32(size).put(content).put32(size).take();
}

Bytes packetBlock(const CapturedPacket& packet, bool isSimple, wire::ByteOrder order)
{
    if (isSimple)
        return block(3, Writer{order}.put32(sizeOnTheWire(packet)).put(packet.bytes).pad().take(), order);
    const auto ns = static_cast<std::uint64_t>(packet.receivedNs);
    Writer content{order};
    content.put32(0).put32(ns >> 32U).put32(ns).put32(packet.bytes.size()).put32(sizeOnTheWire(packet));
    content.put(packet.bytes).pad();
    content.put16(2).put16(4).put32(1).put16(0).put16(0); // an option (flags: inbound), and their end
    return block(6, content.take(), order);
}

Bytes pcapng(const std::vector<CapturedPacket>& packets, std::uint32_t linkType, bool isSimple,
             wire::ByteOrder order)
{
    const Bytes section =
        Writer{order}.put32(0x1A2B3C4D).put16(1).put16(0).put32(0xFFFFFFFF).put32(0xFFFFFFFF).take();
    Writer interface {
        order
    };
    interface.put16(linkType).put16(0).put32(262144);
    interface.put16(9).put16(1).put(Bytes{9, 0, 0, 0}).put16(0).put16(0); // times count nanoseconds
    Bytes file = joined({block(0x0A0D0D0A, section, order), block(1, interface.take(), order)});
    for (const CapturedPacket& packet : packets) {
        const Bytes bytes = packetBlock(packet, isSimple, order);
        file.insert(file.end(), bytes.begin(), bytes.end());
    }
    return file;
}

template <typename Ip, typename Transport>
Bytes ipPacket(const Route& route, Transport transport, const Bytes& payload)
{
    transport.inner_pdu(Tins::RawPDU{payload.begin(), payload.end()});
    Ip packet{typename Ip::address_type{route.to}, typename Ip::address_type{route.from}};
    packet.inner_pdu(transport);
    return packet.serialize();
}

template <typename Transport>
Bytes ipPacket(const Route& route, const Transport& transport, const Bytes& payload)
{
    const bool isV6 = route.from.find(':') != std::string::npos;
    return isV6 ? ipPacket<Tins::IPv6>(route, transport, payload)
                : ipPacket<Tins::IP>(route, transport, payload);
}

bool isV6(const Bytes& ip)
{
    return ip.at(0) >> 4U == 6;
}

Bytes protocolOf(const Bytes& ip)
{
    return isV6(ip) ? Bytes{0x86, 0xDD} : Bytes{0x08, 0x00};
}

Bytes fragmentV4(const Bytes& packet, std::size_t offset, std::size_t size, std::uint32_t id)
{
    constexpr std::size_t header = 20;
    const Bytes piece(packet.begin() + static_cast<std::ptrdiff_t>(header + offset),
                      packet.begin() + static_cast<std::ptrdiff_t>(header + offset + size));
    Tins::IP ip{packet.data(), static_cast<std::uint32_t>(packet.size())};
    const std::uint8_t protocol = ip.protocol();
    ip.inner_pdu(Tins::RawPDU{piece.begin(), piece.end()});
    ip.protocol(protocol);
    ip.id(static_cast<std::uint16_t>(id));
    ip.fragment_offset(static_cast<std::uint16_t>(offset / 8));
    if (header + offset + size < packet.size())
        ip.flags(Tins::IP::MORE_FRAGMENTS);
    return ip.serialize();
}

Bytes fragmentV6(const Bytes& packet, std::size_t offset, std::size_t size, std::uint32_t id)
{
    constexpr std::size_t header = 40;
    constexpr unsigned char fragmentHeader = 44;
    const bool moreFollow = header + offset + size < packet.size();
    Writer out{wire::ByteOrder::Big};
    out.put(Bytes(packet.begin(), packet.begin() + 4)).put16(8 + size).put(Bytes{fragmentHeader, packet[7]});
    out.put(Bytes(packet.begin() + 8, packet.begin() + header));
    out.put(Bytes{packet[6], 0}).put16(offset | (moreFollow ? 1U : 0U)).put32(id);
    out.put(Bytes(packet.begin() + static_cast<std::ptrdiff_t>(header + offset),
                  packet.begin() + static_cast<std::ptrdiff_t>(header + offset + size)));
    return out.take();
}

} // namespace

Bytes capture(const std::vector<CapturedPacket>& packets, std::uint32_t linkType, Form form,
              wire::ByteOrder order)
{
    if (form == Form::PcapMicroseconds || form == Form::PcapNanoseconds)
        return pcap(packets, linkType, form == Form::PcapNanoseconds, order);
    return pcapng(packets, linkType, form == Form::PcapNgSimple, order);
}

Bytes udpPacket(const Bytes& payload, const Route& route)
{
    return ipPacket(route, Tins::UDP{route.toPort, route.fromPort}, payload);
}

Bytes tcpPacket(const TcpPiece& piece, const Route& route)
{
    Tins::TCP tcp{route.toPort, route.fromPort};
    tcp.seq(piece.sequence);
    tcp.set_flag(Tins::TCP::SYN, piece.syn ? 1 : 0);
    tcp.set_flag(Tins::TCP::FIN, piece.fin ? 1 : 0);
    tcp.set_flag(Tins::TCP::RST, piece.rst ? 1 : 0);
    return ipPacket(route, tcp, piece.payload);
}

std::vector<Bytes> fragments(const Bytes& packet, std::size_t size, std::uint32_t id)
{
    const std::size_t header = isV6(packet) ? 40 : 20;
    std::vector<Bytes> pieces;
    for (std::size_t offset = 0; header + offset < packet.size(); offset += size) {
        const std::size_t here = std::min(size, packet.size() - header - offset);
        pieces.push_back(isV6(packet) ? fragmentV6(packet, offset, here, id)
                                      : fragmentV4(packet, offset, here, id));
    }
    return pieces;
}

Bytes ethernet(const Bytes& ip)
{
    return joined({Bytes(12, 0x22), protocolOf(ip), ip});
}

Bytes vlan(const Bytes& ip)
{
    return joined({Bytes(12, 0x22), {0x81, 0x00, 0x00, 0x05}, protocolOf(ip), ip});
}

Bytes doubleVlan(const Bytes& ip)
{
    return joined({Bytes(12, 0x22), {0x88, 0xA8, 0x00, 0x05, 0x81, 0x00, 0x00, 0x06}, protocolOf(ip), ip});
}

Bytes cooked(const Bytes& ip)
{
    return joined({{0, 0, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0}, protocolOf(ip), ip});
}

Bytes cooked2(const Bytes& ip)
{
    return joined({protocolOf(ip), {0, 0, 0, 0, 0, 2, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0}, ip});
}

Bytes cooked2Vlan(const Bytes& ip)
{
    return joined(
        {{0x81, 0x00, 0, 0, 0, 0, 0, 2, 0, 1, 0, 6, 2, 2, 2, 2, 2, 2, 0, 0, 0, 5}, protocolOf(ip), ip});
}

std::vector<CapturedPacket> timed(const std::vector<Bytes>& packets)
{
    std::vector<CapturedPacket> result;
    std::int64_t now = firstNs;
    for (const Bytes& packet : packets) {
        result.push_back({packet, now, std::nullopt});
        now += apartNs;
    }
    return result;
}

Bytes traceDatagram(std::uint16_t sequence, std::uint16_t count)
{
    std::vector<std::int16_t> items(count);
    std::iota(items.begin(), items.end(), static_cast<std::int16_t>(sequence));
    return wire::DatagramWriter{}
        .sequence(sequence)
        .attribute(501)
        .selectors(1)
        .count(count)
        .items(std::span<const std::int16_t>{items})
        .build();
}

Bytes joined(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

} // namespace support
