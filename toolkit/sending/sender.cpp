// SPDX-License-Identifier: MIT
#include "toolkit/sending/sender.h"
#include <QTcpSocket>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sending {

namespace {

constexpr std::int64_t mostWaitingBytes = std::int64_t{64} << 20;
constexpr int sendBufferBytes = 4 << 20;

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
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
        std::memcpy(&result.storage, &v6, sizeof v6);
        result.size = sizeof v6;
    } else {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        v4.sin_addr.s_addr = htonl(address.toIPv4Address());
        std::memcpy(&result.storage, &v4, sizeof v4);
        result.size = sizeof v4;
    }
    return result;
}

std::string placeText(const char* kind, const QHostAddress& address, std::uint16_t port)
{
    const bool isV6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    return fmt::format("{} {}{}{}:{}", kind, isV6 ? "[" : "", address.toString().toStdString(),
                       isV6 ? "]" : "", port);
}

} // namespace

Sender::~Sender() = default;

UdpSender::UdpSender(const QHostAddress& address, std::uint16_t port)
    : m_address(address)
    , m_port(port)
    , m_descriptor(-1)
{
    const SocketAddress target = socketAddress(address, port);
    m_descriptor = ::socket(target.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Connected, so that a packet costs no look-up of its route.
    if (m_descriptor < 0 || ::connect(m_descriptor, target.get(), target.size) != 0) {
        const std::string why = std::strerror(errno);
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        throw CannotSend{fmt::format("{}: {}; 'ip route get {}' shows the way there", name(), why,
                                     address.toString().toStdString())};
    }
    (void)::setsockopt(m_descriptor, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
}

UdpSender::~UdpSender()
{
    ::close(m_descriptor);
}

void UdpSender::send(std::span<const unsigned char> datagram)
{
    // A port nobody listens on answers with an error for the packet before; the next one is sent all the
    // same.
    ssize_t sent = ::send(m_descriptor, datagram.data(), datagram.size(), 0);
    if (sent < 0 && errno == ECONNREFUSED)
        sent = ::send(m_descriptor, datagram.data(), datagram.size(), 0);
    if (sent < 0 && errno != ECONNREFUSED)
        ++m_dropped;
}

std::string UdpSender::name() const
{
    return placeText("udp", m_address, m_port);
}

TcpSender::TcpSender(const QHostAddress& address, std::uint16_t port)
{
    if (!m_server.listen(address, port))
        throw CannotSend{fmt::format("{}: cannot listen: {}; 'ss -tlpn' shows who has the port",
                                     placeText("tcp", address, port), m_server.errorString().toStdString())};
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
}

TcpSender::~TcpSender()
{
    for (QTcpSocket* const client : m_clients)
        client->disconnect(&m_server);
}

void TcpSender::accept()
{
    while (QTcpSocket* const client = m_server.nextPendingConnection()) {
        m_clients.push_back(client);
        QObject::connect(client, &QAbstractSocket::disconnected, &m_server, [this, client] {
            std::erase(m_clients, client);
            client->deleteLater();
        });
    }
}

void TcpSender::send(std::span<const unsigned char> datagram)
{
    // A copy: a client whose write fails leaves the list from inside the call.
    const std::vector<QTcpSocket*> clients = m_clients;
    for (QTcpSocket* const client : clients) {
        client->write(reinterpret_cast<const char*>(datagram.data()), static_cast<qint64>(datagram.size()));
        if (client->bytesToWrite() > (1 << 16))
            client->flush();
        if (client->bytesToWrite() <= mostWaitingBytes)
            continue;
        ++m_cut;
        client->abort();
    }
}

std::int64_t TcpSender::mostWaiting() const
{
    std::int64_t most = 0;
    for (const QTcpSocket* const client : m_clients)
        most = std::max<std::int64_t>(most, client->bytesToWrite());
    return most;
}

std::string TcpSender::name() const
{
    return placeText("tcp", m_server.serverAddress(), m_server.serverPort());
}

} // namespace sending
