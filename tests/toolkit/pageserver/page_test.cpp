// SPDX-License-Identifier: MIT
// The page of a session over real sockets: what viewers get when they join, later, and when they misbehave.
#include "viewer_client.h"
#include <QTcpSocket>
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Levels = std::vector<short>;

const char everyArray[] = R"({"command":"subscribe","arrays":["live","max","min","average","hold"]})";

bool isNamed(const nlohmann::json& value, const char* path)
{
    return value.at("path") == path;
}

class Page : public testing::Test {
protected:
    // The first trace only brings the grid.
    void receiveAll(const std::vector<Levels>& traces)
    {
        paged.receive(Levels(traces.front().size(), 0));
        for (const Levels& levels : traces)
            paged.receive(levels);
    }
    static bool waitForFrames(const Viewer& viewer, std::size_t count)
    {
        return waitUntil([&] { return viewer.frames.size() >= count; });
    }
    static bool waitForMessage(const Viewer& viewer, const std::string& type)
    {
        return waitUntil([&] { return !viewer.newest(type).empty(); });
    }
    int skippedByAll()
    {
        const nlohmann::json lines = paged.json("/api/ledger").at("ledger");
        for (const nlohmann::json& line : lines) {
            if (line.at("metric") == "viewer_skipped")
                return line.at("total");
        }
        return -1;
    }
    PagedSession paged;
};

TEST_F(Page, GreetsAViewerAndTellsItEverythingOnce)
{
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForMessage(viewer, "ranges"));
    ASSERT_THAT(viewer.messages, SizeIs(testing::Ge(4U)));
    EXPECT_EQ(viewer.messages[0].at("type"), "hello");
    EXPECT_EQ(viewer.messages[0].at("version"), 1);
    EXPECT_EQ(viewer.messages[0].at("program"), "vk410 test");
    EXPECT_EQ(viewer.messages[0].at("demo"), false);
    EXPECT_EQ(viewer.messages[0].at("source"), "by hand");
    EXPECT_EQ(viewer.messages[1].at("type"), "status");
    EXPECT_EQ(viewer.messages[1].at("state"), "waiting");
    EXPECT_TRUE(viewer.messages[1].at("ageMs").is_null());
    EXPECT_EQ(viewer.messages[2].at("type"), "values");
    EXPECT_GT(viewer.messages[2].at("values").size(), 30U);
    EXPECT_EQ(viewer.messages[3].at("type"), "ranges");
    EXPECT_THAT(viewer.frames, IsEmpty());
}

TEST_F(Page, ShowsAViewerWhoComesLateTheTrueHolds)
{
    receiveAll({{100, 7, 50}, {900, 5, values::noLevel}, {300, 6, 70}});
    Viewer viewer{paged.page->port()};
    viewer.send(everyArray);
    QObject::connect(&viewer.socket, &QWebSocket::connected, [&] { viewer.send(everyArray); });
    ASSERT_TRUE(
        waitUntil([&] { return !viewer.frames.empty() && viewer.frames.back().at<quint16>(6) == 31; }));
    const ViewedFrame& frame = viewer.frames.back();
    EXPECT_EQ(frame.number(), 3U);
    EXPECT_EQ(frame.at<qint64>(16), 4'000'000'000);
    EXPECT_EQ(frame.at<quint32>(44), 3U);
    EXPECT_THAT(frame.array(0), ElementsAre(300, 6, 70));
    EXPECT_THAT(frame.array(1), ElementsAre(900, 7, 70));
    EXPECT_THAT(frame.array(2), ElementsAre(100, 5, 50));
    EXPECT_THAT(frame.array(3), ElementsAre(433, 6, 60));
    EXPECT_THAT(frame.array(4), ElementsAre(900, 7, 70));
}

TEST_F(Page, SendsTracesAsTheyComeAndCountsFramesForEachViewer)
{
    receiveAll({{1, 2, 3}});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    paged.receive({4, 5, 6});
    ASSERT_TRUE(waitForFrames(viewer, 2));
    EXPECT_THAT(viewer.frames[1].array(0), ElementsAre(4, 5, 6));
    EXPECT_EQ(viewer.frames[0].sequence(), 0U);
    EXPECT_EQ(viewer.frames[1].sequence(), 1U);
    EXPECT_EQ(viewer.frames[1].number(), viewer.frames[0].number() + 1);
    EXPECT_EQ(viewer.frames[1].skipped(), 0U);
    EXPECT_EQ(viewer.frames[1].at<quint32>(72), viewer.frames[0].at<quint32>(72));
}

TEST_F(Page, TellsOfNoLossWhereThereIsNone)
{
    receiveAll({{1, 2, 3}});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    for (int i = 0; i < 600; ++i) { // the low byte of the sequence number wraps twice
        paged.receive({4, 5, 6});
        QCoreApplication::processEvents();
    }
    ASSERT_TRUE(waitUntil([&] { return viewer.frames.back().number() == 601; }));
    for (const ViewedFrame& frame : viewer.frames)
        EXPECT_EQ(frame.lost(), 0U) << frame.number();
}

TEST_F(Page, TellsWithAFrameHowManyDatagramsWereLostBeforeIt)
{
    receiveAll({{1, 2, 3}});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    paged.lose();
    paged.lose();
    paged.receive({4, 5, 6});
    ASSERT_TRUE(waitForFrames(viewer, 2));
    EXPECT_EQ(viewer.frames[1].lost(), 2U);
}

TEST_F(Page, HoldsAViewerToTheRateThatItWantsAndCountsTheRest)
{
    receiveAll({{0, 0, 0}});
    QElapsedTimer sinceJoining;
    sinceJoining.start();
    Viewer viewer{paged.page->port()};
    QObject::connect(&viewer.socket, &QWebSocket::connected,
                     [&] { viewer.send(R"({"command":"subscribe","maxPerSecond":5})"); });
    ASSERT_TRUE(waitForFrames(viewer, 1));
    short last = 0;
    QElapsedTimer sinceStart;
    sinceStart.start();
    while (sinceStart.elapsed() < 1'000) {
        paged.receive({++last, 0, 0});
        waitUntil([] { return false; }, 5);
    }
    ASSERT_TRUE(waitUntil([&] { return viewer.frames.back().array(0)[0] == last; }));
    // The joining one, one at once, and one each fifth of a second (0.95 of it, to be even) of the time that
    // this machine took.
    constexpr qint64 shortestInterval = 190;
    EXPECT_LE(viewer.frames.size(), 3 + static_cast<std::size_t>(sinceJoining.elapsed() / shortestInterval));
    EXPECT_GE(viewer.frames.size(), 4U);
    EXPECT_EQ(viewer.frames.back().skipped(),
              viewer.frames.back().number() - viewer.frames[0].number() - (viewer.frames.size() - 1));
}

TEST_F(Page, SendsOnlyStreamsThatAreWanted)
{
    Viewer viewer{paged.page->port()};
    QObject::connect(&viewer.socket, &QWebSocket::connected,
                     [&] { viewer.send(R"({"command":"subscribe","streams":["df"]})"); });
    ASSERT_TRUE(waitForMessage(viewer, "status"));
    receiveAll({{1, 2, 3}});
    const std::size_t before = viewer.all("status").size();
    ASSERT_TRUE(waitUntil([&] { return viewer.all("status").size() > before + 1; }));
    EXPECT_THAT(viewer.frames, IsEmpty());
    viewer.send(R"({"command":"subscribe"})");
    ASSERT_TRUE(waitForFrames(viewer, 1));
    EXPECT_EQ(viewer.frames[0].skipped(), 0U);
}

TEST_F(Page, OfAViewerThatNeverReadsHoldsNoMoreThanASocketFullAndTheOthersNotAtAll)
{
    const Levels levels(30'000, 1); // 60 kB a frame
    receiveAll({levels});
    QTcpSocket stalled;
    stalled.setReadBufferSize(1'024);
    stalled.connectToHost(QHostAddress::LocalHost, paged.page->port());
    stalled.write("GET /stream HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                  "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    ASSERT_TRUE(waitUntil([&] { return viewer.newest("status").value("viewers", 0) == 2; }));
    constexpr int frames = 200; // 12 MB
    for (int i = 0; i < frames; ++i) {
        const std::size_t before = viewer.frames.size();
        paged.receive(levels);
        ASSERT_TRUE(waitUntil([&] { return viewer.frames.size() > before; })) << i;
    }
    EXPECT_EQ(viewer.frames.back().skipped(), 0U);
    // What the stalled one has cost: what fits into its socket, less than a tenth of what came.
    const auto waiting = [&] { return paged.json("/api/status").at("waitingBytes").get<int>(); };
    EXPECT_GT(waiting(), 0);
    EXPECT_LT(waiting(), 512 * 1024);
    ASSERT_TRUE(waitUntil([&] { return skippedByAll() > frames - 100; })); // the others fit into the sockets
}

TEST_F(Page, AddsAndRemovesRangesForEverybody)
{
    Viewer viewer{paged.page->port()};
    Viewer other{paged.page->port()};
    ASSERT_TRUE(waitForMessage(viewer, "ranges") && waitForMessage(other, "ranges"));
    viewer.send(R"({"command":"addRange","kind":"suppress","fromHz":1e8,"toHz":1.001e8,"name":"pa<ger"})");
    viewer.send(R"({"command":"addRange","kind":"blanking","fromHz":2e8,"toHz":3e8})");
    ASSERT_TRUE(waitUntil([&] { return other.newest("ranges").at("blanking").size() == 1; }));
    const nlohmann::json suppress = other.newest("ranges").at("suppress").at(0);
    EXPECT_EQ(suppress.at("list"), "local");
    EXPECT_EQ(suppress.at("fromHz"), 1e8);
    EXPECT_EQ(suppress.at("toHz"), 1.001e8);
    EXPECT_EQ(suppress.at("name"), "pa<ger");
    EXPECT_EQ(other.newest("ranges").at("blanking").at(0).at("blanked"), false);
    const receiver::ReceiverValues& values = paged.session.values();
    EXPECT_EQ(values.localSuppressRanges->GetCount(), 1U);
    EXPECT_EQ(values.blankingRanges->GetRanges().begin()->second.GetRangeStop(), 3e8);
    viewer.send(R"({"command":"removeRange","kind":"suppress","id":)" + suppress.at("id").dump() + "}");
    ASSERT_TRUE(waitUntil([&] { return other.newest("ranges").at("suppress").empty(); }));
    EXPECT_EQ(values.localSuppressRanges->GetCount(), 0U);
    EXPECT_THAT(viewer.all("error"), IsEmpty());
}

TEST_F(Page, AnswersCommandsThatCannotBeDoneToTheOneWhoAsked)
{
    Viewer viewer{paged.page->port()};
    Viewer other{paged.page->port()};
    ASSERT_TRUE(waitForMessage(viewer, "status") && waitForMessage(other, "status"));
    viewer.send("no json");
    viewer.send(R"({"command":"removeRange","kind":"suppress","id":7})");
    viewer.send(R"({"command":"playback","action":"pause"})");
    viewer.send(R"({"command":"faults","drop":0.5})");
    ASSERT_TRUE(waitUntil([&] { return viewer.all("error").size() == 4; }));
    std::vector<std::string> texts;
    for (const nlohmann::json& error : viewer.all("error"))
        texts.push_back(error.at("command").get<std::string>() + ": " + error.at("text").get<std::string>());
    EXPECT_THAT(texts,
                ElementsAre(": expected a JSON object like {\"command\":\"resetHolds\"}",
                            "removeRange: id: expected one of the ranges that are there, found 7",
                            "playback: expected a recording as source, found a live one; 'vk410 monitor "
                            "FILE' plays one",
                            "faults: expected a demo, found another source; 'vk410 demo' takes faults"));
    EXPECT_THAT(other.all("error"), IsEmpty());
    EXPECT_TRUE(viewer.isConnected());
}

TEST_F(Page, ResetsHoldsForEverybody)
{
    receiveAll({{900, 9}});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    viewer.send(everyArray);
    viewer.send(R"({"command":"resetHolds"})");
    viewer.send("end"); // answered behind the others
    ASSERT_TRUE(waitForMessage(viewer, "error"));
    paged.receive({1, 2});
    ASSERT_TRUE(waitUntil([&] { return viewer.frames.back().number() == 2; }));
    EXPECT_THAT(viewer.frames.back().array(1), ElementsAre(1, 2));
}

TEST_F(Page, SaysWhenTheConnectionIsThereAndNothingComes)
{
    paged.receive({1, 2});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitUntil([&] { return viewer.newest("status").value("state", "") == "live"; }));
    ASSERT_TRUE(waitUntil([&] { return viewer.newest("status").value("state", "") == "silent"; }));
    EXPECT_GT(viewer.newest("status").at("ageMs"), 3'000);
}

TEST_F(Page, TellsChangedValuesOnly)
{
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForMessage(viewer, "ranges"));
    viewer.messages.clear();
    paged.session.values().frequency->SetValue(123e6);
    ASSERT_TRUE(waitForMessage(viewer, "values"));
    const nlohmann::json values = viewer.newest("values").at("values");
    ASSERT_EQ(values.size(), 1U);
    EXPECT_TRUE(isNamed(values[0], "/VK410/FREQUENCY"));
    EXPECT_EQ(values[0].at("value"), "123000000");
    EXPECT_EQ(values[0].at("unit"), "Hz");
}

TEST_F(Page, ComesBackAfterItsServerWasRestarted)
{
    receiveAll({{900, 9}});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForFrames(viewer, 1));
    paged.stopServing();
    ASSERT_TRUE(waitUntil([&] { return !viewer.isConnected(); }));
    paged.receive({1, 2});
    paged.serve();
    paged.receive({3, 4});
    Viewer again{paged.page->port()};
    ASSERT_TRUE(waitForFrames(again, 1));
    EXPECT_THAT(again.frames[0].array(0), ElementsAre(3, 4));
}

TEST_F(Page, HasAnApiOfJson)
{
    receiveAll({{900, 9, 1}});
    ASSERT_TRUE(waitUntil([&] { return paged.json("/api/status").value("channels", 0) == 3; }));
    const nlohmann::json status = paged.json("/api/status");
    EXPECT_EQ(status.at("type"), "status");
    EXPECT_EQ(status.at("source"), "by hand");
    EXPECT_EQ(status.at("centreHz"), 100e6);
    EXPECT_EQ(status.at("streams").at("panorama"), 1);
    const nlohmann::json ledger = paged.json("/api/ledger").at("ledger");
    EXPECT_EQ(ledger.at(0).at("metric"), "datagrams");
    EXPECT_EQ(ledger.at(0).at("total"), 2);
    const nlohmann::json grids = paged.json("/api/grids").at("grids");
    ASSERT_EQ(grids.size(), 1U);
    EXPECT_EQ(grids[0].at("stream"), "panorama");
    EXPECT_EQ(grids[0].at("scale"), 0.1);
    EXPECT_EQ(grids[0].at("ranges").at(0).at("count"), 3);
    EXPECT_EQ(grids[0].at("ranges").at(0).at("startHz"), 99.95e6);
    EXPECT_EQ(grids[0].at("ranges").at(0).at("stepHz"), 50'000);
    bool hasFrequency = false;
    const nlohmann::json values = paged.json("/api/values").at("values");
    for (const nlohmann::json& value : values)
        hasFrequency = hasFrequency || isNamed(value, "/VK410/FREQUENCY");
    EXPECT_TRUE(hasFrequency);
    EXPECT_THAT(paged.get("/metrics"), HasSubstr("\nvk410_datagrams_total 2\n"));
}

TEST_F(Page, IsServedWithAPolicyThatLetsNothingElseIn)
{
    const std::string answer = paged.get("/");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"));
    EXPECT_THAT(answer,
                HasSubstr("\r\nContent-Security-Policy: default-src 'self'; connect-src 'self' "
                          "ws://localhost; img-src 'self' blob: data:; object-src 'none'; base-uri 'none'; "
                          "form-action 'none'; frame-ancestors 'none'\r\n"));
    EXPECT_THAT(answer, Not(HasSubstr("unsafe")));
    EXPECT_THAT(answer, HasSubstr("\r\nX-Content-Type-Options: nosniff\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nCache-Control: no-cache\r\n"));
}

TEST_F(Page, IsCompressedForThoseWhoUnderstandIt)
{
    const std::string answer = paged.get("/", "Accept-Encoding: deflate, gzip\r\n");
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Encoding: gzip\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\n\r\n\x1f\x8b"));
    EXPECT_THAT(paged.get("/"), Not(HasSubstr("Content-Encoding")));
}

TEST_F(Page, ServesNothingButItsFiles)
{
    for (const char* const path :
         {"/../CMakeLists.txt", "/etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/js/../../x", "//etc/passwd",
          "/api", "/api/", "/api/nothing", "/index.html/", "/favicon.ico"})
        EXPECT_THAT(paged.get(path), StartsWith("HTTP/1.1 404 Not Found\r\n")) << path;
}

TEST_F(Page, RefusesStreamsToPagesFromElsewhere)
{
    const std::string handshake = "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                                  "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n";
    EXPECT_THAT(paged.get("/stream", handshake + "Origin: http://example.com\r\n"),
                StartsWith("HTTP/1.1 403 Forbidden\r\n"));
    EXPECT_THAT(paged.get("/stream", handshake + "Origin: http://localhost:1\r\n"),
                StartsWith("HTTP/1.1 403 Forbidden\r\n"));
    EXPECT_THAT(paged.get("/stream"), StartsWith("HTTP/1.1 426 Upgrade Required\r\n"));
}

TEST_F(Page, EndsConnectionsThatSendMoreThanACommand)
{
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitUntil([&] { return viewer.isConnected(); }));
    viewer.send(std::string(65'537, ' '));
    EXPECT_TRUE(waitUntil([&] { return !viewer.isConnected(); }));
}

TEST_F(Page, TakesAtMost64Viewers)
{
    Viewer viewer{paged.page->port()};
    // So many that keep and parse what they are told would take their time.
    std::vector<std::unique_ptr<QWebSocket>> others;
    for (int i = 0; i < 63; ++i) {
        others.push_back(std::make_unique<QWebSocket>());
        others.back()->open(streamUrl(paged.page->port()));
    }
    const auto viewersAre = [&](int count) {
        return waitUntil([&] { return viewer.newest("status").value("viewers", 0) == count; });
    };
    ASSERT_TRUE(viewersAre(64));
    Viewer late{paged.page->port()};
    ASSERT_TRUE(waitUntil([&] { return late.socket.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_THAT(paged.get("/stream"), StartsWith("HTTP/1.1 503 Service Unavailable\r\n"));
    others.pop_back();
    ASSERT_TRUE(viewersAre(63));
    Viewer next{paged.page->port()};
    EXPECT_TRUE(waitForMessage(next, "hello"));
}

TEST_F(Page, SaysWhoHasItsPort)
{
    pageserver::Options options;
    options.port = paged.page->port();
    try {
        const pageserver::PageServer second{paged.session, options, {}};
        FAIL() << "two pages on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(),
                    HasSubstr("The bound address is already in use; 'ss -tlpn' shows who has it"));
    }
}

TEST_F(Page, OfADemoTakesFaultsAndCountsThem)
{
    simulation::Faults faults;
    paged.stopServing();
    paged.serve(
        {.faults =
             [&] {
                 return pageserver::InjectedFaults{faults, {.drop = 5, .corruptMagic = 1, .corruptTag = 2}};
             },
         .setFaults = [&](const simulation::Faults& wanted) { faults = wanted; }});
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitForMessage(viewer, "status"));
    EXPECT_EQ(viewer.newest("hello").at("demo"), true);
    viewer.send(R"({"command":"faults","drop":0.01})");
    viewer.send(R"({"command":"faults","corrupt":0.5})");
    ASSERT_TRUE(waitUntil([&] { return viewer.newest("status").at("faults").at("corrupt") == 0.5; }));
    EXPECT_EQ(faults.drop, 0.01);
    const nlohmann::json told = viewer.newest("status").at("faults");
    EXPECT_EQ(told.at("drop"), 0.01);
    EXPECT_EQ(told.at("injected").at("drop"), 5);
    EXPECT_EQ(told.at("injected").at("corrupt"), 3);
}

TEST_F(Page, LeavesLargerMapsOutAndSaysSo)
{
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, (1U << 20U) + 1, 1e6, 1, {});
    paged.session.values().zeroSpan->SetChannelRangeDefinition(grid, changecode::mapChanged);
    paged.session.values().zeroSpan->EndOfScan();
    Viewer viewer{paged.page->port()};
    ASSERT_TRUE(waitUntil([&] { return viewer.newest("status").value("advice", "") != ""; }));
    EXPECT_THAT(viewer.newest("status").at("advice").get<std::string>(), HasSubstr("1048576 channels"));
    EXPECT_THAT(viewer.framesOf(2), IsEmpty());
}

} // namespace
