// SPDX-License-Identifier: MIT
#pragma once
// Sends datagrams as a receiver does.
#include <QHostAddress>
#include <QObject>
#include <QTcpServer>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

namespace sending {

/// A place cannot be sent to or served; says which, why, and what to do.
struct CannotSend : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Where datagrams go.
class Sender {
public:
    Sender() = default;
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    virtual ~Sender();

    /// Sends one datagram. What cannot leave now is dropped and counted, or waits within a bound.
    virtual void send(std::span<const unsigned char> datagram) = 0;

    /// Datagrams that this end had to drop.
    [[nodiscard]] virtual std::uint64_t dropped() const = 0;

    /// "udp 127.0.0.1:5555"
    [[nodiscard]] virtual std::string name() const = 0;
};

/// One UDP packet per datagram, to one address, which may be a multicast group.
class UdpSender : public Sender {
public:
    /// Errors: CannotSend.
    UdpSender(const QHostAddress& address, std::uint16_t port);
    ~UdpSender() override;

    void send(std::span<const unsigned char> datagram) override;
    [[nodiscard]] std::uint64_t dropped() const override { return m_dropped; }
    [[nodiscard]] std::string name() const override;

private:
    QHostAddress m_address;
    std::uint16_t m_port;
    int m_descriptor;
    std::uint64_t m_dropped = 0;
};

/// Serves the stream to every client that connects, whole datagrams from the next one on.
/// Thread: that of the event loop. A client for which more than 64 MiB wait is cut.
class TcpSender : public Sender {
public:
    /// Errors: CannotSend. Port 0: a free one.
    TcpSender(const QHostAddress& address, std::uint16_t port);
    ~TcpSender() override;

    void send(std::span<const unsigned char> datagram) override;
    [[nodiscard]] std::uint64_t dropped() const override { return m_cut; }
    [[nodiscard]] std::string name() const override;

    [[nodiscard]] std::uint16_t port() const { return m_server.serverPort(); }
    [[nodiscard]] int clients() const { return static_cast<int>(m_clients.size()); }

    /// Bytes that wait for the client that lags most; a source may pause on it.
    [[nodiscard]] std::int64_t mostWaiting() const;

private:
    void accept();

    QTcpServer m_server;
    std::vector<QTcpSocket*> m_clients;
    std::uint64_t m_cut = 0; // clients
};

} // namespace sending
