// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "support/tcp_receiver.h"
#include "support/trace_capture.h"
#include <QEventLoop>
#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <QThread>
#include <QTimer>
#include <gmock/gmock.h>
#include <random>
#include <stdexcept>

using support::joined;
using support::MirrorClient;
using support::numbered;
using support::TcpReceiver;
using support::TraceCapture;
using support::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;

namespace {

/// What a reader serves: keeps the bytes of every datagram.
class Parent : public QObject {
    Q_OBJECT
public:
    std::vector<Bytes> datagrams;
    int connected = 0;
    std::function<void()> onDatagram;

public slots:
    void SlotConnected() { ++connected; }
    void ProcessDatagram(UdpDatagram* datagram)
    {
        const std::unique_ptr<UdpDatagram> owned{datagram};
        const auto* const begin = reinterpret_cast<const unsigned char*>(owned->GetNextAttribute()) - 16;
        datagrams.emplace_back(begin, begin + owned->Size());
        if (onDatagram)
            onDatagram();
    }
};

class Observer : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport&) override {}
    void AttributeDone(const AttributeReport&) override {}
    void AttributeNotAccepted(const char*) override {}
    void StreamBroken(quint32 claimedLength) override { broken.push_back(claimedLength); }
    void MirrorClientCut(qint64 waiting) override { cut.push_back(waiting); }
    std::vector<quint32> broken;
    std::vector<qint64> cut;
};

class TcpReaderTest : public testing::Test {
protected:
    void SetUp() override
    {
        reader = std::make_unique<TcpReader>("127.0.0.1", receiver.port(), &parent);
        reader->SetMassDataObserver(&observer);
        ASSERT_NE(receiver.connection(), nullptr);
    }
    bool datagramsArrive(std::size_t count)
    {
        return waitUntil([&] { return parent.datagrams.size() >= count; });
    }
    /// The port of a mirror of the reader.
    unsigned short mirror()
    {
        const unsigned short port = freePort();
        EXPECT_TRUE(reader->StartMassDataMirror("127.0.0.1", port));
        return port;
    }
    static unsigned short freePort()
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        return probe.serverPort();
    }
    TcpReceiver receiver;
    Parent parent;
    Observer observer;
    TraceCapture traces;
    std::unique_ptr<TcpReader> reader;
};

using TcpReaderStream = TcpReaderTest;
using TcpReaderGuards = TcpReaderTest;
using TcpReaderMirror = TcpReaderTest;
using TcpReaderLife = TcpReaderTest;

TEST_F(TcpReaderLife, TellsItsParentWhenItIsConnected)
{
    EXPECT_EQ(parent.connected, 1);
    EXPECT_EQ(reader->GetLocalAddress(), "127.0.0.1");
    EXPECT_EQ(reader->GetLocalPort(), receiver.connection()->peerPort());
    EXPECT_EQ(reader->parent(), nullptr);
    EXPECT_NE(reader->findChild<QTcpSocket*>(), nullptr);
}

TEST_F(TcpReaderStream, TwoDatagramsInOneNotificationComeInOrder)
{
    receiver.send(joined({numbered(1, 40), numbered(2, 56)}));
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 40), numbered(2, 56)));
}

TEST_F(TcpReaderStream, ADatagramInPiecesOf10And10And20ComesOnce)
{
    const Bytes whole = numbered(1, 40);
    receiver.send(Bytes(whole.begin(), whole.begin() + 10));
    auto* const socket = reader->findChild<QTcpSocket*>();
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 10; }));
    receiver.send(Bytes(whole.begin() + 10, whole.begin() + 20));
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 0; }));
    EXPECT_THAT(parent.datagrams, IsEmpty());
    receiver.send(Bytes(whole.begin() + 20, whole.end()));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_THAT(parent.datagrams, ElementsAre(whole));
}

TEST_F(TcpReaderStream, ADatagramOfItsHeaderAloneIsOne)
{
    receiver.send(joined({numbered(1, 16), numbered(2, 17)}));
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 16), numbered(2, 17)));
}

TEST_F(TcpReaderStream, SingleBytesGiveTheSameDatagrams)
{
    const std::vector<Bytes> sent{numbered(1, 16), numbered(2, 33), numbered(3, 40)};
    receiver.connection()->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    for (const unsigned char byte : joined(sent)) {
        receiver.send({byte});
        QCoreApplication::processEvents();
    }
    ASSERT_TRUE(datagramsArrive(3));
    EXPECT_EQ(parent.datagrams, sent);
}

TEST_F(TcpReaderStream, EveryCutOfThreeDatagramsGivesTheSameDatagrams)
{
    const std::vector<Bytes> sent{numbered(1, 20), numbered(2, 16), numbered(3, 25)};
    const Bytes stream = joined(sent);
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        parent.datagrams.clear();
        receiver.send(Bytes(stream.begin(), stream.begin() + static_cast<long>(cut)));
        waitUntil([&] { return receiver.connection()->bytesToWrite() == 0; });
        QCoreApplication::processEvents();
        receiver.send(Bytes(stream.begin() + static_cast<long>(cut), stream.end()));
        ASSERT_TRUE(datagramsArrive(3)) << cut;
        ASSERT_EQ(parent.datagrams, sent) << cut;
    }
}

TEST_F(TcpReaderStream, ManyMegabytesComeWholeAndInOrder)
{
    constexpr unsigned count = 3'000;
    unsigned next = 0;
    std::size_t bytes = 0;
    parent.onDatagram = [&] {
        ASSERT_EQ(parent.datagrams.back(), numbered(next, 16 + next * 7 % 20'000));
        bytes += parent.datagrams.back().size();
        parent.datagrams.clear();
        ++next;
    };
    for (unsigned i = 0; i < count; ++i)
        receiver.send(numbered(i, 16 + i * 7 % 20'000));
    ASSERT_TRUE(waitUntil([&] { return next == count; }, 60'000));
    EXPECT_GT(bytes, 20'000'000U);
}

TEST_F(TcpReaderStream, ADatagramLargerThanOneNotificationHandlesComesWhole)
{
    const Bytes large = numbered(7, 11'000'000);
    receiver.send(joined({large, numbered(8, 16)}));
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_EQ(parent.datagrams[0], large);
}

TEST_F(TcpReaderStream, WhatCameBeforeTheReceiverWentIsDelivered)
{
    receiver.send(joined({numbered(1, 40), numbered(2, 56), {0x00, 0x0C}}));
    receiver.connection()->disconnectFromHost();
    ASSERT_TRUE(datagramsArrive(2));
    ASSERT_TRUE(waitUntil(
        [&] { return reader->findChild<QTcpSocket*>()->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(parent.datagrams.size(), 2U);
}

TEST_F(TcpReaderStream, FeedsADispatcherAsItsParentWithoutAWarning)
{
    support::RecordingDispatcher library;
    TcpReceiver source;
    static int warnings;
    warnings = 0;
    const auto old =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) { ++warnings; });
    const TcpReader own{"127.0.0.1", source.port(), &library.dispatcher};
    qInstallMessageHandler(old);
    EXPECT_EQ(warnings, 0);
    source.send(wire::DatagramWriter{}.attribute(101).count(3).build());
    ASSERT_TRUE(waitUntil([&] { return !library.recorder.delivered.empty(); }));
    EXPECT_EQ(library.recorder.delivered[0].count, 3U);
}

struct LengthCase {
    const char* name;
    std::uint32_t length;
};
class TcpReaderBadLength : public TcpReaderTest, public testing::WithParamInterface<LengthCase> {};

TEST_P(TcpReaderBadLength, BreaksTheConnectionAfterDeliveringWhatCameBefore)
{
    receiver.send(
        joined({numbered(1, 40), wire::DatagramWriter{}.claimTotalLength(GetParam().length).build()}));
    ASSERT_TRUE(datagramsArrive(1));
    ASSERT_TRUE(waitUntil([&] { return !observer.broken.empty(); }));
    EXPECT_THAT(observer.broken, ElementsAre(GetParam().length));
    EXPECT_EQ(reader->findChild<QTcpSocket*>()->state(), QAbstractSocket::UnconnectedState);
    ASSERT_EQ(traces.records().size(), 1U);
    EXPECT_EQ(traces.records()[0].message,
              QStringLiteral(
                  "Mass-data stream given up: datagram length at byte 12: expected 16 to 67108864, found %1")
                  .arg(GetParam().length));
    EXPECT_EQ(traces.records()[0].file, "devicecontrol/vk410protocol/tcpreader");
}
INSTANTIATE_TEST_SUITE_P(Lengths, TcpReaderBadLength,
                         testing::Values(LengthCase{"Zero", 0}, LengthCase{"One", 1},
                                         LengthCase{"Fifteen", 15},
                                         LengthCase{"AboveTheLimit", (64U << 20U) + 1},
                                         LengthCase{"HighBit", 0x80000000},
                                         LengthCase{"AllOnes", 0xFFFFFFFF}),
                         [](const auto& each) { return each.param.name; });

TEST_F(TcpReaderGuards, TakesALimitOfTheHostsOwn)
{
    reader->SetMaxDatagramSize(100);
    receiver.send(joined({numbered(1, 100), numbered(2, 101)}));
    ASSERT_TRUE(waitUntil([&] { return !observer.broken.empty(); }));
    EXPECT_EQ(parent.datagrams.size(), 1U);
}

TEST_F(TcpReaderGuards, APromisedLengthTakesNoMemory)
{
    // 64 MiB promised, 100 bytes sent: only what arrived is kept. Read through the process's own figures.
    const auto residentPages = [] {
        QFile file(QStringLiteral("/proc/self/statm"));
        file.open(QIODevice::ReadOnly);
        return file.readAll().split(' ').at(0).toLongLong();
    };
    const long long before = residentPages();
    receiver.send(wire::DatagramWriter{}.claimTotalLength(64U << 20U).cutTo(100).build());
    auto* const socket = reader->findChild<QTcpSocket*>();
    ASSERT_TRUE(waitUntil(
        [&] { return receiver.connection()->bytesToWrite() == 0 && socket->bytesAvailable() == 0; }));
    QCoreApplication::processEvents();
    EXPECT_LT(residentPages() - before, (16LL << 20) / 4096);
}

TEST_F(TcpReaderGuards, TracesWhatItsParentThrowsAndTakesTheNextDatagram)
{
    parent.onDatagram = [this] {
        if (parent.datagrams.size() == 1)
            throw std::runtime_error("no room");
        if (parent.datagrams.size() == 2)
            throw 42;
    };
    receiver.send(joined({numbered(1, 40), numbered(2, 40), numbered(3, 40)}));
    ASSERT_TRUE(datagramsArrive(3));
    ASSERT_EQ(traces.records().size(), 2U);
    EXPECT_EQ(traces.records()[0].message, "Exception while handling a datagram: no room");
    EXPECT_EQ(traces.records()[1].message, "Exception while handling a datagram: unknown");
}

TEST_F(TcpReaderGuards, DestroysADatagramThatNobodyTakes)
{
    TcpReceiver source;
    TcpReader unheard{"127.0.0.1", source.port(), nullptr};
    source.send(numbered(1, 40));
    auto* const socket = unheard.findChild<QTcpSocket*>();
    ASSERT_TRUE(waitUntil([&] { return source.connection()->bytesToWrite() == 0; }));
    waitUntil([&] { return socket->bytesAvailable() == 0; }, 100);
    EXPECT_EQ(socket->bytesAvailable(), 0);
}

TEST_F(TcpReaderLife, MayBeDestroyedByAReceiverOfItsSignal)
{
    parent.onDatagram = [this] { reader.reset(); };
    receiver.send(joined({numbered(1, 40), numbered(2, 40), numbered(3, 40)}));
    ASSERT_TRUE(datagramsArrive(1));
    QCoreApplication::processEvents();
    EXPECT_EQ(parent.datagrams.size(), 1U);
}

TEST_F(TcpReaderGuards, DeliversWhatCameBeforeABadLengthToAParentThatLeavesWhenTheConnectionBreaks)
{
    QObject::connect(reader->findChild<QTcpSocket*>(), &QAbstractSocket::disconnected, &parent,
                     [this] { reader->disconnect(&parent); });
    receiver.send(joined({numbered(1, 40), wire::DatagramWriter{}.claimTotalLength(15).build()}));
    ASSERT_TRUE(waitUntil([&] { return !observer.broken.empty(); }));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 40)));
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

TEST(TcpReaderMetaObject, NamesItsSignalAndSlots)
{
    const QMetaObject& meta = TcpReader::staticMetaObject;
    const int signal = meta.indexOfSignal("si_newDatagram(UdpDatagram*)");
    ASSERT_GE(signal, 0);
    EXPECT_EQ(meta.method(signal).parameterNames(), QList<QByteArray>{"datagram"});
    for (const char* const slot : {"SlotReadyRead()", "SlotNewConnection()", "SlotConnectionClosed()"})
        EXPECT_GE(meta.indexOfSlot(slot), 0) << slot;
}

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

TEST_F(TcpReaderMirror, CutsAClientThatNeverReadsAndKeepsMemoryBounded)
{
    const unsigned short port = mirror();
    QTcpSocket silent; // its window fills and stays full
    silent.setReadBufferSize(1);
    silent.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(silent.waitForConnected());
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
    silent.setReadBufferSize(1);
    silent.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(silent.waitForConnected());
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    std::size_t sent = 0;
    while (reader->MirrorBytesWaiting() < (9 << 20)) {
        receiver.send(numbered(1, 1'000'000));
        ASSERT_TRUE(datagramsArrive(++sent));
    }
    QElapsedTimer timer;
    timer.start();
    while (observer.cut.empty() && !timer.hasExpired(25'000)) {
        receiver.send(numbered(2, 100));
        ASSERT_TRUE(datagramsArrive(++sent));
        waitUntil([] { return false; }, 50);
    }
    ASSERT_THAT(observer.cut, testing::SizeIs(1));
    EXPECT_GE(timer.elapsed(), 4'500);
    EXPECT_LT(observer.cut[0], 32 << 20);
}

TEST_F(TcpReaderMirror, DoesNotCutAClientThatReadsMoreSlowlyThanTheStreamComes)
{
    const unsigned short port = mirror();
    QTcpSocket slow;
    slow.setReadBufferSize(64 << 10);
    slow.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(slow.waitForConnected());
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    std::size_t sent = 0;
    while (reader->MirrorBytesWaiting() < (9 << 20)) {
        receiver.send(numbered(1, 500'000));
        ASSERT_TRUE(datagramsArrive(++sent));
    }
    QElapsedTimer timer;
    timer.start();
    while (observer.cut.empty() && !timer.hasExpired(7'000)) {
        receiver.send(numbered(2, 400'000));
        ASSERT_TRUE(datagramsArrive(++sent));
        qint64 got = 0;
        waitUntil([&] { return (got += slow.readAll().size()) >= 300'000; }, 200);
        waitUntil([] { return false; }, 100);
    }
    EXPECT_THAT(observer.cut, IsEmpty());
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

} // namespace

#include "tcpreader_test.moc"
