// SPDX-License-Identifier: MIT
#pragma once
// A receiver's TCP port whose connections end in every way that there is.
#include "wire/datagramwriter.h"
#include <QTcpServer>
#include <cstdint>
#include <vector>

class QTcpSocket;

namespace soak {

/// How a receiver's connection ends.
enum class Breakdown : std::uint8_t {
    Close,         // in order
    Reset,         // at once
    MidDatagram,   // half of a datagram comes, then a reset
    BadLength,     // a header whose length cannot be true: the reader gives the stream up
    CloseMidHeader // in order, behind part of a header
};
inline constexpr unsigned breakdowns = 5;

/// Thread: that of the event loop.
class StreamServer {
public:
    /// Listens on a free port of loopback.
    StreamServer();
    ~StreamServer();
    StreamServer(const StreamServer&) = delete;
    StreamServer& operator=(const StreamServer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return m_server.serverPort(); }
    [[nodiscard]] std::size_t connections() const { return m_connections.size(); }
    [[nodiscard]] qint64 waiting() const;

    void send(const wire::Bytes& datagram);

    /// Ends all connections; `datagram` is what may be begun before.
    void end(Breakdown how, const wire::Bytes& datagram);

private:
    void accept();

    QTcpServer m_server;
    std::vector<QTcpSocket*> m_connections;
};

} // namespace soak
