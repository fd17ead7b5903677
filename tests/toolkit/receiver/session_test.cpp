// SPDX-License-Identifier: MIT
// Sessions over real sockets and files: what is sent arrives in the maps, and the ledger accounts for the
// rest.
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "support/dfscan_receiver.h"
#include "support/ifpan_receiver.h"
#include "support/tcp_receiver.h"
#include "support/zerospan_receiver.h"
#include "toolkit/receiver/session.h"
#include "toolkit/receiver/tcpsource.h"
#include "toolkit/recording/recorder.h"
#include "toolkit/sending/sender.h"
#include <QTemporaryDir>
#include <QUdpSocket>
#include <gmock/gmock.h>

using receiver::Playback;
using receiver::Received;
using receiver::Session;
using support::IfpanTrace;
using support::waitUntil;
using support::ZeroSpanTrace;
using testing::Each;
using testing::SizeIs;

namespace {

unsigned short freePort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress(QHostAddress::LocalHost), 0);
    return probe.localPort();
}

wire::Bytes sequenced(wire::Bytes datagram, unsigned number)
{
    wire::store(datagram.data() + wire::datagram::sequence.offset, static_cast<std::uint16_t>(number),
                wire::ByteOrder::Big);
    return datagram;
}

/// `count` IF panorama datagrams with running numbers, each trace unlike the others.
std::vector<wire::Bytes> panoramas(unsigned count)
{
    std::vector<wire::Bytes> datagrams;
    for (unsigned i = 0; i < count; ++i) {
        IfpanTrace trace;
        trace.span = 100'000;
        trace.levels.assign(1601, static_cast<short>(i));
        trace.stamp = 1'000'000'000LL + i;
        datagrams.push_back(sequenced(trace.bytes(), i));
    }
    return datagrams;
}

void send(sending::Sender& sender, const std::vector<wire::Bytes>& datagrams)
{
    for (const wire::Bytes& datagram : datagrams)
        sender.send(datagram);
}

/// Until the session is connected and its probe has left, so that what is sent reaches the reader.
bool isConnected(Session& session, const sending::TcpSender& sender)
{
    const bool connected =
        waitUntil([&] { return session.source()->facts().state.rfind("connected", 0) == 0; });
    waitUntil([] { return false; }, 50);
    return connected && waitUntil([&] { return sender.clients() == 1; });
}

std::unique_ptr<receiver::Source> sourceOf(const std::string& text, const Playback& playback = {})
{
    return makeSource(receiver::parseSource(text), playback);
}

TEST(SessionValues, HoldEveryValueThatTheProcessorsUse)
{
    const Session session;
    for (const char* const path : {"/VK410/DRVCOMMANDS",
                                   "/VK410/FREQUENCY",
                                   "/VK410/IFPANSPAN",
                                   "/VK410/IFSTEP",
                                   "/VK410/AFC",
                                   "/VK410/SEARCHSCANMODE",
                                   "/VK410/MSCANMODE",
                                   "/VK410/TUNINGWHEELINUSE",
                                   "/VK410/PRIORITYSCAN/ENDOFSCAN",
                                   "/VK410/PRIORITYSCAN/ENABLED",
                                   "/VK410/RXBEARINGMAPPING",
                                   "/VK410/KRT/RXBEARINGMAPPING",
                                   "/VK410/KRT/DF_ENABLED",
                                   "/VK410/RECORDREPLAY/MODE",
                                   "/VK410/FOLLOW",
                                   "/VK410/ZeroSpan/XStart",
                                   "/VK410/ZeroSpan/XStop",
                                   "/VK410/POLARFREQUENCY",
                                   "/VK410/DEMODUALTIONFREQUENCY",
                                   "/VK410/KRT/DFTIMESTAMP",
                                   "/VK410/KRT/SWEEPTIME",
                                   "/VK410/KRT/SPECTRUMAVERAGINGTIME",
                                   "/VK410/KRT/DFALTUSED",
                                   "/VK410/KRT/DFALTWATSONWATT",
                                   "/VK410/KRT/QUALITYTHRESHOLD",
                                   "/VK410/GPSCOMPASS/UsePitchRollBlanking",
                                   "/VK410/GPSCOMPASS/RollThreshold",
                                   "/VK410/GPSCOMPASS/PitchThreshold",
                                   "/VK410/GPSCOMPASS/POSITION/ROLL",
                                   "/VK410/GPSCOMPASS/POSITION/PITCH",
                                   "/INTERFACES/Blanking/Ranges/List",
                                   "/INTERFACES/Blanking/BlankingRangesFrequencyStore"})
        EXPECT_TRUE(values::Tree::Instance()->Find(path)) << path;
}

TEST(SessionUdp, BringsPanoramasAndZeroSpansIntoTheirMaps)
{
    const unsigned short port = freePort();
    Session session;
    session.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
    sending::UdpSender sender{QHostAddress::LocalHost, port};
    send(sender, panoramas(3));
    ZeroSpanTrace zero;
    sender.send(sequenced(zero.bytes(), 3));
    ASSERT_TRUE(waitUntil([&] { return session.ledger().counters().delivered == 4; }));
    EXPECT_THAT(session.values().ifPanorama->GetValues(), testing::AllOf(SizeIs(1601), Each(2)));
    EXPECT_EQ(session.values().zeroSpan->GetValues()[4], 5);
    EXPECT_EQ(session.status().centreHz, 100e6);
    EXPECT_EQ(session.status().spanHz, 100e3);
    EXPECT_EQ(session.status().channels, 1601U);
    EXPECT_EQ(session.status().traces, 3U);
    EXPECT_EQ(session.values().span->GetValue(), 100e3);
    EXPECT_TRUE(session.ledger().counters().balances());
    EXPECT_EQ(session.ledger().counters().losses(), 0U);
}

TEST(SessionUdp, SaysWhatBufferItGotAndWhoHasThePort)
{
    const unsigned short port = freePort();
    Session session;
    session.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
    EXPECT_GT(session.source()->facts().bufferGranted, 0);
    EXPECT_EQ(session.source()->facts().bufferAsked, 8 << 20);
    Session second;
    try {
        second.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
        FAIL() << "two sessions on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(),
                    testing::MatchesRegex("udp port [0-9]+: cannot listen: Address already in use; 'ss "
                                          "-ulpn' shows who has the port.*"));
    }
}

TEST(SessionUdp, CountsWhatTheKernelDrops)
{
    const unsigned short port = freePort();
    Session session;
    session.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
    sending::UdpSender sender{QHostAddress::LocalHost, port};
    // More than the socket's buffer holds before the event loop runs again, and fewer than would fill the
    // queue of the loopback device, whose drops belong to no socket.
    const wire::Bytes large = wire::DatagramWriter{}.cutTo(60'000).build();
    for (int i = 0; i < 600; ++i)
        sender.send(large);
    EXPECT_TRUE(waitUntil([&] {
        return session.status().datagrams + session.ledger().counters().kernelDropped + sender.dropped() ==
               600U;
    }));
    EXPECT_GT(session.ledger().counters().kernelDropped, 0U);
}

TEST(SessionTcp, ReadsReconnectsAndStartsTheSequenceAnew)
{
    auto sender = std::make_unique<sending::TcpSender>(QHostAddress::LocalHost, 0);
    const std::uint16_t port = sender->port();
    Session session;
    std::vector<std::string> said;
    QObject::connect(&session, &Session::said,
                     [&](const QString& text) { said.push_back(text.toStdString()); });
    session.run(sourceOf("tcp://127.0.0.1:" + std::to_string(port)));
    ASSERT_TRUE(isConnected(session, *sender));
    send(*sender, panoramas(3));
    ASSERT_TRUE(waitUntil([&] { return session.status().traces == 3; }));
    sender.reset(); // the receiver goes
    ASSERT_TRUE(
        waitUntil([&] { return session.source()->facts().state.find("next try in") != std::string::npos; }));
    sender = std::make_unique<sending::TcpSender>(QHostAddress::LocalHost, port);
    ASSERT_TRUE(isConnected(session, *sender));
    send(*sender, panoramas(2));
    ASSERT_TRUE(waitUntil([&] { return session.status().traces == 5; }));
    EXPECT_EQ(session.ledger().counters().losses(), 0U);
    EXPECT_THAT(said, testing::Contains(testing::HasSubstr("connection lost; next try in 0.2")));
}

TEST(SessionTcp, DoesNotBlockWhileTheReceiverIsAbsent)
{
    Session session;
    QElapsedTimer timer;
    timer.start();
    session.run(sourceOf("tcp://127.0.0.1:" + std::to_string(freePort())));
    waitUntil([] { return false; }, 300);
    EXPECT_LT(timer.elapsed(), 1'500);
    EXPECT_THAT(session.source()->facts().state, testing::HasSubstr("next try in"));
}

TEST(SessionTcp, MirrorsTheStream)
{
    sending::TcpSender sender{QHostAddress::LocalHost, 0};
    Session session;
    auto source = sourceOf("tcp://127.0.0.1:" + std::to_string(sender.port()));
    const unsigned short mirror = freePort();
    source->startMirror({QHostAddress(QHostAddress::LocalHost), mirror});
    session.run(std::move(source));
    ASSERT_TRUE(waitUntil(
        [&] { return sender.clients() >= 1 && session.source()->facts().state.rfind("connected", 0) == 0; }));
    support::MirrorClient client{mirror};
    const auto& tcp = dynamic_cast<const receiver::TcpSource&>(*session.source());
    ASSERT_TRUE(waitUntil([&] { return tcp.reader()->MirrorClientCount() == 1; }));
    const auto datagrams = panoramas(2);
    send(sender, datagrams);
    ASSERT_TRUE(waitUntil([&] { return client.received.size() == support::joined(datagrams).size(); }));
    EXPECT_EQ(client.received, support::joined(datagrams));
}

TEST(SessionMirror, NeedsATcpSource)
{
    EXPECT_THROW(sourceOf("udp://:5")->startMirror({QHostAddress(QHostAddress::LocalHost), 7}),
                 receiver::BadSource);
}

TEST(SessionLedger, CountsWrongTagsBadMagicAndGaps)
{
    const unsigned short port = freePort();
    Session session;
    session.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
    sending::UdpSender sender{QHostAddress::LocalHost, port};
    sender.send(sequenced(wire::DatagramWriter{}.attribute(101).build(), 1));
    sender.send(sequenced(wire::DatagramWriter{}.attribute(777).build(), 2));
    sender.send(wire::DatagramWriter{}.magic(1).build());
    sender.send(sequenced(wire::DatagramWriter{}.attribute(501).build(), 5));
    ASSERT_TRUE(waitUntil([&] { return session.status().datagrams == 4; }));
    const ledger::Counters c = session.ledger().counters();
    EXPECT_EQ(c.unrouted, 1U);
    EXPECT_EQ(c.unknownTag, 1U);
    EXPECT_EQ(c.invalid, 1U);
    EXPECT_EQ(c.wireLost, 2U);
    EXPECT_EQ(c.notAccepted, 1U);
    EXPECT_TRUE(c.balances());
}

class SessionRecording : public testing::TestWithParam<const char*> {
protected:
    QTemporaryDir folder;
    std::string path() const { return folder.filePath("a.pcap").toStdString(); }
};

TEST_P(SessionRecording, OfTheSameBytesGivesTheSameMapsAsLiveDid)
{
    quint64 liveHash = 0;
    {
        const bool isUdp = std::string(GetParam()) == "udp";
        const unsigned short port = freePort();
        Session live;
        recording::Recorder recorder{path(), {}};
        live.addTap([&](const Received& received) {
            recorder.take(received.datagram->Bytes(), received.datagram->Size(), received.receivedNs,
                          received.origin);
        });
        std::unique_ptr<sending::Sender> sender;
        if (isUdp) {
            live.run(sourceOf("udp://127.0.0.1:" + std::to_string(port)));
            sender = std::make_unique<sending::UdpSender>(QHostAddress(QHostAddress::LocalHost), port);
        } else {
            auto server = std::make_unique<sending::TcpSender>(QHostAddress(QHostAddress::LocalHost), 0);
            live.run(sourceOf("tcp://127.0.0.1:" + std::to_string(server->port())));
            ASSERT_TRUE(isConnected(live, *server));
            sender = std::move(server);
        }
        send(*sender, panoramas(20));
        sender->send(sequenced(ZeroSpanTrace{}.bytes(), 20));
        ASSERT_TRUE(waitUntil([&] { return live.ledger().counters().delivered == 21; }));
        liveHash = live.mapHash();
        EXPECT_EQ(recorder.skipped(), 0U);
    }
    Session again;
    EXPECT_NE(again.mapHash(), liveHash);
    bool finished = false;
    QObject::connect(&again, &Session::finished, [&] { finished = true; });
    again.run(sourceOf(path(), Playback{0}));
    ASSERT_TRUE(waitUntil([&] { return finished; }));
    EXPECT_EQ(again.status().traces, 20U);
    EXPECT_EQ(again.mapHash(), liveHash);
    EXPECT_EQ(again.ledger().counters().losses(), 0U);
}
INSTANTIATE_TEST_SUITE_P(Transports, SessionRecording, testing::Values("udp", "tcp"));

TEST(RecordingPace, IsThatOfTheRecordingTimesTheRate)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath("slow.pcap").toStdString();
    {
        recording::CaptureWriter writer{path};
        for (int i = 0; i < 3; ++i)
            writer.write(panoramas(3)[static_cast<std::size_t>(i)], 1'000'000'000'000LL + i * 200'000'000LL,
                         {});
    }
    Session session;
    bool finished = false;
    QObject::connect(&session, &Session::finished, [&] { finished = true; });
    QElapsedTimer timer;
    timer.start();
    session.run(sourceOf(path, Playback{2.0}));
    ASSERT_TRUE(waitUntil([&] { return finished; }));
    EXPECT_GE(timer.elapsed(), 195);
    EXPECT_LT(timer.elapsed(), 2'000);
}

// Two emitters, one in each of two blocks of a sweep.
std::vector<wire::Bytes> dfSweep()
{
    support::DfTrace first;
    first.azimuth = {0, 450, 0, 0};
    first.quality = {0, 900, 0, 0};
    first.level = {-100, 500, -100, -100};
    first.elevation = {0, 30, 0, 0};
    support::DfTrace second = first;
    second.firstChannel = 4;
    second.azimuth = {0, 0, 0, 2715};
    second.quality = {0, 0, 0, 750};
    second.level = {-100, -100, -100, 321};
    second.flags = support::dfflag::valid | support::dfflag::endOfSweep;
    return {sequenced(first.bytes(), 0), sequenced(second.bytes(), 1)};
}

TEST(SessionDirectionFinding, BringsEmittersToTheirFrequencyAndAzimuthInTheMapWithBothProcessors)
{
    for (const auto df :
         {receiver::SessionOptions::DfProcessor::Scan, receiver::SessionOptions::DfProcessor::Scif}) {
        receiver::SessionOptions options;
        options.df = df;
        options.scanRanges = {support::scanRange(100'000'000, 100'175'000, 25'000, 7)};
        Session session{options};
        for (const wire::Bytes& datagram : dfSweep())
            session.take({std::make_unique<UdpDatagram>(support::received(datagram)), 0, {}});
        const auto& map = *session.values().dfSpectrum;
        std::vector<std::string> emitters;
        for (unsigned id = 0; id < 8; ++id) {
            const values::DFSpectrumSample& sample = *map.FindChannelValue(id);
            if (sample.getQuality() > 0)
                emitters.push_back(std::to_string(static_cast<int>(
                                       map.GetChannelRangeDefinition().ChannelIdToFrequency(id))) +
                                   " " + std::to_string(sample.getAzimuth()) + " " +
                                   std::to_string(sample.getLevel()) + " " +
                                   std::to_string(sample.getElevation()));
        }
        EXPECT_THAT(emitters, testing::ElementsAre("100025000 4500 5000 300", "100175000 27150 3210 0"));
        EXPECT_EQ(map.GetScanCount(), 1U);
        EXPECT_EQ(session.ledger().counters().datagrams, 2U);
    }
}

TEST(SessionDirectionFinding, AcceptsNothingWithoutScanRangesAndFollowsNewOnes)
{
    Session session;
    const auto take = [&session] {
        for (const wire::Bytes& datagram : dfSweep())
            session.take({std::make_unique<UdpDatagram>(support::received(datagram)), 0, {}});
    };
    take();
    EXPECT_EQ(session.values().dfSpectrum->GetScanCount(), 0U);
    session.values().commands->SelectKey(24);
    session.setScanRanges({support::scanRange(100'000'000, 100'175'000, 25'000, 7)});
    take();
    EXPECT_EQ(session.values().dfSpectrum->GetScanCount(), 1U);
}

} // namespace
