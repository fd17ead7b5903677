// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "devicecontrol/vk410protocol/mirrorclients.h"
#include "devicecontrol/vk410protocol/peerwatch.h"
#include "nqbase/errorhandler.h"
#include <QElapsedTimer>
#include <QHostAddress>
#include <QMetaMethod>
#include <QPointer>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTcpSocket>
#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/tcpreader";
constexpr int connectMilliseconds = 3'000;
constexpr quint32 largestMaxDatagramSize = 1U << 30U;

// What one notification handles before the event loop runs again: others live in it, too.
constexpr qint64 bytesPerNotification = qint64{4} << 20;
constexpr qint64 millisecondsPerNotification = 10;

void traceError(const QString& message, int line)
{
    if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
        _Q_Trace(message, sourceFile, line);
}

bool hasSlot(const QObject* object, const char* signature)
{
    return object && object->metaObject()->indexOfSlot(signature) >= 0;
}

} // namespace

TcpReader::TcpReader(const QString& address, unsigned short port, QObject* parent)
    : m_socket(new QTcpSocket(this))
    , m_cutter(std::make_unique<DatagramCutter>(*m_socket))
    , m_mirror(std::make_unique<MirrorClients>())
{
    qRegisterMetaType<UdpDatagram*>("UdpDatagram*");
    connect(m_socket, SIGNAL(readyRead()), this, SLOT(SlotReadyRead()));
    // A bare dispatcher has no SlotConnected; it is simply not told.
    if (hasSlot(parent, "SlotConnected()"))
        connect(m_socket, SIGNAL(connected()), parent, SLOT(SlotConnected()));
    if (hasSlot(parent, "ProcessDatagram(UdpDatagram*)"))
        connect(this, SIGNAL(si_newDatagram(UdpDatagram*)), parent, SLOT(ProcessDatagram(UdpDatagram*)));
    connect(m_socket, &QAbstractSocket::connected, this, [this] { peerwatch::watch(*m_socket); });
    m_socket->setReadBufferSize(bytesPerNotification);
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
        m_socket->deleteLater();
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
    return !m_complete.empty() || m_cutter->mayHaveWhole();
}

void TcpReader::SlotReadyRead()
{
    // From inside a callback the outer call goes on with what is there; a turn that was asked for comes
    // anyway.
    if (m_isReading || m_isContinued)
        return;
    const QPointer<TcpReader> self = this; // whoever is told something may destroy the reader
    m_isReading = true;
    const auto finish = qScopeGuard([&self] {
        if (self)
            self->m_isReading = false;
    });
    // All complete datagrams first: they go to each client as one block, and are emitted afterwards.
    if (m_complete.empty())
        tellCut(cutAvailable());
    if (self)
        emitComplete();
    if (!self)
        return;
    if (m_cutter->brokenAt() && m_complete.empty())
        return breakStream();
    if (!m_complete.empty() || m_cutter->canContinue())
        continueLater();
}

void TcpReader::continueLater()
{
    m_isContinued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_isContinued = false;
            SlotReadyRead();
        },
        Qt::QueuedConnection);
}

// Result: what waited for each mirror client that was cut.
std::vector<qint64> TcpReader::cutAvailable()
{
    std::vector<Bytes> block;
    qint64 size = 0;
    while (size < bytesPerNotification) {
        Bytes bytes = m_cutter->next();
        if (!bytes)
            break;
        size += bytes->size();
        block.push_back(std::move(bytes));
    }
    std::vector<qint64> cut;
    if (!block.empty())
        cut = m_mirror->send(block);
    m_complete.insert(m_complete.end(), std::make_move_iterator(block.begin()),
                      std::make_move_iterator(block.end()));
    return cut;
}

void TcpReader::tellCut(const std::vector<qint64>& waiting)
{
    const QPointer<TcpReader> self = this;
    for (const qint64 bytes : waiting) {
        traceError(QStringLiteral("Mirror client cut: %1 bytes wait and it does not take them").arg(bytes),
                   __LINE__);
        if (self && m_observer)
            m_observer->MirrorClientCut(bytes);
    }
}

// After what came before it was delivered: the end of the connection may make its host let go of the reader.
void TcpReader::breakStream()
{
    const QPointer<TcpReader> self = this;
    traceError(QStringLiteral("Mass-data stream given up: ") + m_cutter->reason(), __LINE__);
    if (!self)
        return;
    const quint32 length = *m_cutter->brokenAt();
    m_socket->abort();
    if (self && m_observer)
        m_observer->StreamBroken(length);
}

// As many as the time of one notification allows.
void TcpReader::emitComplete()
{
    const QPointer<TcpReader> self = this;
    QElapsedTimer timer;
    timer.start();
    while (self && !m_complete.empty() && !timer.hasExpired(millisecondsPerNotification)) {
        Bytes bytes = std::move(m_complete.front());
        m_complete.pop_front();
        emitDatagram(std::move(bytes));
    }
}

void TcpReader::emitDatagram(Bytes bytes)
{
    static const QMetaMethod signal = QMetaMethod::fromSignal(&TcpReader::si_newDatagram);
    auto datagram = std::make_unique<UdpDatagram>(std::move(bytes));
    if (!isSignalConnected(signal))
        return; // nobody would own it
    try {
        emit si_newDatagram(datagram.release());
    } catch (const std::exception& failure) {
        traceError(QStringLiteral("Exception while handling a datagram: ") +
                       QString::fromUtf8(failure.what()),
                   __LINE__);
    } catch (...) {
        traceError(QStringLiteral("Exception while handling a datagram: unknown"), __LINE__);
    }
}

void TcpReader::SlotNewConnection()
{
    auto* const server = qobject_cast<QTcpServer*>(sender());
    while (QTcpSocket* const client = server ? server->nextPendingConnection() : nullptr) {
        connect(client, SIGNAL(disconnected()), this, SLOT(SlotConnectionClosed()));
        m_mirror->add(client);
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
