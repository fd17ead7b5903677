// SPDX-License-Identifier: MIT
#pragma once
// Answers GET /metrics on loopback.
#include <QTcpServer>
#include <cstdint>
#include <functional>
#include <string>

class QTcpSocket;

namespace verbs {

/// Serves one text, made anew for each request.
/// Thread: that of the event loop; a request is answered from memory, and one that is too long is cut.
class MetricsServer {
public:
    /// Errors: std::runtime_error when the port is taken. Port 0: a free one.
    MetricsServer(std::uint16_t port, std::function<std::string()> text);

    [[nodiscard]] std::uint16_t port() const { return m_server.serverPort(); }

private:
    void answer(QTcpSocket& socket);

    QTcpServer m_server;
    std::function<std::string()> m_text;
};

} // namespace verbs
