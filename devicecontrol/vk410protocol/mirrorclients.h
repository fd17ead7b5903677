// SPDX-License-Identifier: MIT
#pragma once
// The clients of a mass-data mirror: who they are, what waits for them, and which of them is cut.
#include <QByteArray>
#include <QElapsedTimer>
#include <QPointer>
#include <QTcpSocket>
#include <cstddef>
#include <list>
#include <memory>
#include <span>
#include <vector>

/// Sends blocks of whole datagrams to every client. A client that does not take them costs bounded memory and
/// then goes. Owner: the sockets belong to their server; the list forgets them before they die.
class MirrorClients {
public:
    /// Takes a connection in, behind the others.
    void add(QTcpSocket* socket);

    /// Forgets a connection; one that is not there: nothing.
    void remove(QTcpSocket* socket);

    /// Sends the datagrams, in order, to all clients in the order of their arrival; none: looks after the
    /// clients. Result: the bytes that waited for each client that was cut on the way; those are out of the
    /// list.
    std::vector<qint64> send(std::span<const std::unique_ptr<QByteArray>> datagrams);

    /// Ends all connections.
    void disconnectAll();

    [[nodiscard]] int count() const;
    [[nodiscard]] qint64 bytesWaiting() const;

private:
    struct Client {
        QPointer<QTcpSocket> socket; // null: gone, perhaps while the others are being served
        qint64 waiting = 0;          // after the last look
        QElapsedTimer progress;      // since when none of it has left
        QElapsedTimer asked;         // since the system was asked whether the peer lives
    };

    [[nodiscard]] static bool trySendTo(QTcpSocket& socket,
                                        std::span<const std::unique_ptr<QByteArray>> datagrams);
    static void sendTo(QTcpSocket& socket, std::span<const std::unique_ptr<QByteArray>> datagrams);
    static void notice(Client& client);
    static void end(QTcpSocket& socket);
    [[nodiscard]] bool isStalled(Client& client) const;
    static bool isDead(Client& client);
    void forgetRemoved();

    std::list<Client> m_clients; // each stays where it is when others come and go from inside a write
    qint64 m_largestDatagram = 0;
    bool m_isSending = false;
};
