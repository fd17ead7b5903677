// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "devicecontrol/vk410protocol/coarsetimer.h"
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "devicecontrol/vk410protocol/mirrorclients.h"
#include "devicecontrol/vk410protocol/peerwatch.h"
#include "nqbase/errorhandler.h"
#include <QHostAddress>
#include <QMetaMethod>
#include <QPointer>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTcpSocket>
#include <algorithm>
#include <exception>
#include <new>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/tcpreader";
constexpr int connectMilliseconds = 3'000;
constexpr quint32 largestMaxDatagramSize = 1U << 30U;

// What one notification handles before the event loop runs again: others live in it, too.
constexpr qint64 bytesPerNotification = qint64{4} << 20;
constexpr qint64 millisecondsPerNotification = 10;

// What is cut and sent to the mirror's clients at a time: little enough to stay in the processor's cache
// until it is emitted, enough that the system calls for 16 clients do not count.
constexpr qint64 bytesPerBlock = qint64{128} << 10;

// What the socket itself takes in before it tells; the rest is taken from the system.
constexpr qint64 bytesPerRead = qint64{16} << 10;

// How often clients are looked after while the stream brings nothing.
constexpr int mirrorLookMilliseconds = 1'000;

// Composes the text only where somebody reads it; where there is no memory for it, it is not there.
template <typename Compose>
void traceError(const Compose& compose, int line)
{
    if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) == 0)
        return;
    try {
        _Q_Trace(compose(), sourceFile, line);
    } catch (const std::bad_alloc&) {
        // The text was all; the stream goes on without it.
    }
}

// What the event loop calls must not throw for want of memory: Qt does not survive that. Result: whether
// there was enough.
template <typename Work>
bool hasMemoryFor(const Work& work)
{
    try {
        work();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool hasSlot(const QObject* object, const char* signature)
{
    return object && object->metaObject()->indexOfSlot(signature) >= 0;
}

} // namespace

TcpReader::TcpReader(const QString& address, unsigned short port, QObject* parent)
    : m_socket(new QTcpSocket(this))
    , m_cutter(std::make_unique<DatagramCutter>([this](char* to, qint64 size) { return read(to, size); }))
    , m_mirror(std::make_unique<MirrorClients>())
{
    qRegisterMetaType<UdpDatagram*>("UdpDatagram*");
    const QPointer<TcpReader> first = this; // it takes memory; those in the slots do not any more
    connect(m_socket, SIGNAL(readyRead()), this, SLOT(SlotReadyRead()));
    // A bare dispatcher has no SlotConnected; it is simply not told.
    if (hasSlot(parent, "SlotConnected()"))
        connect(m_socket, SIGNAL(connected()), parent, SLOT(SlotConnected()));
    if (hasSlot(parent, "ProcessDatagram(UdpDatagram*)"))
        connect(this, SIGNAL(si_newDatagram(UdpDatagram*)), parent, SLOT(ProcessDatagram(UdpDatagram*)));
    connect(m_socket, &QAbstractSocket::connected, this, [this] {
        // A host may have connected the socket again, by itself.
        m_cutter->restart();
        m_isDirect = peerwatch::isDirect(*m_socket);
        peerwatch::watch(*m_socket);
    });
    connect(&m_mirrorLook, &QTimer::timeout, this, [this] {
        if (m_isReading) // in a receiver's own event loop: the clients are looked after anyway
            return;
        if (m_mirror->count() == 0)
            m_mirrorLook.stop();
        sendToMirror({}); // nothing to send: stalled and dead clients go all the same
    });
    m_socket->setReadBufferSize(bytesPerRead);
    m_socket->connectToHost(address, port, QIODevice::ReadOnly, QAbstractSocket::AnyIPProtocol);
    m_socket->waitForConnected(connectMilliseconds);
}

TcpReader::~TcpReader()
{
    m_socket->disconnect(this);
    m_socket->disconnectFromHost();
    // From inside a notification the socket is still on the stack; it goes when that is over.
    if (m_isReading) {
        m_socket->disconnect();
        m_socket->abort();
        m_socket->setParent(nullptr);
    }
    for (QTcpServer* const server : findChildren<QTcpServer*>())
        server->close();
    m_mirror->disconnectAll();
}

bool TcpReader::StartMassDataMirror(const QString& address, unsigned short port)
{
    // Each call makes a server of its own; those before go on.
    auto* const server = new QTcpServer(this);
    connect(server, SIGNAL(newConnection()), this, SLOT(SlotNewConnection()));
    // Qt stops accepting when the process has no descriptors left, for good.
    connect(server, &QTcpServer::acceptError, server, [server] {
        QTimer::singleShot(mirrorLookMilliseconds, server, [server] { server->resumeAccepting(); });
    });
    return server->listen(QHostAddress(address), port);
}

void TcpReader::SetMaxDatagramSize(quint32 bytes)
{
    m_cutter->setMaxSize(std::min(bytes, largestMaxDatagramSize));
}

QString TcpReader::GetLocalAddress() const
{
    return m_socket->localAddress().toString();
}

unsigned short TcpReader::GetLocalPort() const
{
    return m_socket->localPort();
}

int TcpReader::MirrorClientCount() const
{
    return m_mirror->count();
}

qint64 TcpReader::MirrorBytesWaiting() const
{
    return m_mirror->bytesWaiting();
}

bool TcpReader::HasPendingDatagrams() const
{
    return hasComplete() || m_cutter->mayHaveWhole(m_socket->bytesAvailable());
}

void TcpReader::SlotReadyRead()
{
    // From inside a callback the outer call goes on with what is there; a turn that was asked for comes
    // anyway.
    if (m_isReading || m_isContinued)
        return;
    const QPointer<TcpReader> self = this; // whoever is told something may destroy the reader
    m_isReading = true;
    const auto finish = qScopeGuard([&self, socket = m_socket] {
        if (self)
            self->m_isReading = false;
        else
            socket
                ->deleteLater(); // here: a receiver's own event loop would do it while the socket is at work
    });
    const CoarseTimer timer;
    qint64 bytes = 0;
    do {
        if (!hasComplete())
            bytes += m_mirror->count() == 0 ? passOn(timer) : cutBlock();
        if (self)
            emitComplete(timer);
        if (!self)
            return;
    } while (hasMore() && bytes < bytesPerNotification && !timer.hasExpired(millisecondsPerNotification));
    if (m_cutter->brokenAt() && !hasComplete())
        return breakStream();
    if (hasMore())
        continueLater();
    else
        leavePartOfHeader();
}

// Where no datagram is in progress, the socket keeps what has arrived until a header is whole.
void TcpReader::leavePartOfHeader()
{
    if (!m_socket->isReadable())
        return; // closed by whoever took a datagram
    // Without memory the cutter keeps it; only the first byte that is given back takes some.
    (void)hasMemoryFor([this] {
        const QByteArray part = m_cutter->partOfHeader();
        for (int i = part.size() - 1; i >= 0; --i)
            m_socket->ungetChar(part[i]);
        m_cutter->forgetPartOfHeader();
    });
}

// The socket's own bytes came while a receiver ran an event loop of its own; nobody will tell of them again.
bool TcpReader::hasMore() const
{
    return hasComplete() || (!m_cutter->brokenAt() && (!m_isDry || m_socket->bytesAvailable() > 0));
}

// What waits in the socket first, then straight from the system: Qt would take it in with a copy and a turn
// of the event loop more.
qint64 TcpReader::read(char* to, qint64 size)
{
    if (m_socket->bytesAvailable() > 0)
        return m_socket->read(to, size);
    if (!m_isDirect || m_socket->state() != QAbstractSocket::ConnectedState)
        return 0;
    // The end and errors are found by the socket itself at its next look.
    return ::recv(static_cast<int>(m_socket->socketDescriptor()), to, static_cast<std::size_t>(size),
                  MSG_DONTWAIT);
}

void TcpReader::continueLater()
{
    // Without memory, the next bytes that arrive continue.
    m_isContinued = hasMemoryFor([this] {
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_isContinued = false;
                SlotReadyRead();
            },
            Qt::QueuedConnection);
    });
}

// Cuts and emits one by one, while there is no client: each datagram gets the memory that the one before has
// just given back. Result: their bytes.
qint64 TcpReader::passOn(const CoarseTimer& timer)
{
    const QPointer<TcpReader> self = this;
    qint64 size = 0;
    do {
        Bytes bytes = m_cutter->next();
        m_isDry = !bytes;
        if (m_isDry)
            break;
        size += bytes->size();
        emitDatagram(std::move(bytes));
    } while (self && m_mirror->count() == 0 && size < bytesPerNotification &&
             !timer.hasExpired(millisecondsPerNotification));
    return size;
}

// A block of complete datagrams: it goes to each client as one, and is emitted afterwards. Result: its bytes.
qint64 TcpReader::cutBlock()
{
    m_complete.clear();
    m_emitted = 0;
    qint64 size = 0;
    // Room first: a datagram that was cut is never dropped.
    while (size < bytesPerBlock && hasMemoryFor([this] { makeRoomForOne(); })) {
        Bytes bytes = m_cutter->next();
        m_isDry = !bytes;
        if (m_isDry)
            break;
        size += bytes->size();
        m_complete.push_back(std::move(bytes));
    }
    if (hasComplete())
        sendToMirror(m_complete);
    return size;
}

void TcpReader::makeRoomForOne()
{
    if (m_complete.size() == m_complete.capacity())
        m_complete.reserve(2 * m_complete.size() + 16);
}

void TcpReader::sendToMirror(std::span<const Bytes> datagrams)
{
    const QPointer<TcpReader> self = this;
    if (!hasMemoryFor([&] { tellCut(m_mirror->send(datagrams)); }) && self)
        traceError([] { return QStringLiteral("No memory to serve all mirror clients"); }, __LINE__);
}

void TcpReader::tellCut(const std::vector<qint64>& waiting)
{
    const QPointer<TcpReader> self = this;
    for (const qint64 bytes : waiting) {
        traceError(
            [bytes] {
                return QStringLiteral("Mirror client cut: %1 bytes wait and it does not take them")
                    .arg(bytes);
            },
            __LINE__);
        if (self && m_observer)
            m_observer->MirrorClientCut(bytes);
    }
}

// After what came before it was delivered: the end of the connection may make its host let go of the reader.
void TcpReader::breakStream()
{
    const QPointer<TcpReader> self = this;
    traceError([this] { return QStringLiteral("Mass-data stream given up: ") + m_cutter->reason(); },
               __LINE__);
    if (!self)
        return;
    const quint32 length = *m_cutter->brokenAt();
    m_socket->abort();
    if (self && m_observer)
        m_observer->StreamBroken(length);
}

// As many as the time of one notification allows.
void TcpReader::emitComplete(const CoarseTimer& timer)
{
    const QPointer<TcpReader> self = this;
    while (self && hasComplete() && !timer.hasExpired(millisecondsPerNotification))
        emitDatagram(std::move(m_complete[m_emitted++]));
}

void TcpReader::emitDatagram(Bytes bytes)
{
    static const QMetaMethod signal = QMetaMethod::fromSignal(&TcpReader::si_newDatagram);
    if (!isSignalConnected(signal))
        return; // nobody would own it
    try {
        emit si_newDatagram(std::make_unique<UdpDatagram>(std::move(bytes)).release());
    } catch (const std::exception& failure) {
        traceError(
            [&failure] {
                return QStringLiteral("Exception while handling a datagram: ") +
                       QString::fromUtf8(failure.what());
            },
            __LINE__);
    } catch (...) {
        traceError([] { return QStringLiteral("Exception while handling a datagram: unknown"); }, __LINE__);
    }
}

void TcpReader::SlotNewConnection()
{
    auto* const server = qobject_cast<QTcpServer*>(sender());
    while (QTcpSocket* const client = server ? server->nextPendingConnection() : nullptr) {
        const bool isTaken = hasMemoryFor([this, client] {
            connect(client, SIGNAL(disconnected()), this, SLOT(SlotConnectionClosed()));
            m_mirror->add(client);
            m_mirrorLook.start(mirrorLookMilliseconds);
        });
        if (!isTaken) {
            m_mirror->remove(client);
            delete client;
        }
    }
}

void TcpReader::SlotConnectionClosed()
{
    auto* const client = qobject_cast<QTcpSocket*>(sender());
    if (!client)
        return;
    m_mirror->remove(client);
    client->deleteLater();
}
