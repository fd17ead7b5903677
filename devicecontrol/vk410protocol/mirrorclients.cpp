// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mirrorclients.h"
#include "devicecontrol/vk410protocol/peerwatch.h"
#include <QScopeGuard>
#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <sys/socket.h>
#include <utility>

namespace {

// How much may wait for a client of which nothing leaves, and how long; and how much at all.
constexpr qint64 stalledBytes = qint64{8} << 20;
constexpr qint64 stalledMilliseconds = 5'000;
constexpr qint64 mostBytes = qint64{32} << 20;

// How often the system is asked whether a peer lives.
constexpr qint64 askMilliseconds = 1'000;

constexpr std::size_t datagramsPerCall = 256;

// Hands as many bytes to the system as it takes at once, past Qt's buffer: Qt writes one small chunk per turn
// of the event loop, so that 16 clients fall behind at a fifth of the rate which one core can serve. Result:
// bytes taken, of `datagrams` in order.
qint64 sendAtOnce(int descriptor, std::span<const std::unique_ptr<QByteArray>> datagrams)
{
    qint64 sent = 0;
    while (!datagrams.empty()) {
        std::array<iovec, datagramsPerCall> parts{};
        const auto batch = datagrams.first(std::min(datagrams.size(), parts.size()));
        qint64 size = 0;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            parts[i] = {batch[i]->data(), static_cast<std::size_t>(batch[i]->size())};
            size += batch[i]->size();
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = batch.size();
        const ssize_t taken = ::sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken < 0 && errno == EINTR)
            continue;
        if (taken > 0)
            sent += taken;
        if (taken != size)
            return sent; // full, or broken: Qt finds out with what is left
        datagrams = datagrams.subspan(batch.size());
    }
    return sent;
}

} // namespace

void MirrorClients::add(QTcpSocket* socket)
{
    // What a client says is thrown away, so that it cannot fill our memory.
    socket->setReadBufferSize(65'536);
    QObject::connect(socket, &QIODevice::readyRead, socket,
                     [socket] { socket->skip(socket->bytesAvailable()); });
    peerwatch::watch(*socket);
    Client client{socket, 0, {}, {}};
    client.progress.start();
    client.asked.start();
    m_clients.push_back(client);
}

void MirrorClients::remove(QTcpSocket* socket)
{
    for (Client& client : m_clients) {
        if (client.socket == socket)
            client.socket.clear();
    }
    if (!m_isSending)
        forgetRemoved();
}

void MirrorClients::forgetRemoved()
{
    std::erase_if(m_clients, [](const Client& client) { return client.socket.isNull(); });
}

std::vector<qint64> MirrorClients::send(std::span<const std::unique_ptr<QByteArray>> datagrams)
{
    for (const auto& datagram : datagrams)
        m_largestDatagram = std::max<qint64>(m_largestDatagram, datagram->size());
    std::vector<qint64> cut;
    cut.reserve(m_clients.size());
    // A write that fails makes its client go at once, from inside the call.
    m_isSending = true;
    const auto finish = qScopeGuard([this] {
        m_isSending = false;
        forgetRemoved();
    });
    for (Client& client : m_clients) {
        if (client.socket)
            notice(client);
        // Behind a datagram of which only a part was taken, nothing that follows would be understood.
        const bool isTorn = client.socket && !trySendTo(*client.socket, datagrams);
        if (client.socket && (isTorn || isStalled(client))) {
            cut.push_back(client.waiting);
            QTcpSocket& socket = *client.socket;
            client.socket.clear();
            end(socket);
        }
    }
    return cut;
}

// What has left since the last look, before more is added: also what the system takes only now, because the
// event loop did not run for a while and that was no fault of the client's.
void MirrorClients::notice(Client& client)
{
    QTcpSocket& socket = *client.socket;
    while (socket.bytesToWrite() != 0 && socket.flush()) {
    }
    const qint64 left = socket.bytesToWrite();
    // Where nothing waited, what comes now has not had its time yet.
    if (left == 0 || left < client.waiting)
        client.progress.start();
}

void MirrorClients::end(QTcpSocket& socket)
{
    socket.disconnect();
    socket.abort();
    socket.deleteLater();
}

// False where there is no memory for what the system does not take at once.
bool MirrorClients::trySendTo(QTcpSocket& socket, std::span<const std::unique_ptr<QByteArray>> datagrams)
{
    try {
        sendTo(socket, datagrams);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void MirrorClients::sendTo(QTcpSocket& socket, std::span<const std::unique_ptr<QByteArray>> datagrams)
{
    qint64 sent = 0;
    if (socket.bytesToWrite() == 0)
        sent = sendAtOnce(static_cast<int>(socket.socketDescriptor()), datagrams);
    for (const auto& datagram : datagrams) {
        const qint64 size = datagram->size();
        // By address and size: copied, because the datagram is converted in place while these bytes wait.
        if (sent < size)
            socket.write(datagram->constData() + sent, size - sent);
        sent = std::max<qint64>(sent - size, 0);
    }
}

bool MirrorClients::isStalled(Client& client) const
{
    client.waiting = client.socket->bytesToWrite();
    if (client.waiting == 0)
        client.progress.start();
    if (client.waiting > std::max(mostBytes, 2 * m_largestDatagram))
        return true;
    if (client.waiting > stalledBytes && client.progress.hasExpired(stalledMilliseconds))
        return true;
    return isDead(client);
}

// Also where nothing waits here: a thin stream takes hours to fill the system's own buffer.
bool MirrorClients::isDead(Client& client)
{
    if (!client.asked.hasExpired(askMilliseconds))
        return false;
    client.asked.start();
    return peerwatch::isDead(*client.socket);
}

void MirrorClients::disconnectAll()
{
    for (const Client& client : m_clients) {
        if (!client.socket)
            continue;
        client.socket->disconnect();
        client.socket->flush();
        client.socket->disconnectFromHost();
    }
    m_clients.clear();
}

int MirrorClients::count() const
{
    return static_cast<int>(std::count_if(m_clients.begin(), m_clients.end(),
                                          [](const Client& c) { return !c.socket.isNull(); }));
}

qint64 MirrorClients::bytesWaiting() const
{
    qint64 waiting = 0;
    for (const Client& client : m_clients)
        waiting += client.socket ? client.socket->bytesToWrite() : 0;
    return waiting;
}
