// SPDX-License-Identifier: MIT
#include "toolkit/receiver/udpsocket.h"
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace receiver {

namespace {

constexpr std::size_t batchSize = 64;
constexpr std::size_t largestPacket = 65'536;

[[noreturn]] void fail(const SourceSpec& spec, const char* what, const char* advice)
{
    const int error = errno;
    throw std::runtime_error{
        fmt::format("udp port {}: cannot {}: {}; {}", spec.port, what, std::strerror(error), advice)};
}

recording::Endpoint endpointOf(const sockaddr_storage& address)
{
    recording::Endpoint endpoint;
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        endpoint.isV6 = true;
        std::memcpy(endpoint.address.data(), &v6.sin6_addr, sizeof v6.sin6_addr);
        endpoint.port = ntohs(v6.sin6_port);
    } else {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        std::memcpy(endpoint.address.data(), &v4.sin_addr, sizeof v4.sin_addr);
        endpoint.port = ntohs(v4.sin_port);
    }
    return endpoint;
}

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

SocketAddress socketAddress(const QHostAddress& address, std::uint16_t port)
{
    SocketAddress result;
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&v6.sin6_addr, &bytes, sizeof v6.sin6_addr);
        result.size = sizeof v6;
        std::memcpy(&result.storage, &v6, sizeof v6);
    } else {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        v4.sin_addr.s_addr = htonl(address.isNull() ? INADDR_ANY : address.toIPv4Address());
        result.size = sizeof v4;
        std::memcpy(&result.storage, &v4, sizeof v4);
    }
    return result;
}

bool isV6(const SourceSpec& spec)
{
    return spec.address.protocol() == QAbstractSocket::IPv6Protocol ||
           spec.group.protocol() == QAbstractSocket::IPv6Protocol;
}

} // namespace

// Where a batch of packets is received into; one for all batches.
struct UdpSocket::Batch {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(batchSize * largestPacket);
    std::array<iovec, batchSize> parts{};
    std::array<sockaddr_storage, batchSize> senders{};
    std::array<mmsghdr, batchSize> messages{};
};

UdpSocket::UdpSocket(const SourceSpec& spec, int bufferBytes)
    : m_descriptor(::socket(isV6(spec) ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    , m_batch(std::make_unique<Batch>())
{
    if (m_descriptor < 0)
        fail(spec, "open a socket", "is the address family there?");
    try {
        // Where the process may exceed the system's limit, it does; else as much as the limit allows.
        if (::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bufferBytes, sizeof bufferBytes) != 0)
            (void)::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
        bindTo(spec);
        if (!spec.group.isNull())
            join(spec);
    } catch (...) {
        ::close(m_descriptor);
        throw;
    }
}

UdpSocket::~UdpSocket()
{
    ::close(m_descriptor);
}

void UdpSocket::bindTo(const SourceSpec& spec)
{
    const bool isGroup = !spec.group.isNull();
    const int on = 1;
    // Several programs may listen to one group; a unicast port belongs to one, so that nobody loses packets
    // unnoticed.
    if (isGroup)
        (void)::setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    SocketAddress place = socketAddress(isGroup ? spec.group : spec.address, spec.port);
    if (::bind(m_descriptor, place.get(), place.size) != 0)
        fail(spec, "listen", "'ss -ulpn' shows who has the port, 'ip address' which addresses there are");
    socklen_t size = sizeof place.storage;
    if (::getsockname(m_descriptor, place.get(), &size) == 0)
        m_local = endpointOf(place.storage);
}

void UdpSocket::join(const SourceSpec& spec)
{
    group_req request{};
    const SocketAddress group = socketAddress(spec.group, 0);
    std::memcpy(&request.gr_group, &group.storage, sizeof request.gr_group);
    const bool v6 = isV6(spec);
    int result = 0;
    if (!v6) {
        ip_mreqn membership{};
        membership.imr_multiaddr.s_addr = htonl(spec.group.toIPv4Address());
        membership.imr_address.s_addr =
            htonl(spec.address.isNull() ? INADDR_ANY : spec.address.toIPv4Address());
        result = ::setsockopt(m_descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);
    } else {
        result = ::setsockopt(m_descriptor, IPPROTO_IPV6, MCAST_JOIN_GROUP, &request, sizeof request);
    }
    if (result != 0)
        fail(spec, "join the multicast group", "name the address of the interface: udp://group@address:port");
}

std::size_t UdpSocket::receive(const std::function<void(const Packet&)>& take)
{
    Batch& batch = *m_batch;
    for (std::size_t i = 0; i < batchSize; ++i) {
        batch.parts[i] = {batch.bytes.data() + i * largestPacket, largestPacket};
        msghdr& header = batch.messages[i].msg_hdr;
        header = {};
        header.msg_name = &batch.senders[i];
        header.msg_namelen = sizeof batch.senders[i];
        header.msg_iov = &batch.parts[i];
        header.msg_iovlen = 1;
    }
    const int count = ::recvmmsg(m_descriptor, batch.messages.data(), batchSize, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const auto* const begin = static_cast<const unsigned char*>(batch.parts[at].iov_base);
        take({{begin, batch.messages[at].msg_len}, endpointOf(batch.senders[at])});
    }
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

int UdpSocket::bufferGranted() const
{
    int bytes = 0;
    socklen_t size = sizeof bytes;
    (void)::getsockopt(m_descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return bytes / 2;
}

std::uint64_t UdpSocket::kernelDropped() const
{
    std::array<std::uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t size = sizeof info;
    if (::getsockopt(m_descriptor, SOL_SOCKET, SO_MEMINFO, info.data(), &size) != 0)
        return 0;
    return info[SK_MEMINFO_DROPS];
}

} // namespace receiver
