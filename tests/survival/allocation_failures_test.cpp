// SPDX-License-Identifier: MIT
// Each allocation of a piece of work fails once: the first, the second, and so on until the work gets
// through. No crash, no leak, and what comes afterwards is right.
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "nqbase/nqexception.h"
#include "rig.h"
#include "support/allocation_count.h"
#include "support/trace_capture.h"
#include "toolkit/receiver/session.h"
#include "toolkit/receiver/udpsocket.h"
#include <QMetaMethod>
#include <QUdpSocket>
#include <gmock/gmock.h>
#include <new>

using support::waitUntil;
using survival::datagram;
using survival::Rig;

namespace {

constexpr std::size_t mostAllocations = 20'000;

/// Runs `work` with its `n`-th allocation failing. Result: whether that one was reached. An exception for
/// want of memory may leave the work; none of another kind.
template <typename Work>
bool failsAt(std::size_t n, const Work& work)
{
    support::failAllocation(n);
    try {
        work();
    } catch (const std::bad_alloc&) { // the work's caller is told
    }
    const bool reached = support::allocationHasFailed();
    support::failAllocation(0);
    return reached;
}

/// Does everything for n = 1, 2, ... until the work does not reach its n-th allocation. `round(n)` makes what
/// is needed, lets the work fail, looks at what comes afterwards, and says whether the allocation was
/// reached.
template <typename Round>
void untilNoneFails(const Round& round)
{
    (void)round(mostAllocations); // what is made once per process, is made
    std::size_t n = 1;
    for (; n < mostAllocations; ++n) {
        SCOPED_TRACE(n);
        const std::ptrdiff_t before = support::liveAllocations();
        const bool reached = round(n);
        EXPECT_EQ(support::liveAllocations(), before);
        if (!reached || testing::Test::HasFatalFailure())
            break;
    }
    EXPECT_GT(n, 1U) << "nothing was allocated";
    EXPECT_LT(n, mostAllocations);
}

void process(VK410Processor& dispatcher, const wire::Bytes& bytes)
{
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
}

TEST(AllocationFailures, OfADatagramOnItsWayToAllMapsLeaveTheNextOnesRight)
{
    untilNoneFails([](std::size_t n) {
        Rig rig;
        rig.process(1);
        const bool reached = failsAt(n, [&] { rig.process(2); });
        // The receiver may have been followed in part only: the grid is right again with the first of these.
        rig.process(3);
        rig.process(5);
        EXPECT_TRUE(rig.mapsHold(5));
        EXPECT_TRUE(rig.ledger.counters().balances());
        return reached;
    });
}

TEST(AllocationFailures, OfTheVeryFirstDatagramLeaveTheNextOnesRight)
{
    untilNoneFails([](std::size_t n) {
        Rig rig;
        const bool reached = failsAt(n, [&] { rig.process(1); });
        rig.process(3);
        rig.process(5);
        EXPECT_TRUE(rig.mapsHold(5));
        return reached;
    });
}

TEST(AllocationFailures, OfAWidenedFieldLeakNothing)
{
    const wire::Bytes bytes =
        wire::DatagramWriter{}.attribute(101).selectors(0x20001).count(3).bytes(wire::Bytes(18, 7)).build();
    untilNoneFails([&bytes](std::size_t n) {
        support::RecordingDispatcher library;
        const bool reached = failsAt(n, [&] { process(library.dispatcher, bytes); });
        library.recorder.delivered.clear();
        process(library.dispatcher, bytes);
        EXPECT_EQ(library.recorder.delivered.size(), 1U);
        return reached;
    });
}

TEST(AllocationFailures, OfASelectorErrorLeaveTheNextDatagramRight)
{
    const wire::Bytes bad = wire::DatagramWriter{}.attribute(101).selectors(0x400000).count(1).build();
    const wire::Bytes good =
        wire::DatagramWriter{}.attribute(101).selectors(1).count(1).bytes({1, 2}).build();
    untilNoneFails([&](std::size_t n) {
        const support::TraceCapture traces;
        support::RecordingDispatcher library;
        const bool reached = failsAt(n, [&] { process(library.dispatcher, bad); });
        process(library.dispatcher, good);
        EXPECT_EQ(library.recorder.delivered.size(), 1U);
        return reached;
    });
}

TEST(AllocationFailures, OfAScifScanLeaveTheNextBlockRight)
{
    untilNoneFails([](std::size_t n) {
        Rig rig;
        MdpDFPScanSCIF scif;
        scif.Init(QString::fromLatin1(receiver::devicePath));
        scif.SlotNewOrModifiedScanRanges(survival::scanRanges());
        rig.dispatcher.UnRegisterTagProcessor(TAG_5301, 0);
        rig.dispatcher.RegisterTagProcessor(&scif, TAG_5301, 0);
        rig.process(1);
        const bool reached = failsAt(n, [&] { rig.process(2); });
        rig.process(3);
        rig.process(5);
        EXPECT_TRUE(rig.mapsHold(5));
        return reached;
    });
}

TEST(AllocationFailures, OfScanRangesAreTracedAndLeaveEitherNoJobOrTheWholeOne)
{
    untilNoneFails([](std::size_t n) {
        const support::TraceCapture traces;
        Rig rig;
        rig.process(1);
        ScanRangeContainer ranges = survival::scanRanges(8);
        bool hasThrown = false;
        const bool reached = failsAt(n, [&] {
            try {
                rig.df.SlotNewOrModifiedScanRanges(std::move(ranges));
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        });
        EXPECT_FALSE(hasThrown);
        const quint64 refused = rig.ledger.counters().notAccepted;
        rig.process(2);
        const bool isRefused = rig.ledger.counters().notAccepted > refused;
        const auto samples = rig.values.dfSpectrum->GetValues();
        EXPECT_TRUE(isRefused || (samples.size() == 8 && samples[3].getAzimuth() == 20));
        rig.df.SlotNewOrModifiedScanRanges(survival::scanRanges());
        rig.process(3);
        EXPECT_TRUE(rig.mapsHold(3));
        return reached;
    });
}

TEST(AllocationFailures, OfScifScanRangesAreTracedAndLeaveNoJobOfAnOldGrid)
{
    untilNoneFails([](std::size_t n) {
        const support::TraceCapture traces;
        Rig rig;
        MdpDFPScanSCIF scif;
        scif.Init(QString::fromLatin1(receiver::devicePath));
        scif.SetMassDataObserver(&rig.ledger);
        scif.SlotNewOrModifiedScanRanges(survival::scanRanges());
        rig.dispatcher.UnRegisterTagProcessor(TAG_5301, 0);
        rig.dispatcher.RegisterTagProcessor(&scif, TAG_5301, 0);
        ScanRangeContainer ranges = survival::scanRanges(8);
        bool hasThrown = false;
        const bool reached = failsAt(n, [&] {
            try {
                scif.SlotNewOrModifiedScanRanges(std::move(ranges));
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        });
        EXPECT_FALSE(hasThrown);
        const quint64 refused = rig.ledger.counters().notAccepted;
        rig.process(2);
        EXPECT_TRUE(rig.ledger.counters().notAccepted > refused ||
                    rig.values.dfSpectrum->GetValues().size() == 8);
        scif.SlotNewOrModifiedScanRanges(survival::scanRanges());
        rig.process(3);
        rig.process(5);
        EXPECT_TRUE(rig.mapsHold(5));
        return reached;
    });
}

// Whether what is blanked, and the status list, are what the stores say.
void expectBlankingAsStored(Rig& rig)
{
    using Validity = values::DFSpectrumSample::Validity;
    rig.process(7);
    const bool isSuppressed = !rig.values.localSuppressRanges->GetRanges().empty();
    EXPECT_EQ(rig.values.dfSpectrum->FindChannelValue(0)->getValidity(),
              isSuppressed ? Validity::Blanked : Validity::Valid);
    std::vector<values::RangeId> stored;
    for (const auto& [id, range] : rig.values.blankingRanges->GetRanges())
        stored.push_back(id);
    std::vector<values::RangeId> listed;
    for (const auto& [id, item] : rig.values.blankingStatus->GetItems())
        listed.push_back(id);
    EXPECT_EQ(listed, stored);
}

TEST(AllocationFailures, OfRangeChangesLeaveBlankingAsTheStoresSay)
{
    untilNoneFails([](std::size_t n) {
        Rig rig;
        rig.values.blankingRanges->AddRange(98e6, 99e6);
        rig.process(1);
        const bool reached = failsAt(n, [&] {
            rig.values.localSuppressRanges->AddRange(100e6, 100.02e6, QStringLiteral("pager"));
            rig.values.blankingRanges->AddRange(100e6, 100.02e6);
            rig.values.blankingRanges->RemoveRange(rig.values.blankingRanges->GetRanges().begin()->first);
            rig.process(2);
        });
        expectBlankingAsStored(rig);
        rig.values.blankingRanges->AddRange(101e6, 102e6);
        rig.values.localSuppressRanges->Clear();
        expectBlankingAsStored(rig);
        return reached;
    });
}

TEST(AllocationFailures, InTheValueTreeLeaveEachValueThereOrNot)
{
    untilNoneFails([](std::size_t n) {
        support::FreshValueTree tree;
        survival::UserObserver observer;
        const bool reached = failsAt(n, [&] {
            const auto number = tree->Create<values::ValueNumeric<double>>("/RX", "NUMBER", 1.0);
            const auto list = tree->Create<values::ValueList<int>>("/RX", "LIST");
            const auto choice = tree->Create<values::ValueSelection>(
                "/RX", "CHOICE", std::vector<values::ValueSelection::Entry>{{1, "one"}, {2, "two"}});
            values::ValueObservingPtr<values::ValueNumeric<double>> handle{&observer};
            handle.Bind(QStringLiteral("/RX/NUMBER"));
            number->SetText(QStringLiteral("12.5"));
            list->SetList(std::vector<int>{1, 2, 3});
            choice->SelectText(QStringLiteral("two"));
        });
        for (const char* const name : {"NUMBER", "LIST", "CHOICE"}) {
            const std::shared_ptr<values::ValueBase> found =
                tree->Find(QStringLiteral("/RX/") + QLatin1String(name));
            EXPECT_EQ(found ? found->GetPathName() : QString(),
                      found ? QStringLiteral("/RX/") + QLatin1String(name) : QString());
            if (!found)
                tree->Create<values::ValueNumeric<double>>("/RX", QString::fromLatin1(name), 7.0);
        }
        EXPECT_EQ(tree->GetCount(), 3U);
        if (const auto number = tree->Find<values::ValueNumeric<double>>("/RX/NUMBER")) {
            EXPECT_EQ(number->ObserverCount(), 0U);
            number->SetValue(3.0);
        }
        return reached;
    });
}

TEST(AllocationFailures, OfAnAdditionToTheTreeLeaveAValueWithoutAPathOutsideOfIt)
{
    untilNoneFails([](std::size_t n) {
        support::FreshValueTree tree;
        const auto value = std::make_shared<values::ValueNumeric<double>>(QStringLiteral("NUMBER"), 1.0);
        const bool reached = failsAt(n, [&] { tree->Add(QStringLiteral("/RX"), value); });
        EXPECT_EQ(value->GetPathName().isEmpty(), tree->Find(QStringLiteral("/RX/NUMBER")) == nullptr);
        return reached;
    });
}

TEST(AllocationFailures, OfRegistrationsLeaveNoRouteToWhatIsGone)
{
    untilNoneFails([](std::size_t n) {
        VK410Processor dispatcher{false};
        bool reached = false;
        {
            survival::UserProcessor processor;
            reached = failsAt(n, [&] {
                dispatcher.RegisterTagProcessor(&processor, TAG_101, 0);
                dispatcher.RegisterTagProcessor(&processor, TAG_301, 0);
            });
        }
        process(dispatcher, datagram(1)); // to nobody
        survival::UserProcessor next;
        dispatcher.RegisterTagProcessor(&next, TAG_101, 0);
        process(dispatcher, datagram(2));
        EXPECT_EQ(next.attributes, 1);
        return reached;
    });
}

TEST(AllocationFailures, NeverLeaveASession)
{
    untilNoneFails([](std::size_t n) {
        receiver::Session session;
        const auto take = [&session](unsigned number) {
            session.take({std::make_unique<UdpDatagram>(support::received(datagram(number))), 0, {}});
        };
        take(1);
        receiver::Received received{std::make_unique<UdpDatagram>(support::received(datagram(2))), 0, {}};
        bool hasThrown = false;
        const bool reached = failsAt(n, [&] {
            try {
                session.take(std::move(received));
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        });
        EXPECT_FALSE(hasThrown);
        EXPECT_EQ(session.ledger().counters().mapRejected, reached ? 1U : 0U);
        take(3);
        take(5);
        EXPECT_EQ(session.values().ifPanorama->GetValues()[0], 5);
        EXPECT_EQ(session.ledger().counters().datagrams, 4U);
        return reached;
    });
}

TEST(AllocationFailures, LoseAtMostOneUdpPacketOfABatch)
{
    constexpr unsigned packets = 5;
    untilNoneFails([](std::size_t n) {
        receiver::SourceSpec spec;
        spec.address = QHostAddress(QHostAddress::LocalHost);
        receiver::UdpSocket socket{spec, 1 << 20};
        QUdpSocket sender;
        for (unsigned i = 0; i < packets; ++i)
            sender.writeDatagram(QByteArray(100, static_cast<char>(i)), QHostAddress::LocalHost,
                                 socket.local().port);
        std::vector<char> taken;
        taken.reserve(packets);
        const auto receive = [&] {
            return socket.receive(
                false, [&](const receiver::Packet& packet) { taken.push_back((*packet.bytes)[0]); });
        };
        const bool reached = failsAt(n, receive);
        while (receive() != 0) {
        }
        EXPECT_GE(taken.size(), reached ? packets - 1 : packets);
        EXPECT_TRUE(std::is_sorted(taken.begin(), taken.end()));
        return reached;
    });
}

/// A reader on a connection, and a client of its mirror.
struct Connection {
    Connection()
    {
        reader.StartMassDataMirror("127.0.0.1", 0);
        client.connectToHost(QHostAddress::LocalHost, reader.findChild<QTcpServer*>()->serverPort());
        client.waitForConnected(2'000);
        waitUntil([&] { return reader.MirrorClientCount() == 1; });
        station.connection();
    }
    support::TcpReceiver station;
    support::RecordingDispatcher library;
    TcpReader reader{"127.0.0.1", station.port(), &library.dispatcher};
    QTcpSocket client;
};

const wire::Bytes small = wire::DatagramWriter{}.attribute(101).selectors(1).count(1).bytes({1, 2}).build();

// The reader is told by hand, so that what fails is its own and not the event loop's.
void tell(TcpReader& reader)
{
    static const QMetaMethod slot =
        TcpReader::staticMetaObject.method(TcpReader::staticMetaObject.indexOfSlot("SlotReadyRead()"));
    slot.invoke(&reader, Qt::DirectConnection);
}

// Result: whether the `n`-th allocation was reached.
bool lookAtAStream(std::size_t n)
{
    const support::TraceCapture traces;
    Connection connection;
    wire::Bytes most = support::joined({small, small, small});
    most.insert(most.end(), small.begin(), small.begin() + 10);
    connection.station.send(most);
    bool hasThrown = false;
    const bool reached = failsAt(n, [&] {
        try {
            tell(connection.reader);
        } catch (const std::bad_alloc&) {
            hasThrown = true;
        }
    });
    EXPECT_FALSE(hasThrown);
    connection.station.send(wire::Bytes(small.begin() + 10, small.end()));
    connection.station.send(small);
    const auto* const socket = connection.reader.findChild<QTcpSocket*>();
    const std::vector<support::Delivered>& delivered = connection.library.recorder.delivered;
    const auto isGivenUp = [socket] { return socket->state() == QAbstractSocket::UnconnectedState; };
    // All five; or one less, for which there was no memory; or the stream is given up, and somebody said so.
    EXPECT_TRUE(waitUntil([&] { return delivered.size() >= (reached ? 4U : 5U) || isGivenUp(); }, 3'000))
        << delivered.size();
    EXPECT_TRUE(!isGivenUp() || !traces.records().empty());
    EXPECT_TRUE(reached || !isGivenUp());
    waitUntil([&] { return connection.client.bytesAvailable() == static_cast<qint64>(5 * small.size()); },
              reached ? 20 : 2'000);
    // The client has whole datagrams, in any case.
    EXPECT_EQ(connection.client.bytesAvailable() % static_cast<qint64>(small.size()), 0);
    return reached;
}

TEST(AllocationFailures, OfAStreamWithAMirrorClientNeitherThrowNorBreakTheFraming)
{
    untilNoneFails([](std::size_t n) {
        const bool reached = lookAtAStream(n);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        return reached;
    });
}

} // namespace
