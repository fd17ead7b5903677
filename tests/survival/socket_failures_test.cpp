// SPDX-License-Identifier: MIT
// Each system call on a socket fails once with each usual error, or moves less than it could. Nothing hangs,
// crashes or leaks; either all datagrams arrive, or the connection has ended and a new one works.
#include "socket_faults.h"
#include "support/delivered.h"
#include "support/tcp_receiver.h"
#include "support/trace_capture.h"
#include "toolkit/receiver/udpsource.h"
#include <QUdpSocket>
#include <cerrno>
#include <gmock/gmock.h>
#include <set>

using socketfaults::Call;
using socketfaults::Fault;
using support::numbered;
using support::waitUntil;

namespace {

constexpr int usualErrors[] = {EINTR, EAGAIN, ECONNRESET, EPIPE, ENOBUFS, ENOMEM, ETIMEDOUT, EBADF};
constexpr int shortCount = 0;
constexpr std::size_t datagrams = 6;

// Calls of one kind, each with each error, the first to the third call.
std::vector<Fault> allOf(Call call, bool withShortCount)
{
    std::vector<Fault> faults;
    for (int which = 1; which <= 3; ++which) {
        for (const int error : usualErrors)
            faults.push_back({call, error, which});
        if (withShortCount)
            faults.push_back({call, shortCount, which});
    }
    return faults;
}

// What a reader serves.
class Taker : public QObject {
public:
    std::vector<wire::Bytes> taken;
    void take(UdpDatagram* datagram)
    {
        const std::unique_ptr<UdpDatagram> owned{datagram};
        const auto* const begin = owned->Bytes();
        taken.emplace_back(begin, begin + owned->Size());
    }
};

/// A station, a reader of it, and a client of the reader's mirror.
struct Connection {
    Connection()
    {
        QObject::connect(reader.get(), &TcpReader::si_newDatagram, &taker, &Taker::take);
        reader->StartMassDataMirror("127.0.0.1", 0);
    }
    void connectClient()
    {
        client.connectToHost(QHostAddress::LocalHost, server().serverPort());
        client.waitForConnected(2'000);
        waitUntil([this] { return reader->MirrorClientCount() == 1; }, 3'000);
    }
    [[nodiscard]] QTcpServer& server() const { return *reader->findChild<QTcpServer*>(); }
    [[nodiscard]] QTcpSocket& socket() const
    {
        return *reader->findChild<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    }
    [[nodiscard]] std::vector<int> descriptors() const
    {
        std::vector<int> found{static_cast<int>(socket().socketDescriptor()),
                               static_cast<int>(server().socketDescriptor())};
        for (const QTcpSocket* const each : server().findChildren<QTcpSocket*>())
            found.push_back(static_cast<int>(each->socketDescriptor()));
        return found;
    }
    [[nodiscard]] bool isOver() const { return socket().state() == QAbstractSocket::UnconnectedState; }

    support::TcpReceiver station;
    std::unique_ptr<TcpReader> reader = std::make_unique<TcpReader>("127.0.0.1", station.port(), nullptr);
    Taker taker;
    QTcpSocket client;
};

std::vector<wire::Bytes> someDatagrams()
{
    std::vector<wire::Bytes> all;
    for (unsigned i = 0; i < datagrams; ++i)
        all.push_back(numbered(i, 40 + 700 * i));
    return all;
}

void expectANewConnectionWorks()
{
    Connection again;
    again.connectClient();
    again.station.send(numbered(9, 40));
    EXPECT_TRUE(waitUntil([&] { return again.taker.taken.size() == 1; }));
    EXPECT_TRUE(waitUntil([&] { return again.client.bytesAvailable() == 40; }));
}

class StreamSocketFailures : public testing::TestWithParam<Fault> {};

TEST_P(StreamSocketFailures, LoseNothingOrEndTheConnection)
{
    const support::TraceCapture traces;
    Connection connection;
    connection.connectClient();
    const std::vector<wire::Bytes> sent = someDatagrams();
    socketfaults::arm(GetParam(), connection.descriptors());
    // In two parts that end in the middle of a datagram, and one by one.
    wire::Bytes first = support::joined({sent[0], sent[1], sent[2]});
    const wire::Bytes rest(first.end() - 100, first.end());
    first.resize(first.size() - 100);
    for (const wire::Bytes& part : {first, rest, sent[3], sent[4], sent[5]}) {
        connection.station.send(part);
        QCoreApplication::processEvents();
    }
    EXPECT_TRUE(
        waitUntil([&] { return connection.taker.taken.size() == datagrams || connection.isOver(); }, 5'000));
    socketfaults::disarm();
    // Whatever came, came whole and in order.
    ASSERT_LE(connection.taker.taken.size(), datagrams);
    for (std::size_t i = 0; i < connection.taker.taken.size(); ++i)
        EXPECT_EQ(connection.taker.taken[i], sent[i]) << i;
    const wire::Bytes all = support::joined(sent);
    if (connection.taker.taken.size() == datagrams && connection.reader->MirrorClientCount() == 1) {
        EXPECT_TRUE(waitUntil(
            [&] { return connection.client.bytesAvailable() == static_cast<qint64>(all.size()); }, 5'000));
    }
    const QByteArray mirrored = connection.client.readAll();
    EXPECT_TRUE(std::equal(mirrored.begin(), mirrored.end(), all.begin(),
                           [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }));
    expectANewConnectionWorks();
}

INSTANTIATE_TEST_SUITE_P(Read, StreamSocketFailures, testing::ValuesIn(allOf(Call::Read, true)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Recv, StreamSocketFailures, testing::ValuesIn(allOf(Call::Recv, true)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Send, StreamSocketFailures, testing::ValuesIn(allOf(Call::Send, true)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Sendmsg, StreamSocketFailures, testing::ValuesIn(allOf(Call::Sendmsg, true)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Poll, StreamSocketFailures,
                         testing::Values(Fault{Call::Poll, EINTR}, Fault{Call::Poll, EINTR, 3}),
                         [](const auto& row) { return nameOf(row.param); });

class ConnectionFailures : public testing::TestWithParam<Fault> {};

TEST_P(ConnectionFailures, LeaveAReaderThatCanBeReplaced)
{
    const support::TraceCapture traces;
    socketfaults::arm(GetParam(), {});
    {
        Connection connection;
        socketfaults::disarm();
        connection.connectClient();
        // Where the look for the connection's success failed, Qt has connected a second time.
        if (GetParam().call == Call::Setsockopt) {
            connection.station.send(numbered(1, 40));
            EXPECT_TRUE(waitUntil([&] { return connection.taker.taken.size() == 1; }, 5'000));
        }
    }
    expectANewConnectionWorks();
}

INSTANTIATE_TEST_SUITE_P(Connect, ConnectionFailures, testing::ValuesIn(allOf(Call::Connect, false)),
                         [](const auto& row) { return nameOf(row.param); });
INSTANTIATE_TEST_SUITE_P(Setsockopt, ConnectionFailures, testing::ValuesIn(allOf(Call::Setsockopt, false)),
                         [](const auto& row) { return nameOf(row.param); });

class AcceptFailures : public testing::TestWithParam<Fault> {};

TEST_P(AcceptFailures, AreOverAfterASecond)
{
    Connection connection;
    socketfaults::arm(GetParam(), connection.descriptors());
    connection.connectClient();
    EXPECT_TRUE(socketfaults::disarm());
    EXPECT_EQ(connection.reader->MirrorClientCount(), 1);
    connection.station.send(numbered(1, 40));
    EXPECT_TRUE(waitUntil([&] { return connection.client.bytesAvailable() == 40; }, 5'000));
}

INSTANTIATE_TEST_SUITE_P(Accept, AcceptFailures,
                         testing::Values(Fault{Call::Accept, EINTR}, Fault{Call::Accept, EAGAIN},
                                         Fault{Call::Accept, ECONNABORTED}, Fault{Call::Accept, EMFILE},
                                         Fault{Call::Accept, ENOBUFS}, Fault{Call::Accept, ENOMEM}),
                         [](const auto& row) { return nameOf(row.param); });

class PacketSocketFailures : public testing::TestWithParam<Fault> {};

TEST_P(PacketSocketFailures, LoseNothing)
{
    receiver::SourceSpec spec;
    spec.kind = receiver::SourceSpec::Kind::Udp;
    spec.address = QHostAddress(QHostAddress::LocalHost);
    receiver::UdpSource source{spec};
    std::vector<wire::Bytes> taken;
    source.start([&taken](receiver::Received received) {
        taken.emplace_back(received.datagram->Bytes(),
                           received.datagram->Bytes() + received.datagram->Size());
    });
    const std::vector<wire::Bytes> sent = someDatagrams();
    QUdpSocket sender;
    socketfaults::arm(GetParam(), {});
    for (const wire::Bytes& one : sent) {
        sender.writeDatagram(reinterpret_cast<const char*>(one.data()), static_cast<qint64>(one.size()),
                             QHostAddress::LocalHost, source.port());
        if (GetParam().which > 1)
            QCoreApplication::processEvents();
    }
    EXPECT_TRUE(waitUntil([&] { return taken.size() == datagrams; }, 5'000));
    EXPECT_TRUE(socketfaults::disarm());
    EXPECT_EQ(taken, sent);
}

INSTANTIATE_TEST_SUITE_P(Recvmmsg, PacketSocketFailures, testing::ValuesIn(allOf(Call::Recvmmsg, true)),
                         [](const auto& row) { return nameOf(row.param); });

} // namespace
