// SPDX-License-Identifier: MIT
// Reader, dispatcher, processor, filler with its map, mirror client, and the application's own UDP socket die
// in every order, in the middle of everything. Nobody may call or touch what is gone: the address checks see
// it.
#include "rig.h"
#include <QUdpSocket>
#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <numeric>
#include <string>
#include <sys/socket.h>

using support::waitUntil;

namespace {

enum class Moment { Idle, MiddleOfADatagram, DatagramQueued, ClientBehind };

enum Part : unsigned { Reader, Dispatcher, Processor, FillerAndMap, Client, SocketOwner };
constexpr std::size_t parts = 6;

/// The application's UDP socket: what it receives goes to the dispatcher over a queued connection.
class Packets {
public:
    explicit Packets(VK410Processor& dispatcher)
    {
        m_socket.bind(QHostAddress(QHostAddress::LocalHost), 0);
        QObject::connect(&m_socket, &QIODevice::readyRead, &dispatcher, [this, &dispatcher] {
            while (m_socket.hasPendingDatagrams())
                queue(dispatcher, take());
        });
    }

    [[nodiscard]] quint16 port() const { return m_socket.localPort(); }

    static void queue(VK410Processor& dispatcher, std::unique_ptr<UdpDatagram> datagram)
    {
        QMetaObject::invokeMethod(&dispatcher, "ProcessDatagram", Qt::QueuedConnection,
                                  Q_ARG(UdpDatagram*, datagram.release()));
    }

private:
    std::unique_ptr<UdpDatagram> take()
    {
        auto bytes = std::make_unique<QByteArray>(static_cast<int>(m_socket.pendingDatagramSize()), '\0');
        m_socket.readDatagram(bytes->data(), bytes->size());
        return std::make_unique<UdpDatagram>(std::move(bytes));
    }

    QUdpSocket m_socket;
};

/// A reception of six objects that die one by one. What must outlive what: the map is written by the filler
/// that a processor shares, so that the processor goes out of the dispatcher before its map dies.
class Reception {
public:
    Reception()
    {
        filler->installGrid();
        dispatcher->RegisterTagProcessor(processor.get(), TAG_1801, 0);
        reader->StartMassDataMirror("127.0.0.1", 0);
        mirrorPort = reader->findChild<QTcpServer*>()->serverPort();
    }

    void connectClient()
    {
        client = std::make_unique<QTcpSocket>();
        client->setReadBufferSize(1);
        client->connectToHost(QHostAddress::LocalHost, mirrorPort);
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == 1; }));
    }

    void enter(Moment moment)
    {
        switch (moment) {
        case Moment::Idle:
            break;
        case Moment::MiddleOfADatagram: {
            const wire::Bytes whole = trace(9);
            const auto middle = whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2);
            station.send(wire::Bytes(whole.begin(), middle));
            m_rest.assign(middle, whole.end());
            auto* const socket = reader->findChild<QTcpSocket*>();
            ASSERT_TRUE(waitUntil(
                [&] { return station.connection()->bytesToWrite() == 0 && socket->bytesAvailable() == 0; }));
            break;
        }
        case Moment::DatagramQueued:
            Packets::queue(*dispatcher, std::make_unique<UdpDatagram>(support::received(trace(9))));
            break;
        case Moment::ClientBehind:
            fillClient();
            break;
        }
    }

    void destroy(unsigned part)
    {
        switch (part) {
        case Reader:
            reader.reset();
            break;
        case Dispatcher:
            // What waits in a queued connection would belong to nobody.
            QCoreApplication::sendPostedEvents(dispatcher.get());
            dispatcher.reset();
            break;
        case Processor:
            processor.reset();
            break;
        case FillerAndMap:
            if (dispatcher)
                dispatcher->UnRegisterTagProcessor(TAG_1801, 0);
            filler.reset();
            break;
        case Client:
            client.reset();
            break;
        case SocketOwner:
            packets.reset();
            break;
        default:
            FAIL();
        }
    }

    /// Something comes over both ways. Result: whether the traces got into the map, as far as all is there.
    bool worksAsFarAsItIsThere(unsigned number)
    {
        const bool isWhole = dispatcher && processor && filler;
        if (reader) {
            station.send(std::exchange(m_rest, {}));
            station.send(trace(number));
        }
        if (packets) {
            const wire::Bytes packet = trace(number + 1);
            QUdpSocket sender;
            sender.writeDatagram(reinterpret_cast<const char*>(packet.data()),
                                 static_cast<qint64>(packet.size()), QHostAddress::LocalHost,
                                 packets->port());
        }
        QCoreApplication::processEvents();
        if (!isWhole || (!reader && !packets))
            return true;
        return waitUntil([&] {
            return filler->map.GetScanCount() >= 1 && (filler->holds(number) || filler->holds(number + 1));
        });
    }

    static wire::Bytes trace(unsigned number, std::size_t size = 5)
    {
        support::ZeroSpanTrace trace;
        trace.levels.assign(size, static_cast<short>(number));
        return trace.bytes();
    }

private:
    struct FillerWithMap {
        void installGrid()
        {
            values::ChannelRangeDefinition grid;
            grid.AddRangeDefinition(0, 5, 1'000, 100, QString());
            filler->SetRangeDefinition(grid, 10);
        }
        [[nodiscard]] bool holds(unsigned number) const
        {
            return !map.GetValues().empty() && map.GetValues().front() == static_cast<short>(number);
        }
        values::LevelMap map;
        std::shared_ptr<FastLevelMapFiller> filler = std::make_shared<FastLevelMapFiller>(&map, nullptr);
    };

    // So much that some of it waits here, though small buffers keep that little.
    void fillClient()
    {
        auto* const server = reader->findChild<QTcpServer*>();
        server->findChild<QTcpSocket*>()->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 4'096);
        const wire::Bytes large = wire::DatagramWriter{}.cutTo(300'000).build();
        ASSERT_TRUE(waitUntil([&] {
            station.send(large);
            QCoreApplication::processEvents();
            return reader->MirrorBytesWaiting() > 0;
        }));
        ASSERT_TRUE(waitUntil([&] { return station.connection()->bytesToWrite() == 0; }));
    }

public:
    support::FreshValueTree tree;
    support::TcpReceiver station;
    std::unique_ptr<FillerWithMap> filler = std::make_unique<FillerWithMap>();
    std::unique_ptr<VK410Processor> dispatcher = std::make_unique<VK410Processor>(false);
    std::unique_ptr<MdpZeroSpan> processor = std::make_unique<MdpZeroSpan>(filler->filler, nullptr);
    std::unique_ptr<TcpReader> reader =
        std::make_unique<TcpReader>("127.0.0.1", station.port(), dispatcher.get());
    std::unique_ptr<Packets> packets = std::make_unique<Packets>(*dispatcher);
    std::unique_ptr<QTcpSocket> client;
    unsigned short mirrorPort = 0;

private:
    wire::Bytes m_rest; // of a datagram that has begun
};

std::string nameOf(Moment moment)
{
    switch (moment) {
    case Moment::Idle:
        return "Idle";
    case Moment::MiddleOfADatagram:
        return "MiddleOfADatagram";
    case Moment::DatagramQueued:
        return "DatagramQueued";
    case Moment::ClientBehind:
        return "ClientBehind";
    }
    return {};
}

class DestructionOrders : public testing::TestWithParam<Moment> {};

TEST_P(DestructionOrders, AllSevenHundredAndTwentyLeaveNothingDangling)
{
    std::array<unsigned, parts> order{};
    std::iota(order.begin(), order.end(), 0U);
    do {
        SCOPED_TRACE(testing::PrintToString(order));
        Reception reception;
        ASSERT_NO_FATAL_FAILURE(reception.connectClient());
        ASSERT_TRUE(reception.worksAsFarAsItIsThere(1));
        ASSERT_NO_FATAL_FAILURE(reception.enter(GetParam()));
        for (const unsigned part : order) {
            reception.destroy(part);
            ASSERT_TRUE(reception.worksAsFarAsItIsThere(10 + 2 * part));
            QCoreApplication::processEvents();
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

INSTANTIATE_TEST_SUITE_P(Moments, DestructionOrders,
                         testing::Values(Moment::Idle, Moment::MiddleOfADatagram, Moment::DatagramQueued,
                                         Moment::ClientBehind),
                         [](const auto& row) { return nameOf(row.param); });

} // namespace
