// SPDX-License-Identifier: MIT
#include "toolkit/recording/capturewriter.h"
#include "toolkit/recording/writefailure.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>

namespace recording {

namespace {

constexpr int snapshotLength = 262'144; // more than a packet can have
constexpr std::size_t segmentBytes = 60'000;
constexpr std::size_t largestUdpPayload = 65'507;
constexpr std::size_t fileHeaderBytes = 24;
constexpr std::size_t packetHeaderBytes = 16;

// A raw stream does not say who sent it; its datagrams need an address all the same (for documentation, RFC
// 5737).
Endpoint documentationEndpoint(std::uint8_t last, std::uint16_t port)
{
    Endpoint endpoint;
    endpoint.address = {192, 0, 2, last};
    endpoint.port = port;
    return endpoint;
}

Origin namedOrigin(const Origin& origin)
{
    if (origin.transport != Transport::File)
        return origin;
    return {Transport::Tcp, documentationEndpoint(1, 5'555), documentationEndpoint(2, 40'000)};
}

Tins::IPv4Address v4(const Endpoint& endpoint)
{
    std::uint32_t address = 0;
    std::memcpy(&address, endpoint.address.data(), sizeof address);
    return Tins::IPv4Address(address);
}

Tins::IPv6Address v6(const Endpoint& endpoint)
{
    return Tins::IPv6Address(endpoint.address.data());
}

template <typename Transport>
Tins::PDU::serialization_type packetOf(const Origin& origin, const Transport& transport)
{
    if (origin.from.isV6) {
        Tins::IPv6 packet = Tins::IPv6(v6(origin.to), v6(origin.from)) / transport;
        return packet.serialize();
    }
    Tins::IP packet = Tins::IP(v4(origin.to), v4(origin.from)) / transport;
    packet.ttl(64);
    return packet.serialize();
}

} // namespace

struct CaptureWriter::File {
    pcap_t* capture = nullptr;
    pcap_dumper_t* dumper = nullptr;
    File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File()
    {
        if (dumper)
            pcap_dump_close(dumper);
        if (capture)
            pcap_close(capture);
    }
};

CaptureWriter::CaptureWriter(const std::string& path)
    : m_path(path)
    , m_file(std::make_unique<File>())
    , m_size(fileHeaderBytes)
{
    m_file->capture =
        pcap_open_dead_with_tstamp_precision(DLT_RAW, snapshotLength, PCAP_TSTAMP_PRECISION_NANO);
    if (!m_file->capture)
        throw CannotWrite{fmt::format("{}: cannot be written: no memory", path)};
    m_file->dumper = pcap_dump_open(m_file->capture, path.c_str());
    if (!m_file->dumper)
        throw CannotWrite{fmt::format("{}; choose a folder that exists and that you may write to",
                                      pcap_geterr(m_file->capture))};
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(std::span<const unsigned char> datagram, std::int64_t receivedNs,
                          const Origin& origin)
{
    const Origin named = namedOrigin(origin);
    if (named.transport == Transport::Udp && datagram.size() <= largestUdpPayload)
        writeUdp(datagram, receivedNs, named);
    else
        writeTcp(datagram, receivedNs, named);
}

void CaptureWriter::writeUdp(std::span<const unsigned char> datagram, std::int64_t ns, const Origin& origin)
{
    Tins::UDP udp(origin.to.port, origin.from.port);
    writePacket(
        packetOf(origin, udp / Tins::RawPDU(datagram.data(), static_cast<std::uint32_t>(datagram.size()))),
        ns);
}

void CaptureWriter::writeTcp(std::span<const unsigned char> datagram, std::int64_t ns, const Origin& origin)
{
    std::uint32_t& sequence = m_nextSequence.try_emplace(origin, 1).first->second;
    while (!datagram.empty()) {
        const auto part = datagram.first(std::min(datagram.size(), segmentBytes));
        Tins::TCP tcp(origin.to.port, origin.from.port);
        tcp.seq(sequence);
        tcp.ack_seq(1);
        tcp.flags(Tins::TCP::ACK | Tins::TCP::PSH);
        tcp.window(65'535);
        writePacket(
            packetOf(origin, tcp / Tins::RawPDU(part.data(), static_cast<std::uint32_t>(part.size()))), ns);
        sequence += static_cast<std::uint32_t>(part.size());
        datagram = datagram.subspan(part.size());
    }
}

void CaptureWriter::writePacket(std::span<const unsigned char> packet, std::int64_t ns)
{
    pcap_pkthdr header{};
    header.ts.tv_sec = ns / 1'000'000'000;
    header.ts.tv_usec = ns % 1'000'000'000; // nanoseconds, as the file's header says
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    errno = 0;
    pcap_dump(reinterpret_cast<unsigned char*>(m_file->dumper), &header, packet.data());
    if (std::ferror(pcap_dump_file(m_file->dumper)) != 0)
        throw CannotWrite{
            fmt::format("{}: {} bytes written, then: {}", m_path, m_size, writeFailureText(errno))};
    m_size += packetHeaderBytes + packet.size();
}

void CaptureWriter::flush()
{
    if (pcap_dump_flush(m_file->dumper) != 0)
        throw CannotWrite{
            fmt::format("{}: {} bytes written, then: {}", m_path, m_size, writeFailureText(errno))};
}

} // namespace recording
