// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/peerwatch.h"
#include <QHostAddress>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace peerwatch {

namespace {

constexpr int idleSeconds = 2;
constexpr int intervalSeconds = 1;
constexpr int probes = 3;
constexpr unsigned unansweredRepetitions = 3;
constexpr unsigned silentMilliseconds = 10'000;

void set(int descriptor, int level, int option, int value)
{
    // A system that does not know the option notices later; nothing else changes.
    (void)::setsockopt(descriptor, level, option, &value, sizeof value);
}

} // namespace

void watch(QTcpSocket& socket)
{
    const auto descriptor = static_cast<int>(socket.socketDescriptor());
    if (descriptor < 0)
        return;
    set(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, intervalSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPCNT, probes);
}

bool isDirect(const QTcpSocket& socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const auto descriptor = static_cast<int>(socket.socketDescriptor());
    auto* const peer = reinterpret_cast<sockaddr*>(&address);
    if (descriptor < 0 || ::getpeername(descriptor, peer, &size) != 0)
        return false;
    // The port stands at the same place for both families.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port) == socket.peerPort() &&
           QHostAddress{peer}.isEqual(socket.peerAddress(), QHostAddress::TolerantConversion);
}

bool isDead(const QTcpSocket& socket)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    const auto descriptor = static_cast<int>(socket.socketDescriptor());
    if (descriptor < 0 || ::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return false;
    const bool repeated =
        info.tcpi_retransmits >= unansweredRepetitions || info.tcpi_probes >= unansweredRepetitions;
    return repeated && info.tcpi_last_ack_recv >= silentMilliseconds;
}

} // namespace peerwatch
