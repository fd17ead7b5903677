// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "tcpreader_fixture.h"
#include <QFile>
#include <QMetaMethod>
#include <stdexcept>

namespace {

using TcpReaderStream = TcpReaderTest;
using TcpReaderGuards = TcpReaderTest;

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
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 10; })); // not consumed
    receiver.send(Bytes(whole.begin() + 10, whole.begin() + 20));
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 0; }));
    EXPECT_THAT(parent.datagrams, IsEmpty());
    receiver.send(Bytes(whole.begin() + 20, whole.end()));
    ASSERT_TRUE(datagramsArrive(1));
    EXPECT_THAT(parent.datagrams, ElementsAre(whole));
}

TEST_F(TcpReaderStream, ConsumesNothingOfAHeaderThatIsNotWholeBehindADatagramEither)
{
    const Bytes next = numbered(2, 40);
    receiver.send(joined({numbered(1, 40), Bytes(next.begin(), next.begin() + 15)}));
    auto* const socket = reader->findChild<QTcpSocket*>();
    ASSERT_TRUE(datagramsArrive(1));
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 15; }));
    receiver.send(Bytes(next.begin() + 15, next.end()));
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 40), next));
    EXPECT_EQ(socket->bytesAvailable(), 0);
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

TEST_F(TcpReaderStream, EveryPairOfCutsOfThreeDatagramsGivesTheSameDatagramsAlsoToAMirrorClient)
{
    const std::vector<Bytes> sent{numbered(1, 20), numbered(2, 16), numbered(3, 25)};
    const Bytes stream = joined(sent);
    const MirrorClient client{mirror()};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    receiver.connection()->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    Bytes mirrored;
    const auto at = [&stream](std::size_t place) {
        return stream.begin() + static_cast<std::ptrdiff_t>(place);
    };
    for (std::size_t first = 1; first < stream.size(); ++first) {
        for (std::size_t second = first + 1; second < stream.size(); ++second) {
            for (const Bytes& piece :
                 {Bytes(at(0), at(first)), Bytes(at(first), at(second)), Bytes(at(second), stream.end())}) {
                receiver.send(piece);
                QCoreApplication::processEvents(); // so that each piece is a notification of its own
            }
            ASSERT_TRUE(datagramsArrive(3)) << first << " " << second;
            ASSERT_EQ(parent.datagrams, sent) << first << " " << second;
            parent.datagrams.clear();
            mirrored.insert(mirrored.end(), stream.begin(), stream.end());
        }
    }
    ASSERT_TRUE(waitUntil([&] { return client.received.size() == mirrored.size(); }));
    EXPECT_EQ(client.received, mirrored);
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

TEST_F(TcpReaderGuards, DeliversWhatCameBeforeABadLengthToAParentThatLeavesWhenTheConnectionBreaks)
{
    QObject::connect(reader->findChild<QTcpSocket*>(), &QAbstractSocket::disconnected, &parent,
                     [this] { reader->disconnect(&parent); });
    receiver.send(joined({numbered(1, 40), wire::DatagramWriter{}.claimTotalLength(15).build()}));
    ASSERT_TRUE(waitUntil([&] { return !observer.broken.empty(); }));
    EXPECT_THAT(parent.datagrams, ElementsAre(numbered(1, 40)));
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

TEST_F(TcpReaderGuards, TakesADatagramOfExactlyTheLimit)
{
    reader->SetMaxDatagramSize(100);
    receiver.send(joined({numbered(1, 100), numbered(2, 99)}));
    ASSERT_TRUE(datagramsArrive(2));
    EXPECT_THAT(observer.broken, IsEmpty());
}

TEST_F(TcpReaderStream, OneNotificationCutsAboutFourMegabytes)
{
    // Seen from the first datagram's receiver: what was cut with it has left the socket for the mirror.
    constexpr unsigned size = 100'000;
    constexpr unsigned count = 120;
    const unsigned short port = mirror();
    MirrorClient client{port};
    ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    std::vector<std::size_t> cut;
    std::size_t seen = 0;
    parent.onDatagram = [&] {
        // A block begins where the client was served with more than had been served before.
        while (client.socket().waitForReadyRead(0)) {
        }
        const std::size_t served =
            client.received.size() + static_cast<std::size_t>(reader->MirrorBytesWaiting());
        if (served > seen)
            cut.push_back(served - seen);
        seen = std::max(seen, served);
    };
    for (unsigned i = 0; i < count; ++i)
        receiver.connection()->write(
            QByteArray(reinterpret_cast<const char*>(numbered(i, size).data()), size));
    ASSERT_TRUE(datagramsArrive(count));
    ASSERT_GT(cut.size(), 2U);
    for (const std::size_t block : cut)
        EXPECT_LE(block, (4U << 20U) + size);
}

} // namespace
