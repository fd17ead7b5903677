// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "tcpreader_fixture.h"
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <array>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using TcpReaderLife = TcpReaderTest;

TEST_F(TcpReaderLife, TellsItsParentWhenItIsConnected)
{
    EXPECT_EQ(parent.connected, 1);
    EXPECT_EQ(reader->GetLocalAddress(), "127.0.0.1");
    EXPECT_EQ(reader->GetLocalPort(), receiver.connection()->peerPort());
    EXPECT_EQ(reader->parent(), nullptr);
    EXPECT_NE(reader->findChild<QTcpSocket*>(), nullptr);
}

TEST_F(TcpReaderLife, MayBeDestroyedByAReceiverOfItsSignal)
{
    parent.onDatagram = [this] { reader.reset(); };
    receiver.send(joined({numbered(1, 40), numbered(2, 40), numbered(3, 40)}));
    ASSERT_TRUE(datagramsArrive(1));
    QCoreApplication::processEvents();
    EXPECT_EQ(parent.datagrams.size(), 1U);
}

TEST_F(TcpReaderLife, ItsSocketOutlivesTheNotificationInWhichTheReaderDies)
{
    const QPointer<QTcpSocket> socket = reader->findChild<QTcpSocket*>();
    parent.onDatagram = [&] {
        reader.reset();
        EXPECT_FALSE(socket.isNull());
    };
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(datagramsArrive(1));
    ASSERT_TRUE(waitUntil([&] { return socket.isNull(); }));
}

TEST_F(TcpReaderLife, MayBeDestroyedByItsObserver)
{
    class Destroying : public Observer {
    public:
        explicit Destroying(std::unique_ptr<TcpReader>& target)
            : m_target(target)
        {}
        void StreamBroken(quint32) override { m_target.reset(); }

    private:
        std::unique_ptr<TcpReader>& m_target;
    } destroying{reader};
    reader->SetMassDataObserver(&destroying);
    receiver.send(wire::DatagramWriter{}.claimTotalLength(15).build());
    ASSERT_TRUE(waitUntil([&] { return reader == nullptr; }));
}

TEST_F(TcpReaderLife, LetsTheEventLoopRunWhileAReceiverIsSlowAndMoreKeepsComing)
{
    parent.onDatagram = [] { QThread::msleep(11); };
    std::vector<Bytes> many;
    for (unsigned i = 0; i < 60; ++i)
        many.push_back(numbered(i, 40));
    int ticks = 0;
    unsigned fed = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        ++ticks;
        if (fed < 30)
            receiver.send(numbered(100 + fed++, 40));
    });
    receiver.send(joined(many));
    ASSERT_TRUE(datagramsArrive(1));
    timer.start(0);
    ASSERT_TRUE(datagramsArrive(90));
    EXPECT_GE(ticks, 60); // about one a datagram: each takes longer than a notification's time
}

TEST_F(TcpReaderLife, KeepsTheOrderWhenAReceiverRunsANestedEventLoop)
{
    const unsigned short port = mirror();
    MirrorClient client{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    std::vector<Bytes> sent;
    for (unsigned i = 0; i < 6; ++i)
        sent.push_back(numbered(i, 40 + i));
    parent.onDatagram = [&] {
        if (parent.datagrams.size() != 1)
            return;
        receiver.send(joined({sent[3], sent[4], sent[5]}));
        QEventLoop nested;
        QTimer::singleShot(50, &nested, &QEventLoop::quit);
        nested.exec();
        EXPECT_EQ(parent.datagrams.size(), 1U);
    };
    receiver.send(joined({sent[0], sent[1], sent[2]}));
    ASSERT_TRUE(datagramsArrive(6));
    EXPECT_EQ(parent.datagrams, sent);
    ASSERT_TRUE(waitUntil([&] { return client.received.size() == joined(sent).size(); }));
    EXPECT_EQ(client.received, joined(sent));
}

TEST_F(TcpReaderLife, LetsTheEventLoopRunWhileAReceiverIsSlow)
{
    parent.onDatagram = [] { QThread::msleep(4); };
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    std::vector<Bytes> many;
    for (unsigned i = 0; i < 40; ++i)
        many.push_back(numbered(i, 40));
    receiver.send(joined(many));
    ASSERT_TRUE(waitUntil([&] { return !parent.datagrams.empty(); }));
    timer.start(0);
    ASSERT_TRUE(datagramsArrive(40));
    EXPECT_GE(ticks, 5);
    EXPECT_EQ(parent.datagrams, many);
}

TEST_F(TcpReaderLife, ServesAParentInAnotherThread)
{
    TcpReceiver source;
    QThread thread;
    support::RecordingDispatcher library;
    library.dispatcher.moveToThread(&thread);
    thread.start();
    {
        const TcpReader own{"127.0.0.1", source.port(), &library.dispatcher};
        source.send(joined({wire::DatagramWriter{}.attribute(101).count(1).build(),
                            wire::DatagramWriter{}.attribute(101).count(2).build()}));
        ASSERT_TRUE(waitUntil([&] { return source.connection()->bytesToWrite() == 0; }));
        waitUntil([] { return false; }, 50);
    }
    QMetaObject::invokeMethod(
        &library.dispatcher, [&thread] { thread.quit(); }, Qt::QueuedConnection);
    thread.wait();
    ASSERT_EQ(library.recorder.delivered.size(), 2U);
    EXPECT_EQ(library.recorder.delivered[1].count, 2U);
}

TEST_F(TcpReaderLife, IsThereWithoutAReceiverToo)
{
    Parent lonely;
    const TcpReader refused{"127.0.0.1", freePort(), &lonely};
    EXPECT_EQ(lonely.connected, 0);
    EXPECT_EQ(refused.GetLocalPort(), 0);
}

TEST_F(TcpReaderLife, OpensItsSocketReadOnly)
{
    EXPECT_EQ(reader->findChild<QTcpSocket*>()->openMode() & QIODevice::ReadWrite, QIODevice::ReadOnly);
}

TEST_F(TcpReaderLife, GoesOnWithoutItsParent)
{
    TcpReceiver source;
    auto owner = std::make_unique<Parent>();
    TcpReader orphan{"127.0.0.1", source.port(), owner.get()};
    ASSERT_NE(source.connection(), nullptr);
    owner.reset();
    Bytes mirrored;
    const unsigned short port = freePort();
    ASSERT_TRUE(orphan.StartMassDataMirror("127.0.0.1", port));
    MirrorClient client{port};
    ASSERT_TRUE(waitUntil([&] { return orphan.MirrorClientCount() == 1; }));
    source.send(joined({numbered(1, 40), numbered(2, 50)}));
    ASSERT_TRUE(waitUntil([&] { return client.received.size() == 90; }));
    EXPECT_FALSE(orphan.HasPendingDatagrams());
}

TEST_F(TcpReaderLife, MayDieWithBytesWaitingForAClient)
{
    const unsigned short port = mirror();
    QTcpSocket silent;
    connectSilently(silent, port);
    sendUntilWaiting(1 << 20);
    reader.reset();
    silent.setReadBufferSize(0);
    ASSERT_TRUE(waitUntil([&] {
        silent.readAll();
        return silent.state() == QAbstractSocket::UnconnectedState;
    }));
}

TEST_F(TcpReaderLife, GivesUpAReceiverThatDoesNotAnswerForThreeSeconds)
{
    // A listener whose queue is full answers nobody.
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(listener, 0), 0);
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size), 0);
    QTcpSocket fills;
    fills.connectToHost(QHostAddress::LocalHost, ntohs(place.sin_port));
    ASSERT_TRUE(fills.waitForConnected(1'000));
    QElapsedTimer timer;
    timer.start();
    const auto late = std::make_unique<TcpReader>("127.0.0.1", ntohs(place.sin_port), &parent);
    EXPECT_GE(timer.elapsed(), 2'900);
    EXPECT_LT(timer.elapsed(), 6'000);
    EXPECT_EQ(late->findChild<QTcpSocket*>()->state(), QAbstractSocket::UnconnectedState);
    EXPECT_EQ(late->GetLocalPort(), 0);
    ::close(listener);
}

TEST_F(TcpReaderLife, MayBeDestroyedInAReceiversOwnEventLoop)
{
    const QPointer<QTcpSocket> socket = reader->findChild<QTcpSocket*>();
    parent.onDatagram = [&] {
        QEventLoop nested;
        QTimer::singleShot(0, &nested, [&] { reader.reset(); });
        QTimer::singleShot(50, &nested, &QEventLoop::quit);
        nested.exec();
        EXPECT_FALSE(socket.isNull()); // it is still at work below this
    };
    receiver.send(joined({numbered(1, 40), numbered(2, 40)}));
    ASSERT_TRUE(datagramsArrive(1));
    ASSERT_TRUE(waitUntil([&] { return socket.isNull(); }));
    EXPECT_EQ(parent.datagrams.size(), 1U);
}

TEST_F(TcpReaderLife, ReadsOnWhenItsHostConnectsTheSocketAgain)
{
    const Bytes half = numbered(1, 40);
    receiver.send(Bytes(half.begin(), half.begin() + 30));
    auto* const socket = reader->findChild<QTcpSocket*>();
    ASSERT_TRUE(waitUntil(
        [&] { return receiver.connection()->bytesToWrite() == 0 && socket->bytesAvailable() == 0; }));
    TcpReceiver other;
    socket->abort();
    socket->connectToHost(QHostAddress::LocalHost, other.port(), QIODevice::ReadOnly);
    ASSERT_TRUE(socket->waitForConnected());
    other.send(numbered(2, 50));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(2, 50)));
}

enum class Moment { Idle, MiddleOfADatagram, DatagramsWaiting };

class TcpReaderDestruction : public testing::TestWithParam<Moment> {};

TEST_P(TcpReaderDestruction, WorksInEveryOrderOfReaderParentReceiverAndClient)
{
    std::array<int, 4> order{0, 1, 2, 3};
    do {
        auto source = std::make_unique<TcpReceiver>();
        auto served = std::make_unique<Parent>();
        auto reader = std::make_unique<TcpReader>("127.0.0.1", source->port(), served.get());
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        const unsigned short port = probe.serverPort();
        probe.close();
        ASSERT_TRUE(reader->StartMassDataMirror("127.0.0.1", port));
        auto client = std::make_unique<MirrorClient>(port);
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
        source->send(numbered(1, 40));
        ASSERT_TRUE(waitUntil([&] { return served->datagrams.size() == 1; }));
        if (GetParam() == Moment::MiddleOfADatagram) {
            const Bytes next = numbered(2, 40);
            source->send(Bytes(next.begin(), next.begin() + 30));
            auto* const socket = reader->findChild<QTcpSocket*>();
            waitUntil(
                [&] { return source->connection()->bytesToWrite() == 0 && socket->bytesAvailable() == 0; });
        }
        if (GetParam() == Moment::DatagramsWaiting) {
            served->onDatagram = [] { QThread::msleep(11); };
            std::vector<Bytes> many;
            for (unsigned i = 2; i < 22; ++i)
                many.push_back(numbered(i, 40));
            source->send(joined(many));
            ASSERT_TRUE(waitUntil([&] { return served->datagrams.size() >= 2; }));
            ASSERT_TRUE(reader->HasPendingDatagrams());
        }
        const auto isOver = [](const QTcpSocket* socket) {
            return socket->state() == QAbstractSocket::UnconnectedState;
        };
        for (const int who : order) {
            if (who == 0) {
                reader.reset();
                EXPECT_TRUE(!client || waitUntil([&] { return isOver(&client->socket()); }));
            } else if (who == 1) {
                served.reset();
            } else if (who == 2) {
                source.reset();
                EXPECT_TRUE(!reader || waitUntil([&] { return isOver(reader->findChild<QTcpSocket*>()); }));
            } else {
                client.reset();
                EXPECT_TRUE(!reader || waitUntil([&] { return reader->MirrorClientCount() == 0; }));
            }
            QCoreApplication::processEvents();
        }
    } while (std::next_permutation(order.begin(), order.end()));
}
INSTANTIATE_TEST_SUITE_P(Moments, TcpReaderDestruction,
                         testing::Values(Moment::Idle, Moment::MiddleOfADatagram, Moment::DatagramsWaiting));

} // namespace
