// SPDX-License-Identifier: MIT
#include "toolkit/recording/capturesource.h"
#include "toolkit/recording/linklayer.h"
#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <tins/exceptions.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>

namespace recording {
namespace {

// A receiver has one or two connections; more flows than this are other traffic, or an attack on our memory.
constexpr std::size_t maxFlows = 64;
constexpr std::size_t maxWaiting = 256U << 20U;

constexpr std::size_t mostOtherPorts = 1'024; // enough to see which one stands out

constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::size_t udpHeaderSize = 8;

namespace ipv6Fragment {
inline constexpr wire::Field<std::uint8_t> protocol{0}; // of what follows
inline constexpr wire::Field<std::uint16_t> offset{2};  // in bytes; bit 0: more follow
inline constexpr wire::Field<std::uint32_t> id{4};
inline constexpr std::size_t size = 8;
} // namespace ipv6Fragment

Endpoint endpointOf(const Tins::IPv4Address& address)
{
    Endpoint endpoint;
    const std::uint32_t inNetworkOrder = address;
    std::memcpy(endpoint.address.data(), &inNetworkOrder, sizeof inNetworkOrder);
    return endpoint;
}

Endpoint endpointOf(const Tins::IPv6Address& address)
{
    Endpoint endpoint;
    std::copy(address.begin(), address.end(), endpoint.address.begin());
    endpoint.isV6 = true;
    return endpoint;
}

std::span<const std::uint8_t> payloadOf(const Tins::PDU& layer)
{
    const auto* const raw = dynamic_cast<const Tins::RawPDU*>(layer.inner_pdu());
    if (!raw)
        return {};
    return raw->payload();
}

} // namespace

CaptureSource::CaptureSource(FilePtr file, const std::string& name, const Options& options)
    : m_capture(std::move(file), name)
    , m_options(options)
    , m_fragments([this](const FragmentKey& key, const Joined& pieces) { lostFragments(key, pieces); })
{
    if (!isSupportedLinkType(m_capture.linkType()))
        throw BadFile{name, {0, supportedLinkTypes(), linkTypeName(m_capture.linkType()), {}}};
}

std::optional<Datagram> CaptureSource::next()
{
    while (m_ready.empty() && !m_ended)
        readMore();
    if (!m_ready.empty()) {
        Datagram datagram = std::move(m_ready.front());
        m_ready.pop_front();
        return datagram;
    }
    if (m_bad)
        throw *std::exchange(m_bad, std::nullopt);
    return std::nullopt;
}

void CaptureSource::readMore()
{
    try {
        if (const std::optional<Packet> packet = m_capture.next())
            take(*packet);
        else
            endOfFile();
    } catch (const BadFile& bad) {
        m_bad = bad;
        endOfFile();
    }
}

void CaptureSource::endOfFile()
{
    m_ended = true;
    m_fragments.finish();
    for (auto& [origin, flow] : m_flows)
        flow.tcp.finish();
    m_flows.clear();
}

void CaptureSource::take(const Packet& packet)
{
    ++m_ignored.packets;
    try {
        const Frame frame = dissect(m_capture.linkType(), packet.bytes);
        std::size_t offset = frame.offset;
        for (const Tins::PDU* layer = frame.layers.get(); layer; layer = layer->inner_pdu()) {
            offset += layer->header_size();
            const Place behind{packet.position + offset, packet.receivedNs};
            if (layer->pdu_type() == Tins::PDU::IP)
                return takeIp(static_cast<const Tins::IP&>(*layer), behind);
            if (layer->pdu_type() == Tins::PDU::IPv6)
                return takeIpv6(static_cast<const Tins::IPv6&>(*layer), packet, offset);
        }
        ++m_ignored.protocol;
    } catch (const Tins::exception_base& error) {
        tell({packet.position, fmt::format("a whole packet of {} bytes", packet.originalSize),
              packet.isCut() ? fmt::format("its first {}", packet.bytes.size()) : error.what(),
              packet.isCut() ? "capture whole packets" : "packet left out"});
    }
}

void CaptureSource::takeIp(const Tins::IP& ip, Place payload)
{
    const Endpoint from = endpointOf(ip.src_addr());
    const Endpoint to = endpointOf(ip.dst_addr());
    if (!ip.is_fragmented())
        return takeTransport(ip.inner_pdu(), {Transport::File, from, to}, payload);
    const std::span<const std::uint8_t> bytes = payloadOf(ip);
    takeFragment({{from, to, ip.protocol(), ip.id()},
                  ip.fragment_offset() * 8U,
                  (ip.flags() & Tins::IP::MORE_FRAGMENTS) != 0,
                  {bytes.begin(), bytes.end()},
                  payload.position,
                  payload.receivedNs});
}

void CaptureSource::takeIpv6(const Tins::IPv6& ip, const Packet& packet, std::size_t payloadOffset)
{
    const Endpoint from = endpointOf(ip.src_addr());
    const Endpoint to = endpointOf(ip.dst_addr());
    const Place payload{packet.position + payloadOffset, packet.receivedNs};
    if (!ip.search_header(Tins::IPv6::FRAGMENT))
        return takeTransport(ip.inner_pdu(), {Transport::File, from, to}, payload);
    // Read from the packet: libtins keeps all of this header but the protocol of what follows it.
    const std::optional<wire::View> header =
        packet.bytes.sub(payloadOffset - ipv6Fragment::size, ipv6Fragment::size);
    if (!header)
        throw Tins::malformed_packet{};
    const std::uint16_t offset = *header->get(ipv6Fragment::offset);
    const std::span<const std::uint8_t> bytes = payloadOf(ip);
    takeFragment({{from, to, *header->get(ipv6Fragment::protocol), *header->get(ipv6Fragment::id)},
                  offset & ~7U,
                  (offset & 1U) != 0,
                  {bytes.begin(), bytes.end()},
                  payload.position,
                  payload.receivedNs});
}

void CaptureSource::takeFragment(const Fragment& fragment)
{
    const FragmentKey& key = fragment.key;
    if (key.protocol != protocolUdp && key.protocol != protocolTcp) {
        ++m_ignored.protocol;
        return;
    }
    const std::optional<Joined> whole = m_fragments.add(fragment);
    if (!whole)
        return;
    const Origin origin{Transport::File, key.from, key.to};
    const auto size = static_cast<std::uint32_t>(whole->payload.size());
    const Place place{whole->position.value_or(whole->firstSeen), fragment.receivedNs};
    if (key.protocol == protocolUdp) {
        const Tins::UDP udp{whole->payload.data(), size};
        takeTransport(&udp, origin, place);
    } else {
        const Tins::TCP tcp{whole->payload.data(), size};
        takeTransport(&tcp, origin, place);
    }
}

void CaptureSource::lostFragments(const FragmentKey& key, const Joined& pieces)
{
    const wire::View ports{pieces.payload.data(), pieces.payload.size()};
    const std::optional<std::uint16_t> from = ports.get(wire::Field<std::uint16_t>{0});
    const std::optional<std::uint16_t> to = ports.get(wire::Field<std::uint16_t>{2});
    if (m_options.port && (!from || !to || !isWanted(*from, *to)))
        return;
    Origin origin{key.protocol == protocolUdp ? Transport::Udp : Transport::Tcp, key.from, key.to};
    origin.from.port = from.value_or(0);
    origin.to.port = to.value_or(0);
    tell({pieces.firstSeen, fmt::format("all fragments of a packet, {}", text(origin)),
          fmt::format("{} bytes of it", pieces.bytes), "not delivered"});
}

// `place`: of the layer.
void CaptureSource::takeTransport(const Tins::PDU* layer, Origin origin, Place place)
{
    const auto* const udp = dynamic_cast<const Tins::UDP*>(layer);
    const auto* const tcp = dynamic_cast<const Tins::TCP*>(layer);
    if (!udp && !tcp) {
        ++m_ignored.protocol;
        return;
    }
    origin.transport = udp ? Transport::Udp : Transport::Tcp;
    origin.from.port = udp ? udp->sport() : tcp->sport();
    origin.to.port = udp ? udp->dport() : tcp->dport();
    if (!isWanted(origin.from.port, origin.to.port)) {
        ignorePort(origin);
        return;
    }
    place.position += layer->header_size();
    if (udp)
        takeUdp(*udp, origin, place);
    else
        takeTcp(*tcp, origin, place);
}

// UDP goes to the port of who listens; a TCP stream comes from the port of who serves.
void CaptureSource::ignorePort(const Origin& origin)
{
    ++m_ignored.port;
    const std::uint16_t port = origin.transport == Transport::Udp ? origin.to.port : origin.from.port;
    if (m_otherPorts.size() < mostOtherPorts || m_otherPorts.contains(port))
        ++m_otherPorts[port];
}

Ignored CaptureSource::ignored() const
{
    Ignored ignored = m_ignored;
    const auto most =
        std::ranges::max_element(m_otherPorts, {}, [](const auto& each) { return each.second; });
    if (most != m_otherPorts.end())
        ignored.otherPort = most->first;
    return ignored;
}

bool CaptureSource::isWanted(std::uint16_t from, std::uint16_t to) const
{
    return !m_options.port || *m_options.port == from || *m_options.port == to;
}

void CaptureSource::takeUdp(const Tins::UDP& udp, const Origin& origin, Place payload)
{
    const std::span<const std::uint8_t> bytes = payloadOf(udp);
    const std::size_t claimed = udp.length() < udpHeaderSize ? 0 : udp.length() - udpHeaderSize;
    if (claimed > bytes.size())
        return tell({payload.position, fmt::format("{} bytes, {}", claimed, text(origin)),
                     std::to_string(bytes.size()), "not delivered; capture whole packets"});
    m_ready.push_back({withSpareRoom(bytes.data(), claimed), payload.position, payload.receivedNs, origin});
}

void CaptureSource::takeTcp(const Tins::TCP& tcp, const Origin& origin, Place payload)
{
    Flow& flow = flowOf(origin);
    flow.lastUse = ++m_uses;
    const std::size_t before = flow.tcp.waiting();
    const unsigned flags = tcp.flags();
    flow.tcp.take({tcp.seq(), (flags & Tins::TCP::SYN) != 0, (flags & (Tins::TCP::FIN | Tins::TCP::RST)) != 0,
                   payloadOf(tcp), payload.position, payload.receivedNs});
    m_waiting += flow.tcp.waiting() - before;
    if (m_waiting > maxWaiting)
        finishOne([](const Flow& a, const Flow& b) { return a.tcp.waiting() > b.tcp.waiting(); });
}

CaptureSource::Flow& CaptureSource::flowOf(const Origin& origin)
{
    const auto known = m_flows.find(origin);
    if (known != m_flows.end())
        return known->second;
    if (m_flows.size() == maxFlows)
        finishOne([](const Flow& a, const Flow& b) { return a.lastUse < b.lastUse; });
    // The receiver and its mirrors are the servers: what comes from the wanted port must be datagrams.
    const bool expected = m_options.port == origin.from.port;
    return m_flows.emplace(origin, Flow{TcpFlow{origin, expected, *this}, 0}).first->second;
}

// Gives up the flow that comes first by `less`.
template <typename Less>
void CaptureSource::finishOne(Less less)
{
    const auto flow = std::min_element(m_flows.begin(), m_flows.end(), [less](const auto& a, const auto& b) {
        return less(a.second, b.second);
    });
    m_waiting -= flow->second.tcp.waiting();
    flow->second.tcp.finish();
    m_flows.erase(flow);
}

} // namespace recording
