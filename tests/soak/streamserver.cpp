// SPDX-License-Identifier: MIT
#include "streamserver.h"
#include <QTcpSocket>
#include <algorithm>
#include <stdexcept>
#include <sys/socket.h>

namespace soak {

namespace {

constexpr qint64 flushAbove = 1 << 16;

void write(QTcpSocket& socket, const wire::Bytes& bytes, std::size_t size)
{
    socket.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(size));
}

void reset(QTcpSocket& socket)
{
    socket.flush();
    const linger now{1, 0};
    (void)::setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    socket.abort();
}

} // namespace

StreamServer::StreamServer()
{
    if (!m_server.listen(QHostAddress::LocalHost))
        throw std::runtime_error{"no TCP port of loopback: " + m_server.errorString().toStdString()};
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
}

StreamServer::~StreamServer()
{
    for (QTcpSocket* const connection : m_connections)
        connection->disconnect(&m_server);
}

void StreamServer::accept()
{
    while (QTcpSocket* const connection = m_server.nextPendingConnection()) {
        m_connections.push_back(connection);
        QObject::connect(connection, &QAbstractSocket::disconnected, &m_server, [this, connection] {
            std::erase(m_connections, connection);
            connection->deleteLater();
        });
    }
}

qint64 StreamServer::waiting() const
{
    qint64 most = 0;
    for (const QTcpSocket* const connection : m_connections)
        most = std::max(most, connection->bytesToWrite());
    return most;
}

void StreamServer::send(const wire::Bytes& datagram)
{
    const std::vector<QTcpSocket*> connections = m_connections; // one whose write fails leaves the list
    for (QTcpSocket* const connection : connections) {
        write(*connection, datagram, datagram.size());
        if (connection->bytesToWrite() > flushAbove)
            connection->flush();
    }
}

void StreamServer::end(Breakdown how, const wire::Bytes& datagram)
{
    const std::vector<QTcpSocket*> connections = m_connections;
    for (QTcpSocket* const connection : connections) {
        switch (how) {
        case Breakdown::Close:
            connection->disconnectFromHost();
            break;
        case Breakdown::CloseMidHeader:
            write(*connection, datagram, 7);
            connection->disconnectFromHost();
            break;
        case Breakdown::MidDatagram:
            write(*connection, datagram, datagram.size() / 2);
            reset(*connection);
            break;
        case Breakdown::BadLength:
            write(*connection, wire::DatagramWriter{}.claimTotalLength(15).build(), 16);
            connection->flush();
            break;
        case Breakdown::Reset:
            reset(*connection);
            break;
        }
    }
}

} // namespace soak
