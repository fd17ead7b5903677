// SPDX-License-Identifier: MIT
#pragma once
// Mass data over TCP: cuts the receiver's stream into datagrams, and mirrors it to other programs.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <QObject>
#include <QString>
#include <QTimer>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

class CoarseTimer;
class QTcpSocket;
class DatagramCutter;
class MirrorClients;

/// Reads a receiver's mass-data stream and emits its datagrams; optionally a server that forwards them byte
/// for byte.
/// Owner:  socket, server and mirror clients are its children; the datagrams belong to who receives the
/// signal.
///         From a slot of that socket, or of a mirror client's, the reader goes by `deleteLater`.
/// Errors: it neither reconnects nor reports a loss; who wants to know watches its child socket
/// (`findChild`). Thread: that of its event loop. A parent in another thread gets the datagrams queued.
class Q_DECL_EXPORT TcpReader : public QObject {
    Q_OBJECT

public:
    /// Connects to `address`:`port` and waits for that at most 3 s; the outcome is ignored here.
    /// `parent` is whom the reader serves: its slots "ProcessDatagram(UdpDatagram*)" and "SlotConnected()"
    /// are connected as far as it has them. It is not the reader's QObject parent and does not own it.
    TcpReader(const QString& address, unsigned short port, QObject* parent);
    ~TcpReader() override;

    /// Serves the stream on `address`:`port` to any number of clients, whole datagrams from the next one on.
    /// Result: whether it listens.
    bool StartMassDataMirror(const QString& address, unsigned short port);

    /// This end of the connection to the receiver.
    [[nodiscard]] QString GetLocalAddress() const;
    [[nodiscard]] unsigned short GetLocalPort() const;

    /// The longest datagram that is believed, 64 MiB at first. A header that claims more, or less than
    /// itself, breaks the connection: the stream cannot be trusted any more.
    /// Not above 1 GiB, which is the longest that one array holds with room to spare.
    void SetMaxDatagramSize(quint32 bytes);

    /// Who is told about broken streams and cut clients; null (the default): nobody.
    void SetMassDataObserver(IMassDataObserver* observer) { m_observer = observer; }

    /// Whether datagrams have arrived whole and wait for their turn. A host that replaces a reader whose
    /// connection broke lets it finish first.
    [[nodiscard]] bool HasPendingDatagrams() const;

    /// Clients of the mirror at this moment.
    [[nodiscard]] int MirrorClientCount() const;

    /// Bytes that wait in this process for mirror clients.
    [[nodiscard]] qint64 MirrorBytesWaiting() const;

signals:
    /// One complete datagram; the receiver of the signal owns it.
    /// Order: all mirror clients have been served before.
    void si_newDatagram(UdpDatagram* datagram);

private slots:
    void SlotReadyRead();
    void SlotNewConnection();
    void SlotConnectionClosed();

private:
    using Bytes = std::unique_ptr<QByteArray>;

    [[nodiscard]] bool hasMore() const;
    void leavePartOfHeader();
    [[nodiscard]] qint64 passOn(const CoarseTimer& timer);
    [[nodiscard]] qint64 cutBlock();
    void makeRoomForOne();
    void sendToMirror(std::span<const Bytes> datagrams);
    [[nodiscard]] bool hasComplete() const { return m_emitted < m_complete.size(); }
    [[nodiscard]] qint64 read(char* to, qint64 size);
    void tellCut(const std::vector<qint64>& waiting);
    void breakStream();
    void emitComplete(const CoarseTimer& timer);
    void continueLater();
    void emitDatagram(Bytes bytes);

    QTcpSocket* m_socket;
    std::unique_ptr<DatagramCutter> m_cutter;
    std::vector<Bytes> m_complete; // a block that was cut and mirrored
    std::size_t m_emitted = 0;     // of it, from the front; the rest waits
    QTimer m_mirrorLook;
    bool m_isDirect = false;    // the socket's descriptor is the connection itself, no proxy's
    bool m_isDry = true;        // nothing has arrived behind the last datagram
    bool m_isReading = false;   // a notification from inside a callback leaves the work to the outer one
    bool m_isContinued = false; // the next turn of the event loop goes on, notifications need not
    std::unique_ptr<MirrorClients> m_mirror;
    IMassDataObserver* m_observer = nullptr;
};
