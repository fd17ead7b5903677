// SPDX-License-Identifier: MIT
#pragma once
// A small HTTP server for what a program says about itself: answers from memory, one request a connection.
#include "toolkit/http/request.h"
#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QTcpServer>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

class QTcpSocket;
class QTimer;

namespace http {

struct Response {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    QByteArray body{};
    std::vector<std::pair<std::string, std::string>> headers{}; // besides those about type and length
};

/// The response as it is sent; without the body for a HEAD request.
[[nodiscard]] QByteArray responseBytes(const Response& response, bool withBody);

/// Whether the request was meant for this server: its host is "localhost" or the address at which the
/// connection arrived, and its origin, where there is one, is that host. A page from elsewhere whose name was
/// made to point here (DNS rebinding) says its own name, and is refused.
[[nodiscard]] bool isForThisServer(const Request& request, const QHostAddress& arrivedAt);

struct Limits {
    int connections = 64;                        // answered at once; the others wait
    std::chrono::milliseconds headWithin{5'000}; // from the connection to the end of the head
    std::chrono::milliseconds allWithin{30'000}; // to the end of the response
};

/// Thread: that of the event loop; nothing in it blocks.
class Server : public QObject {
    Q_OBJECT

public:
    /// Answers GET and HEAD requests.
    using Handler = std::function<Response(const Request&)>;
    /// Takes the connection over, with the request still unread, when it says yes.
    using Takeover = std::function<bool(const Request&, QTcpSocket&)>;

    explicit Server(Handler handler, const Limits& limits = {});

    void setTakeover(Takeover takeover) { m_takeover = std::move(takeover); }

    /// Port 0: a free one. False when the place is taken; `errorText` says why.
    [[nodiscard]] bool listen(const QHostAddress& address, std::uint16_t port);
    [[nodiscard]] std::string errorText() const { return m_server.errorString().toStdString(); }

    [[nodiscard]] std::uint16_t port() const { return m_server.serverPort(); }
    [[nodiscard]] int connections() const { return m_connections; }

private:
    void acceptWaiting();
    void accept(QTcpSocket* socket);
    void read(QTcpSocket* socket, QTimer* deadline);
    void answer(QTcpSocket& socket, const Response& response, bool withBody = true);
    [[nodiscard]] Response responseTo(const Request& request, const QTcpSocket& socket);

    Handler m_handler;
    Takeover m_takeover;
    Limits m_limits;
    int m_connections = 0;
    // Limits what a connection may fill before its turn comes.
    class Listener : public QTcpServer {
        void incomingConnection(qintptr descriptor) override;
    };
    Listener m_server; // with the connections, which count themselves out
};

} // namespace http
