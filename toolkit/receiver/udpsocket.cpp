// SPDX-License-Identifier: MIT
#include "toolkit/receiver/udpsocket.h"
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <new>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace receiver {

namespace {

constexpr std::size_t batchSize = 64;
constexpr int largestPacket = 65'536;
constexpr int spareBytes = 2;

[[noreturn]] void fail(const SourceSpec& spec, const char* what, const char* advice)
{
    const int error = errno;
    throw SocketFailure{
        error, fmt::format("udp port {}: cannot {}: {}", spec.port, what, std::strerror(error)), advice};
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

// Where a batch of packets is received into: each one straight into the array that the library gets, which
// has room for the longest packet there is. Memory that is not written to costs nothing.
struct UdpSocket::Batch {
    struct Place {
        std::unique_ptr<QByteArray> bytes;
        iovec part{};
        sockaddr_storage sender{};
    };
    std::array<Place, batchSize> places{};
    std::array<mmsghdr, batchSize> messages{};

    void prepare(std::size_t place);
    std::unique_ptr<QByteArray> take(std::size_t place);
};

void UdpSocket::Batch::prepare(std::size_t place)
{
    Place& each = places[place];
    auto bytes = std::make_unique<QByteArray>(largestPacket, Qt::Uninitialized);
    bytes->reserve(largestPacket); // so that taking less of it keeps it where it is
    each.part = {bytes->data(), largestPacket - spareBytes};
    each.bytes = std::move(bytes);
    msghdr& header = messages[place].msg_hdr;
    header.msg_iov = &each.part;
    header.msg_iovlen = 1;
}

std::unique_ptr<QByteArray> UdpSocket::Batch::take(std::size_t place)
{
    std::unique_ptr<QByteArray> bytes = std::move(places[place].bytes);
    bytes->resize(static_cast<int>(messages[place].msg_len));
    return bytes;
}

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

std::size_t UdpSocket::receive(bool withSenders, const std::function<void(Packet)>& take)
{
    Batch& batch = *m_batch;
    for (std::size_t i = 0; i < batchSize; ++i) {
        if (!batch.places[i].bytes) // at first, and where something was thrown in the batch before
            batch.prepare(i);
        msghdr& header = batch.messages[i].msg_hdr;
        header.msg_name = withSenders ? &batch.places[i].sender : nullptr;
        header.msg_namelen = withSenders ? sizeof batch.places[i].sender : 0;
    }
    const int count = ::recvmmsg(m_descriptor, batch.messages.data(), batchSize, MSG_DONTWAIT, nullptr);
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        try {
            take({batch.take(at), withSenders ? endpointOf(batch.places[at].sender) : recording::Endpoint{}});
            // At once: it gets the very memory that the packet before has just given back.
            batch.prepare(at);
        } catch (const std::bad_alloc&) {
            // That packet is lost, and missing among the sequence numbers; those behind it have their memory.
            batch.places[at].bytes.reset();
        }
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
