// SPDX-License-Identifier: MIT
// User code inside the library's calls, which uses the library itself: each place where it may run, with
// everything that it may do there. The table of docs/re-entrancy.md.
#include "rig.h"
#include "toolkit/receiver/udpsource.h"
#include <QEventLoop>
#include <QUdpSocket>
#include <gmock/gmock.h>
#include <string>
#include <tuple>

using ledger::Counters;
using support::waitUntil;
using survival::Action;
using survival::datagram;
using survival::Rig;

namespace {

// The attributes of a datagram that have been dispatched when the place is reached, and how to get there.
struct Place {
    const char* name;
    unsigned dispatched;
    void (*enter)(Rig& rig, survival::UserObserver& observer, Action action);
};

const Place places[] = {
    {"SetAttribute", 1,
     [](Rig& rig, survival::UserObserver&, Action action) { rig.user.onAttribute = action; }},
    {"UpdateOfALevelMap", 2,
     [](Rig& rig, survival::UserObserver& observer, Action action) {
         rig.values.ifPanorama->AddObserver(&observer);
         observer.onUpdate = action;
     }},
    {"UpdateOfAValue", 2,
     [](Rig& rig, survival::UserObserver& observer, Action action) {
         rig.values.frequency->AddObserver(&observer);
         observer.onUpdate = action;
     }},
    {"SignalTraceData", 2,
     [](Rig& rig, survival::UserObserver&, const Action action) {
         auto once = std::make_shared<survival::Once>();
         *once = action;
         QObject::connect(&rig.ifPanorama, &MdpIfpan::signalTraceData, [once] { (*once)(); });
     }},
    {"UpdateOfAZeroSpanMap", 3,
     [](Rig& rig, survival::UserObserver& observer, Action action) {
         rig.values.zeroSpan->AddObserver(&observer);
         observer.onUpdate = action;
     }},
    {"ReceiveDfScanData", 4,
     [](Rig& rig, survival::UserObserver&, Action action) { rig.userReceiver.onBlock = action; }},
    {"UpdateOfADFSpectrumMap", 4,
     [](Rig& rig, survival::UserObserver& observer, Action action) {
         rig.values.dfSpectrum->AddObserver(&observer);
         observer.onUpdate = action;
     }},
};

// What happened while one datagram came over the connection and user code ran inside.
struct Outcome {
    Rig& rig;
    const Place& place;
    Counters counters; // of that time
    survival::UserProcessor& other;
    survival::UserObserver& late;
};

struct Deed {
    const char* name;
    void (*act)(Rig& rig, survival::UserProcessor& other, survival::UserObserver& late);
    void (*check)(const Outcome& outcome);
};

void expectOneWholeDatagram(const Outcome& outcome)
{
    EXPECT_EQ(outcome.counters.datagrams, 1U);
    EXPECT_EQ(outcome.counters.delivered, 4U);
}

const Deed deeds[] = {
    {"SetsValues",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.values.frequency->SetValue(55e6);
         rig.values.span->SelectKey(5e6);
         rig.values.commands->SelectKey(28);
     },
     expectOneWholeDatagram},
    {"ChangesTheReceiversMode",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) { rig.values.commands->SelectKey(3); },
     [](const Outcome& outcome) {
         // A block of direction finding is taken only in a mode of direction finding.
         const unsigned refused = outcome.place.dispatched < 4 ? 1 : 0;
         EXPECT_EQ(outcome.counters.delivered, 4U - refused);
         EXPECT_EQ(outcome.counters.notAccepted, refused);
     }},
    {"UnregistersProcessors",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) { rig.unregisterAll(); },
     [](const Outcome& outcome) {
         EXPECT_EQ(outcome.counters.delivered, outcome.place.dispatched);
         EXPECT_EQ(outcome.counters.unrouted, 4U - outcome.place.dispatched);
     }},
    {"PutsOtherProcessorsInTheirPlaces",
     [](Rig& rig, survival::UserProcessor& other, survival::UserObserver&) {
         rig.unregisterAll();
         for (const TRACE_TAG tag : {TAG_101, TAG_501, TAG_1801, TAG_5301})
             rig.dispatcher.RegisterTagProcessor(&other, tag, 0);
     },
     [](const Outcome& outcome) {
         EXPECT_EQ(outcome.counters.delivered, 4U);
         EXPECT_EQ(static_cast<unsigned>(outcome.other.attributes), 4U - outcome.place.dispatched);
     }},
    {"RegistersAndUnregistersObservers",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver& late) {
         for (Observable* const subject : {static_cast<Observable*>(rig.values.ifPanorama.get()),
                                           static_cast<Observable*>(rig.values.frequency.get()),
                                           static_cast<Observable*>(rig.values.zeroSpan.get()),
                                           static_cast<Observable*>(rig.values.dfSpectrum.get())}) {
             subject->AddObserver(&late);
             subject->AddObserver(&late);
             subject->RemoveObserver(&late);
             subject->MakeFirstObserver(&late);
         }
     },
     [](const Outcome& outcome) {
         expectOneWholeDatagram(outcome);
         const int before = outcome.late.updates;
         outcome.rig.process(8);
         EXPECT_GT(outcome.late.updates, before);
     }},
    {"ProcessesADatagram",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) { rig.process(77); },
     [](const Outcome& outcome) {
         EXPECT_EQ(outcome.counters.datagrams, 2U);
         EXPECT_EQ(outcome.counters.delivered, 8U);
     }},
    {"FeedsScanRanges",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.df.SlotNewOrModifiedScanRanges(survival::scanRanges(8));
     },
     [](const Outcome& outcome) {
         expectOneWholeDatagram(outcome);
         EXPECT_EQ(outcome.rig.values.dfSpectrum->GetValues().size(), 8U);
     }},
    {"FeedsNoScanRanges",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.df.SlotNewOrModifiedScanRanges({});
     },
     [](const Outcome& outcome) {
         const unsigned refused = outcome.place.dispatched < 4 ? 1 : 0;
         EXPECT_EQ(outcome.counters.delivered, 4U - refused);
         EXPECT_EQ(outcome.rig.values.dfSpectrum->GetValues().size(), 0U);
     }},
    {"ChangesSuppressAndBlankingRanges",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.values.localSuppressRanges->AddRange(100e6, 100.1e6);
         rig.values.blankingRanges->AddRange(99e6, 101e6);
         rig.values.blankingRanges->RemoveRange(rig.values.blankingRanges->GetRanges().begin()->first);
     },
     [](const Outcome& outcome) {
         expectOneWholeDatagram(outcome);
         outcome.rig.process(8);
         EXPECT_EQ(outcome.rig.values.dfSpectrum->FindChannelValue(0)->getValidity(),
                   values::DFSpectrumSample::Validity::Blanked);
         outcome.rig.values.localSuppressRanges->Clear();
     }},
    {"RunsAnEventLoop",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.station->send(support::joined({datagram(4), datagram(5)}));
         QEventLoop nested;
         QTimer::singleShot(30, &nested, &QEventLoop::quit);
         nested.exec();
     },
     [](const Outcome& outcome) {
         ASSERT_TRUE(waitUntil([&] { return outcome.rig.ledger.counters().datagrams == 5; }));
         EXPECT_EQ(outcome.rig.ledger.counters().wireLost, 0U);
         EXPECT_EQ(outcome.rig.ledger.counters().wireReordered, 0U);
         EXPECT_TRUE(outcome.rig.mapsHold(5));
     }},
    {"ClosesTheReader",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) { rig.reader.reset(); },
     [](const Outcome& outcome) {
         expectOneWholeDatagram(outcome);
         EXPECT_TRUE(waitUntil([&] {
             return outcome.rig.station->connection()->state() == QAbstractSocket::UnconnectedState;
         }));
     }},
    {"ClosesTheReadersSocket",
     [](Rig& rig, survival::UserProcessor&, survival::UserObserver&) {
         rig.reader->findChild<QTcpSocket*>()->abort();
     },
     expectOneWholeDatagram},
};

Counters between(const Counters& before, const Counters& after)
{
    Counters difference;
    difference.datagrams = after.datagrams - before.datagrams;
    difference.delivered = after.delivered - before.delivered;
    difference.unrouted = after.unrouted - before.unrouted;
    difference.notAccepted = after.notAccepted - before.notAccepted;
    return difference;
}

TEST(UdpSourceReentrancy, KeepsTheOrderWhenAReceiverRunsAnEventLoop)
{
    constexpr int packets = 100;
    receiver::SourceSpec spec;
    spec.kind = receiver::SourceSpec::Kind::Udp;
    spec.address = QHostAddress(QHostAddress::LocalHost);
    receiver::UdpSource source{spec};
    std::vector<int> taken;
    source.start([&taken](receiver::Received received) {
        if (taken.empty() || taken.back() == packets / 2) {
            QEventLoop nested;
            QTimer::singleShot(30, &nested, &QEventLoop::quit);
            nested.exec();
        }
        taken.push_back(received.datagram->Bytes()[0]);
    });
    QUdpSocket sender;
    std::vector<int> sent;
    for (int i = 0; i < packets; ++i) {
        sender.writeDatagram(QByteArray(20, static_cast<char>(i)), QHostAddress::LocalHost, source.port());
        sent.push_back(i);
    }
    ASSERT_TRUE(waitUntil([&] { return taken.size() == sent.size(); }));
    EXPECT_EQ(taken, sent);
    sender.writeDatagram(QByteArray(20, '!'), QHostAddress::LocalHost, source.port());
    EXPECT_TRUE(waitUntil([&] { return taken.back() == '!'; })); // it is asked again
}

class Reentrancy : public testing::TestWithParam<std::tuple<Place, Deed>> {};

TEST_P(Reentrancy, HasADefinedResultAndLeavesTheNextDatagramRight)
{
    const auto& [place, deed] = GetParam();
    Rig rig;
    survival::UserProcessor other;
    survival::UserObserver late;
    survival::UserObserver observer;
    rig.connectReader();
    rig.station->send(support::joined({datagram(1), datagram(2)}));
    ASSERT_TRUE(waitUntil([&] { return rig.ledger.counters().datagrams == 2; }));
    ASSERT_TRUE(rig.mapsHold(2));

    bool hasRun = false;
    bool hasReturned = false;
    place.enter(rig, observer, [&, act = deed.act] {
        hasRun = true;
        act(rig, other, late);
        hasReturned = true;
    });
    const Counters before = rig.ledger.counters();
    rig.station->send(datagram(3));
    ASSERT_TRUE(waitUntil([&] { return hasReturned && rig.ledger.counters().datagrams > before.datagrams; }));
    EXPECT_TRUE(hasRun);
    deed.check({rig, place, between(before, rig.ledger.counters()), other, late});
    EXPECT_TRUE(rig.ledger.counters().balances());

    rig.unregisterAll();
    rig.registerAll();
    rig.values.commands->SelectKey(23);
    rig.df.SlotNewOrModifiedScanRanges(survival::scanRanges());
    rig.connectReader();
    const quint64 soFar = rig.ledger.counters().datagrams;
    rig.station->send(datagram(9));
    ASSERT_TRUE(waitUntil([&] { return rig.ledger.counters().datagrams == soFar + 1; }));
    EXPECT_TRUE(rig.mapsHold(9));
}

INSTANTIATE_TEST_SUITE_P(Matrix, Reentrancy,
                         testing::Combine(testing::ValuesIn(places), testing::ValuesIn(deeds)),
                         [](const auto& cell) {
                             return std::string(std::get<0>(cell.param).name) + "_" +
                                    std::get<1>(cell.param).name;
                         });

} // namespace
