// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/peerwatch.h"
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace peerwatch {

namespace {

constexpr int idleSeconds = 2;
constexpr int intervalSeconds = 1;
constexpr int probes = 3;

void set(int descriptor, int level, int option, int value)
{
    // A system that does not know the option notices later; nothing else changes.
    (void)::setsockopt(descriptor, level, option, &value, sizeof value);
}

} // namespace

void watch(QTcpSocket& socket, int userTimeoutMilliseconds)
{
    const auto descriptor = static_cast<int>(socket.socketDescriptor());
    if (descriptor < 0)
        return;
    set(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, intervalSeconds);
    set(descriptor, IPPROTO_TCP, TCP_KEEPCNT, probes);
    set(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, userTimeoutMilliseconds);
}

} // namespace peerwatch
