// SPDX-License-Identifier: MIT
#pragma once
// A receiver that serves mass data over TCP, and what listens to a reader, for tests with real sockets.
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "support/effect_log.h"
#include "wire/datagramwriter.h"
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <functional>
#include <memory>
#include <vector>

namespace support {

/// Runs the event loop until `condition` holds, at most `milliseconds`.
template <typename Condition>
bool waitUntil(const Condition& condition, int milliseconds = 10'000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.hasExpired(milliseconds))
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
        QCoreApplication::processEvents();
    }
    return true;
}

/// Listens on a free loopback port and sends what a test tells it to.
class TcpReceiver {
public:
    TcpReceiver() { m_server.listen(QHostAddress::LocalHost); }
    [[nodiscard]] unsigned short port() const { return m_server.serverPort(); }

    /// The connection of the reader; null while there is none.
    QTcpSocket* connection()
    {
        if (!m_connection && waitUntil([this] { return m_server.hasPendingConnections(); }, 2'000))
            m_connection = m_server.nextPendingConnection();
        return m_connection;
    }
    void send(const wire::Bytes& bytes)
    {
        connection()->write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size()));
        connection()->flush();
    }

private:
    QTcpServer m_server;
    QTcpSocket* m_connection = nullptr;
};

/// A datagram of `size` bytes whose content tells `number`.
inline wire::Bytes numbered(unsigned number, std::size_t size)
{
    wire::Bytes bytes =
        wire::DatagramWriter{}.sequence(static_cast<std::uint16_t>(number)).cutTo(size).build();
    for (std::size_t i = 16; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(number * 31 + i * 7);
    return bytes;
}

/// `parts` one after another.
inline wire::Bytes joined(const std::vector<wire::Bytes>& parts)
{
    wire::Bytes all;
    for (const wire::Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// A program behind the mirror: keeps all bytes that it gets.
class MirrorClient {
public:
    explicit MirrorClient(unsigned short port)
    {
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.waitForConnected(2'000);
        QObject::connect(&m_socket, &QIODevice::readyRead, [this] {
            const QByteArray bytes = m_socket.readAll();
            received.insert(received.end(), bytes.begin(), bytes.end());
        });
    }
    QTcpSocket& socket() { return m_socket; }
    wire::Bytes received;

private:
    QTcpSocket m_socket;
};

} // namespace support
