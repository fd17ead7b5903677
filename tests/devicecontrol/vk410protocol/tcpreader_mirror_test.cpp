// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "tcpreader_fixture.h"
#include <QThread>
#include <QTimer>

namespace {

using TcpReaderMirror = TcpReaderTest;

/// Reads far too little for the stream, but something leaves all the time: however long a machine takes, it
/// never stalls.
class SlowClient {
public:
    explicit SlowClient(unsigned short port)
    {
        m_socket.setReadBufferSize(64 << 10);
        QObject::connect(&m_reading, &QTimer::timeout, &m_socket, [this] { m_socket.readAll(); });
        m_reading.start(50);
        m_socket.connectToHost(QHostAddress::LocalHost, port);
    }

private:
    QTcpSocket m_socket;
    QTimer m_reading;
};

TEST_F(TcpReaderMirror, GivesEveryClientTheBytesBeforeTheDatagramIsEmitted)
{
    const unsigned short port = mirror();
    MirrorClient first{port};
    MirrorClient second{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
    bool served = false;
    parent.onDatagram = [&] {
        served = first.socket().waitForReadyRead(1'000) && second.socket().waitForReadyRead(1'000);
    };
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_TRUE(served);
    EXPECT_EQ(first.received, numbered(1, 40));
    EXPECT_EQ(second.received, numbered(1, 40));
}

TEST_F(TcpReaderMirror, ForwardsTheBytesAsTheyCameThoughTheyAreConvertedInPlaceAfterwards)
{
    // The dispatcher swaps in place while bytes may still wait for a client that reads late.
    TcpReceiver source;
    support::RecordingDispatcher library;
    TcpReader own{"127.0.0.1", source.port(), &library.dispatcher};
    const unsigned short port = freePort();
    ASSERT_TRUE(own.StartMassDataMirror("127.0.0.1", port));
    QTcpSocket late;
    late.setReadBufferSize(1'000);
    late.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(late.waitForConnected());
    ASSERT_TRUE(waitUntil([&] { return own.MirrorClientCount() == 1; }));
    Bytes sent;
    for (unsigned i = 0; i < 150; ++i) {
        const Bytes one = wire::DatagramWriter{}
                              .sequence(static_cast<std::uint16_t>(i))
                              .attribute(101)
                              .selectors(1)
                              .count(30'000)
                              .bytes(Bytes(60'000, static_cast<unsigned char>(i)))
                              .build();
        sent.insert(sent.end(), one.begin(), one.end());
    }
    for (std::size_t i = 60; i < sent.size(); i += 2)
        sent[i] = static_cast<unsigned char>(i); // unlike its neighbour, so that a swap would show
    for (unsigned i = 0; i < 150; ++i) {         // headers whole again
        const Bytes header = wire::DatagramWriter{}
                                 .sequence(static_cast<std::uint16_t>(i))
                                 .attribute(101)
                                 .selectors(1)
                                 .count(30'000)
                                 .bytes(Bytes(60'000))
                                 .build();
        std::copy_n(header.begin(), 28, sent.begin() + i * 60'028);
    }
    source.send(sent);
    ASSERT_TRUE(waitUntil([&] { return library.recorder.delivered.size() == 150; }));
    EXPECT_GT(own.MirrorBytesWaiting(), 0);
    late.setReadBufferSize(0);
    Bytes received;
    ASSERT_TRUE(waitUntil([&] {
        const QByteArray part = late.readAll();
        received.insert(received.end(), part.begin(), part.end());
        return received.size() == sent.size();
    }));
    EXPECT_EQ(received, sent);
}

TEST_F(TcpReaderMirror, AClientThatComesInTheMiddleOfADatagramGetsWholeOnesFromTheNextOn)
{
    const unsigned short port = mirror();
    const Bytes first = numbered(1, 40);
    receiver.send(Bytes(first.begin(), first.begin() + 30));
    ASSERT_TRUE(waitUntil([&] { return receiver.connection()->bytesToWrite() == 0; }));
    QCoreApplication::processEvents();
    MirrorClient client{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    receiver.send(joined({Bytes(first.begin() + 30, first.end()), numbered(2, 56)}));
    ASSERT_TRUE(waitUntil([&] { return client.received.size() >= 96; }));
    EXPECT_EQ(client.received, joined({first, numbered(2, 56)}));
}

TEST_F(TcpReaderMirror, ForgetsAClientThatGoesAndKeepsTheOthers)
{
    const unsigned short port = mirror();
    MirrorClient stays{port};
    {
        MirrorClient goes{port};
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
        receiver.send(numbered(1, 40));
        ASSERT_TRUE(datagramsArrive(1));
    }
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    receiver.send(numbered(2, 40));
    ASSERT_TRUE(waitUntil([&] { return stays.received.size() == 80; }));
}

TEST_F(TcpReaderMirror, SurvivesClientsThatResetWhileTheyAreServed)
{
    const unsigned short port = mirror();
    MirrorClient stays{port};
    for (unsigned round = 0; round < 20; ++round) {
        auto goes = std::make_unique<MirrorClient>(port);
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
        receiver.send(joined({numbered(round, 40'000), numbered(round, 50'000)}));
        goes->socket().abort(); // unread bytes: a reset
        ASSERT_TRUE(datagramsArrive(2 * (round + 1)));
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    }
    ASSERT_TRUE(waitUntil([&] { return stays.received.size() == 20 * 90'000U; }));
}

TEST_F(TcpReaderMirror, CutsAClientForWhichMoreThan32MiBWaitAndKeepsMemoryBounded)
{
    const unsigned short port = mirror();
    const SlowClient slow{port}; // only what waits counts
    MirrorClient healthy{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
    const Bytes datagram = numbered(1, 500'000);
    qint64 mostWaiting = 0;
    std::size_t sent = 0;
    while (observer.cut.empty() && sent < 300) {
        receiver.send(datagram);
        ++sent;
        ASSERT_TRUE(datagramsArrive(sent));
        mostWaiting = std::max(mostWaiting, reader->MirrorBytesWaiting());
    }
    ASSERT_THAT(observer.cut, testing::SizeIs(1));
    EXPECT_GT(observer.cut[0], 32 << 20);
    EXPECT_LT(mostWaiting, 40 << 20);
    EXPECT_EQ(reader->MirrorClientCount(), 1);
    ASSERT_EQ(traces.records().size(), 1U);
    EXPECT_TRUE(traces.records()[0].message.startsWith("Mirror client cut: "));
    ASSERT_TRUE(waitUntil([&] { return healthy.received.size() == sent * datagram.size(); }));
}

TEST_F(TcpReaderMirror, CutsAClientOfWhichNothingLeavesForFiveSeconds)
{
    const unsigned short port = mirror();
    QTcpSocket silent;
    connectSilently(silent, port);
    QElapsedTimer timer; // before the first bytes wait: nothing has left for no longer than that
    timer.start();
    std::size_t sent = sendUntilWaiting(9 << 20);
    while (observer.cut.empty() && !timer.hasExpired(25'000)) {
        receiver.send(numbered(2, 100));
        ASSERT_TRUE(datagramsArrive(++sent));
        waitUntil([] { return false; }, 50);
    }
    ASSERT_THAT(observer.cut, testing::SizeIs(1));
    EXPECT_GE(timer.elapsed(), 5'000);
    EXPECT_LT(observer.cut[0], 32 << 20);
}

TEST_F(TcpReaderMirror, DoesNotCutAClientThatReadsMoreSlowlyThanTheStreamComes)
{
    const unsigned short port = mirror();
    const SlowClient slow{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    std::size_t sent = sendUntilWaiting(9 << 20);
    QElapsedTimer timer;
    timer.start();
    while (observer.cut.empty() && !timer.hasExpired(7'000)) {
        receiver.send(numbered(2, 200'000));
        ASSERT_TRUE(datagramsArrive(++sent));
        waitUntil([] { return false; }, 100);
    }
    EXPECT_THAT(observer.cut, IsEmpty());
    EXPECT_GT(reader->MirrorBytesWaiting(), 9 << 20);
}

TEST_F(TcpReaderMirror, ListensInASecondPlaceToo)
{
    const unsigned short first = mirror();
    const unsigned short second = mirror();
    MirrorClient a{first};
    MirrorClient b{second};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
}

TEST_F(TcpReaderMirror, ThrowsAwayWhatAClientSays)
{
    const unsigned short port = mirror();
    MirrorClient talker{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    talker.socket().write(QByteArray(3'000'000, 'x'));
    ASSERT_TRUE(waitUntil([&] { return talker.socket().bytesToWrite() == 0; }));
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(waitUntil([&] { return talker.received.size() == 40; }));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 40)));
}

TEST_F(TcpReaderMirror, SaysWhenItCannotListen)
{
    QTcpServer taken;
    taken.listen(QHostAddress::LocalHost);
    EXPECT_FALSE(reader->StartMassDataMirror("127.0.0.1", taken.serverPort()));
    EXPECT_TRUE(reader->StartMassDataMirror("127.0.0.1", freePort()));
}

TEST_F(TcpReaderMirror, EndsItsClientsWhenItDies)
{
    const unsigned short port = mirror();
    MirrorClient client{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(datagramsArrive(1));
    reader.reset();
    ASSERT_TRUE(waitUntil([&] { return client.socket().state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(client.received, numbered(1, 40));
}

TEST_F(TcpReaderMirror, ServesClientsInTheOrderOfTheirArrival)
{
    const unsigned short port = mirror();
    MirrorClient first{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    MirrorClient second{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
    MirrorClient third{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 3; }));
    // Writes that have to wait are told by each socket of the mirror as they are made.
    const QList<QTcpSocket*> served = reader->findChild<QTcpServer*>()->findChildren<QTcpSocket*>();
    ASSERT_EQ(served.size(), 3);
    QStringList order;
    for (QTcpSocket* const socket : served) {
        socket->write("x"); // something waits, so that what follows takes Qt's way, which speaks
        QObject::connect(socket, &QIODevice::bytesWritten, [&order, socket] {
            const QString who = QString::number(socket->peerPort());
            if (!order.contains(who))
                order.append(who);
        });
    }
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_EQ(order, (QStringList{QString::number(first.socket().localPort()),
                                  QString::number(second.socket().localPort()),
                                  QString::number(third.socket().localPort())}));
}

TEST_F(TcpReaderMirror, LetsTwoOfTheLargestDatagramsWait)
{
    const unsigned short port = mirror();
    const SlowClient slow{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    const Bytes large = numbered(1, 30'000'000); // two are more than the 32 MiB that may wait otherwise
    receiver.send(large);
    ASSERT_TRUE(datagramsArrive(1));
    receiver.send(large);
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_GT(reader->MirrorBytesWaiting(), 32 << 20);
    EXPECT_THAT(observer.cut, IsEmpty());
    EXPECT_EQ(reader->MirrorClientCount(), 1);
    receiver.send(large);
    ASSERT_TRUE(datagramsArrive(3));
    EXPECT_THAT(observer.cut, testing::SizeIs(1));
}

TEST_F(TcpReaderMirror, DoesNotTakeAClientForStalledBecauseTheEventLoopStoodStill)
{
    const unsigned short port = mirror();
    QTcpSocket client;
    connectSilently(client, port);
    std::size_t sent = sendUntilWaiting(9 << 20);
    // For longer than a stalled client has, nothing runs in this thread; the client has room again meanwhile.
    client.setReadBufferSize(0);
    client.readAll();
    QThread::msleep(5'500);
    for (int i = 0; i < 20; ++i) {
        client.waitForReadyRead(10);
        client.readAll();
    }
    receiver.send(numbered(2, 100));
    ASSERT_TRUE(datagramsArrive(++sent));
    EXPECT_THAT(observer.cut, IsEmpty());
}

TEST_F(TcpReaderMirror, SurvivesTheDestructionOfItsServerAndOfServedSockets)
{
    const unsigned short port = mirror();
    MirrorClient first{port};
    MirrorClient second{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 2; }));
    delete reader->findChild<QTcpServer*>()->findChildren<QTcpSocket*>().first();
    EXPECT_EQ(reader->MirrorClientCount(), 1);
    receiver.send(numbered(1, 40));
    ASSERT_TRUE(datagramsArrive(1));
    delete reader->findChild<QTcpServer*>();
    EXPECT_EQ(reader->MirrorClientCount(), 0);
    EXPECT_EQ(reader->MirrorBytesWaiting(), 0);
    receiver.send(numbered(2, 40));
    ASSERT_TRUE(datagramsArrive(2));
}

TEST_F(TcpReaderMirror, GivesAClientForWhichNothingWaitedItsTimeForALargeDatagram)
{
    const unsigned short port = mirror();
    QTcpSocket client;
    connectSilently(client, port);
    QThread::msleep(5'200); // longer than a stalled client has
    receiver.send(numbered(1, 20'000'000));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_GT(reader->MirrorBytesWaiting(), 8 << 20);
    EXPECT_THAT(observer.cut, IsEmpty());
}

TEST_F(TcpReaderMirror, CutsAStalledClientWhileTheStreamBringsNothing)
{
    const unsigned short port = mirror();
    QTcpSocket silent;
    connectSilently(silent, port);
    QElapsedTimer timer;
    timer.start();
    sendUntilWaiting(9 << 20);
    EXPECT_TRUE(waitUntil([&] { return !observer.cut.empty(); }, 20'000));
    EXPECT_GE(timer.elapsed(), 5'000);
}

} // namespace
