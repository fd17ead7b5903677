// SPDX-License-Identifier: MIT
#include "tools/vk410/metricsserver.h"
#include <QTcpSocket>
#include <fmt/format.h>
#include <stdexcept>

namespace verbs {

namespace {

constexpr qint64 longestRequest = 8'192;

std::string response(const char* status, const std::string& body)
{
    return fmt::format("HTTP/1.1 {}\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
                       "Content-Length: {}\r\nConnection: close\r\n\r\n{}",
                       status, body.size(), body);
}

} // namespace

MetricsServer::MetricsServer(std::uint16_t port, std::function<std::string()> text)
    : m_text(std::move(text))
{
    if (!m_server.listen(QHostAddress::LocalHost, port))
        throw std::runtime_error{fmt::format("metrics port {}: {}; 'ss -tlpn' shows who has it", port,
                                             m_server.errorString().toStdString())};
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
        while (QTcpSocket* const socket = m_server.nextPendingConnection()) {
            socket->setReadBufferSize(longestRequest);
            QObject::connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QIODevice::readyRead, &m_server, [this, socket] { answer(*socket); });
        }
    });
}

void MetricsServer::answer(QTcpSocket& socket)
{
    const QByteArray request = socket.peek(longestRequest);
    if (!request.contains("\r\n\r\n")) {
        if (request.size() >= longestRequest)
            socket.abort();
        return;
    }
    const bool known = request.startsWith("GET /metrics ") || request.startsWith("GET /metrics?");
    socket.readAll();
    socket.write(QByteArray::fromStdString(known ? response("200 OK", m_text())
                                                 : response("404 Not Found", "only GET /metrics is here\n")));
    socket.disconnectFromHost();
}

} // namespace verbs
