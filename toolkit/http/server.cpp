// SPDX-License-Identifier: MIT
#include "toolkit/http/server.h"
#include <QTcpSocket>
#include <QTimer>
#include <fmt/format.h>

namespace http {

namespace {

const char* reason(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 426:
        return "Upgrade Required";
    default:
        return "Service Unavailable";
    }
}

Response refusal(int status, const char* text)
{
    return {.status = status, .body = QByteArray(text) + '\n'};
}

// "127.0.0.1" of "127.0.0.1:4410", "::1" of "[::1]:4410".
QString hostOf(std::string_view hostAndPort)
{
    const bool isBracketed = hostAndPort.starts_with('[');
    const std::string_view host = isBracketed ? hostAndPort.substr(1, hostAndPort.find(']') - 1)
                                              : hostAndPort.substr(0, hostAndPort.find(':'));
    return QString::fromUtf8(host.data(), static_cast<int>(host.size()));
}

} // namespace

QByteArray responseBytes(const Response& response, bool withBody)
{
    std::string head =
        fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n",
                    response.status, reason(response.status), response.contentType, response.body.size());
    for (const auto& [name, value] : response.headers)
        head += fmt::format("{}: {}\r\n", name, value);
    head += "\r\n";
    QByteArray bytes = QByteArray::fromStdString(head);
    if (withBody)
        bytes += response.body;
    return bytes;
}

bool isForThisServer(const Request& request, const QHostAddress& arrivedAt)
{
    const std::string_view hostHeader = request.header("host");
    const QString host = hostOf(hostHeader);
    const QHostAddress address{host};
    const bool isKnown =
        host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0 ||
        (!address.isNull() && address.isEqual(arrivedAt, QHostAddress::ConvertV4MappedToIPv4));
    const std::string_view origin = request.header("origin");
    return isKnown && (origin.empty() || origin == "http://" + std::string(hostHeader));
}

Server::Server(Handler handler, const Limits& limits)
    : m_handler(std::move(handler))
    , m_limits(limits)
{
    connect(&m_server, &QTcpServer::newConnection, this, &Server::acceptWaiting);
}

bool Server::listen(const QHostAddress& address, std::uint16_t port)
{
    return m_server.listen(address, port);
}

void Server::acceptWaiting()
{
    // The others wait in the bounded queues of the server and of the system.
    while (m_connections < m_limits.connections && m_server.hasPendingConnections()) {
        QTcpSocket* const next = m_server.nextPendingConnection();
        if (next->state() == QAbstractSocket::ConnectedState)
            accept(next);
        else
            next->deleteLater(); // it went while it waited, and will not say so again
    }
}

void Server::Listener::incomingConnection(qintptr descriptor)
{
    auto* const socket = new QTcpSocket{this};
    socket->setReadBufferSize(longestHead);
    if (socket->setSocketDescriptor(descriptor))
        addPendingConnection(socket);
    else
        delete socket;
}

void Server::accept(QTcpSocket* socket)
{
    ++m_connections;
    auto* const deadline = new QTimer{socket};
    connect(deadline, &QTimer::timeout, socket, [socket] {
        socket->abort();
        socket->deleteLater(); // also where it was not connected any more
    });
    // With the deadline, not with the socket: one that is taken over is not counted any more.
    connect(deadline, &QObject::destroyed, this, [this] {
        --m_connections;
        QMetaObject::invokeMethod(this, &Server::acceptWaiting, Qt::QueuedConnection);
    });
    deadline->start(m_limits.headWithin);
    connect(socket, &QAbstractSocket::disconnected, deadline, [socket] { socket->deleteLater(); });
    connect(socket, &QIODevice::readyRead, deadline, [this, socket, deadline] { read(socket, deadline); });
    // Nobody listened while it waited for its turn.
    if (socket->bytesAvailable() > 0)
        read(socket, deadline);
}

void Server::read(QTcpSocket* socket, QTimer* deadline)
{
    const QByteArray bytes = socket->peek(longestHead);
    const Parsed parsed = parseRequest({bytes.constData(), static_cast<std::size_t>(bytes.size())});
    if (parsed.state == Parsed::State::Incomplete)
        return;
    disconnect(socket, &QIODevice::readyRead, deadline, nullptr);
    deadline->start(m_limits.allWithin);
    if (parsed.state == Parsed::State::Bad)
        return answer(*socket, refusal(400, "this is no request that is understood here"));
    const Request& request = parsed.request;
    const bool mayBeTaken =
        m_takeover && request.method == "GET" && isForThisServer(request, socket->localAddress());
    if (mayBeTaken && m_takeover(request, *socket))
        return delete deadline;
    answer(*socket, responseTo(request, *socket), request.method != "HEAD");
}

Response Server::responseTo(const Request& request, const QTcpSocket& socket)
{
    if (!isForThisServer(request, socket.localAddress()))
        return refusal(403, "expected the address of this server, or localhost, as host and origin");
    if (request.method != "GET" && request.method != "HEAD") {
        Response response = refusal(405, "expected GET or HEAD");
        response.headers.emplace_back("Allow", "GET, HEAD");
        return response;
    }
    return m_handler(request);
}

void Server::answer(QTcpSocket& socket, const Response& response, bool withBody)
{
    // What came is read: a socket that is closed with bytes unread takes the answer back.
    socket.readAll();
    socket.write(responseBytes(response, withBody));
    socket.disconnectFromHost();
}

} // namespace http
