// SPDX-License-Identifier: MIT
// The verbs that receive and send, over real sockets, as a user runs them in two terminals.
#include "tools/vk410/live_fixture.h"
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string hashIn(const std::string& report)
{
    const std::size_t at = report.find("map contents");
    return at == std::string::npos ? "none" : report.substr(report.find_first_not_of(' ', at + 12), 16);
}

using LiveVerbs = LiveFixture;

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

TEST_F(LiveVerbs, HelpEndsWithThreeExamplesThatWork)
{
    ASSERT_EQ(script("vk410 simulate band --seed 1 --count 60 --udp 127.0.0.1:$PORT >/dev/null 2>&1 & "
                     "vk410 record udp://127.0.0.1:$PORT -o a.pcap --for 2 >/dev/null 2>&1")
                  .exitCode,
              0);
    ASSERT_EQ(script("vk410 simulate band --seed 1 --count 5 --rate 0 --truth truth.ndjson").exitCode, 0);
    for (const std::string verb : {"monitor", "record", "replay", "demo", "export", "check", "doctor"}) {
        const std::vector<std::string> examples = examplesIn(script("vk410 " + verb + " --help").out);
        ASSERT_EQ(examples.size(), 3U) << verb;
        for (std::string example : examples) {
            // Nothing leaves this machine; what would go on for ever is stopped as a user stops it.
            example = replaced(example, "239.1.2.3@", "");
            for (const char* const address : {"192.0.2.1", "192.0.2.7", "239.1.2.3"})
                example = replaced(example, address, "127.0.0.1");
            example = replaced(example, "5555", port);
            const Ran ran = script("timeout --preserve-status -s INT 4" + example);
            EXPECT_LE(ran.exitCode, 1) << example << ran.err;
            EXPECT_FALSE((ran.out + ran.err).empty()) << example;
        }
    }
}

TEST_F(LiveVerbs, MonitorShowsWhatReplaySendsAndEndsCleanlyOnCtrlC)
{
    const Ran ran =
        script("vk410 monitor udp://127.0.0.1:$PORT --headless > out 2> err & until_says listening err; "
               "vk410 replay $SAMPLES/receiver.pcap --udp 127.0.0.1:$PORT --rate 0 >/dev/null 2>&1; "
               "until_says 'datagrams/s' err; kill -INT $!; wait $!; echo exit $?; cat out");
    EXPECT_THAT(ran.out, HasSubstr("exit 1\n")); // one datagram is missing in the sample
    EXPECT_THAT(ran.out, HasSubstr("datagrams                         3\n"));
    EXPECT_THAT(ran.out, HasSubstr("wire lost                         1  sequence numbers that never came"));
    EXPECT_THAT(ran.out, HasSubstr("sums balance                    yes\n"));
    EXPECT_EQ(ran.err, "");
}

TEST_F(LiveVerbs, MonitorEndsOnSigtermToo)
{
    const Ran ran = script("vk410 monitor udp://127.0.0.1:$PORT --headless > out 2> err & until_says "
                           "listening err; kill -TERM $!; "
                           "wait $!; echo exit $?; grep -c balance out");
    EXPECT_EQ(ran.out, "exit 0\n1\n");
}

TEST_F(LiveVerbs, MonitorOfARecordingMadeLiveGivesTheSameMaps)
{
    const Ran live =
        script("vk410 monitor udp://127.0.0.1:$PORT --headless --record a.pcap --for 2 > out 2> err & "
               "until_says listening err; "
               "vk410 replay $SAMPLES/receiver.pcap --udp 127.0.0.1:$PORT --rate 0 >/dev/null 2>&1; wait $!; "
               "cat out");
    const Ran again = script("vk410 monitor a.pcap --headless --rate 0");
    EXPECT_EQ(hashIn(live.out).size(), 16U);
    EXPECT_EQ(hashIn(again.out), hashIn(live.out));
}

TEST_F(LiveVerbs, ReplayServesATcpClientFromItsFirstDatagramOn)
{
    const Ran ran = script(
        "vk410 replay $SAMPLES/receiver.pcap --tcp 127.0.0.1:$PORT --rate 0 > sent 2> err & "
        "until_says waiting err; vk410 record tcp://127.0.0.1:$PORT -o a.pcap --for 2 >/dev/null 2>&1; "
        "wait $!; echo exit $?; cat sent; vk410 inspect a.pcap | grep -c 'tag'");
    EXPECT_THAT(ran.out, HasSubstr("exit 0\n"));
    EXPECT_THAT(ran.out, HasSubstr("3 datagrams sent to tcp 127.0.0.1:" + port + ", 0 dropped\n"));
}

TEST_F(LiveVerbs, RecordKeepsWhatItReceives)
{
    const Ran ran = script(
        "vk410 record udp://127.0.0.1:$PORT -o a.pcap --for 2 > out 2> err & until_says listening err; "
        "vk410 replay $SAMPLES/receiver.pcap --udp 127.0.0.1:$PORT --rate 0 >/dev/null 2>&1; wait $!; "
        "echo exit $?; cat out; vk410 inspect a.pcap --json | grep -c '\"type\":\"datagram\"'");
    EXPECT_THAT(
        ran.out,
        MatchesRegex("exit 0\n3 datagrams, [0-9]+ bytes, 0 skipped, 0 dropped by the kernel, 1 file\n3\n"));
}

TEST_F(LiveVerbs, ReplayTakesARangeAndLoopsUntilItIsStopped)
{
    const Ran ran =
        script("vk410 replay $SAMPLES/receiver.pcap --udp 127.0.0.1:$PORT --rate 0 --until 0; "
               "timeout -s INT 3 vk410 replay $SAMPLES/receiver.pcap --udp 127.0.0.1:$PORT --rate 0 --loop "
               "2>/dev/null | cut -d' ' -f1");
    EXPECT_THAT(ran.out, HasSubstr("0 datagrams sent"));
    const std::vector<std::string> lines = linesOf(ran.out);
    EXPECT_GT(std::stoul(lines.back()), 3U) << ran.out << ran.err;
}

TEST_F(LiveVerbs, MetricsAreServedOnLoopback)
{
    const Ran ran = script(
        "vk410 monitor udp://127.0.0.1:$PORT --headless --metrics 0 > out 2> err & until_says metrics err; "
        "URL=$(grep -o 'http://[^ ]*' err); python3 -c \"import urllib.request,sys; "
        "print(urllib.request.urlopen(sys.argv[1]).read().decode())\" $URL; kill -INT $!; wait");
    EXPECT_THAT(ran.out, HasSubstr("# TYPE vk410_wire_lost_total counter\nvk410_wire_lost_total 0\n"));
    EXPECT_THAT(ran.out, HasSubstr("vk410_datagrams_total 0\n"));
}

TEST_F(LiveVerbs, StatsAreAJsonObjectASecond)
{
    const Ran ran = script(
        "vk410 monitor $SAMPLES/receiver.pcap --headless --rate 0 --stats 2>/dev/null | head -1 | python3 -c "
        "'import json,sys; o=json.load(sys.stdin); print(o[\"datagrams\"], o[\"wire_lost\"])'");
    EXPECT_EQ(ran.out, "3 1\n");
}

TEST_F(LiveVerbs, DemoShowsASimulatedReceiverWithoutLosses)
{
    const Ran ran = script("vk410 demo --headless --for 3");
    EXPECT_EQ(ran.exitCode, 0) << ran.out;
    EXPECT_THAT(ran.err, HasSubstr("simulator → udp 127.0.0.1:"));
    EXPECT_THAT(ran.err, HasSubstr(" traces/s | "));
    EXPECT_THAT(ran.err, HasSubstr("| no losses"));
    EXPECT_THAT(ran.out, HasSubstr("sums balance                    yes\n"));
}

TEST_F(LiveVerbs, DemoShowsInjectedLossesAsSuch)
{
    const Ran ran = script("vk410 demo --headless --for 3 --drop 0.2");
    EXPECT_EQ(ran.exitCode, 1) << ran.out;
    EXPECT_THAT(ran.err, HasSubstr("wire lost"));
}

// The ledger's line of that name, as a number.
int counted(const std::string& report, const std::string& name)
{
    for (const std::string& line : linesOf(report)) {
        if (line.starts_with(name + " "))
            return std::stoi(line.substr(name.size()));
    }
    return -1;
}

TEST_F(LiveVerbs, DemoOfDirectionFindingBringsEveryBlockIntoTheMapWithBothProcessors)
{
    for (const std::string processor : {"scan", "scif"}) {
        const Ran ran = script("vk410 demo df --df " + processor + " --headless --for 3");
        EXPECT_EQ(ran.exitCode, 0) << ran.out;
        EXPECT_THAT(ran.err, ContainsRegex(R"(\| DF 1202 ch, 1[23]\.)")); // the line of the first second
        EXPECT_GT(counted(ran.out, "map writes"), 80);
        EXPECT_EQ(counted(ran.out, "map writes"), counted(ran.out, "datagrams"));
    }
}

TEST_F(LiveVerbs, MonitorTakesDirectionFindingScansOverUdpAndTcpAndFromARecording)
{
    const std::string ranges = "--scan-range 1:145M-155M/12.5k --scan-range 2:430M-440M/25k ";
    const Ran udp = script("vk410 monitor --headless " + ranges +
                           "udp://127.0.0.1:$PORT --record a.pcap --for 3 > out 2> err & "
                           "until_says listening err; vk410 simulate df --udp 127.0.0.1:$PORT --count 60 "
                           "--rate 100 --seed 4 >/dev/null 2>&1; wait $!; cat out");
    const Ran tcp =
        script("vk410 simulate df --tcp 127.0.0.1:$PORT --count 60 --rate 100 --seed 4 > sent 2> "
               "err & until_says waiting err; vk410 monitor --headless tcp://127.0.0.1:$PORT --for 2 " +
               ranges + "2>/dev/null; wait");
    const Ran again = script("vk410 monitor a.pcap --headless --rate 0 " + ranges);
    EXPECT_EQ(counted(udp.out, "map writes"), 60) << udp.out << udp.err;
    EXPECT_EQ(hashIn(udp.out).size(), 16U);
    EXPECT_EQ(hashIn(tcp.out), hashIn(udp.out)) << tcp.out << tcp.err;
    EXPECT_EQ(hashIn(again.out), hashIn(udp.out));
    const Ran scif = script("vk410 monitor a.pcap --headless --rate 0 --df scif " + ranges);
    EXPECT_EQ(counted(scif.out, "map writes"), 60);
    EXPECT_NE(hashIn(scif.out), hashIn(udp.out)); // no field strength
}

TEST_F(LiveVerbs, MonitorLeavesOutExcludedFrequencies)
{
    const std::string monitor = "vk410 monitor a.pcap --headless --rate 0 --scan-range 1:145M-155M/12.5k "
                                "--scan-range 2:430M-440M/25k ";
    script("vk410 record udp://127.0.0.1:$PORT -o a.pcap --for 2 > out 2> err & until_says listening err; "
           "vk410 simulate df --udp 127.0.0.1:$PORT --count 30 --rate 100 --seed 4 >/dev/null 2>&1; wait $!");
    const std::string plain = hashIn(script(monitor).out);
    EXPECT_EQ(plain.size(), 16U);
    EXPECT_NE(hashIn(script(monitor + "--exclude suppress:147M-148M").out), plain);
    EXPECT_EQ(hashIn(script(monitor + "--exclude suppress:200M-300M").out), plain);
    // No block of this scene reports blanking.
    EXPECT_EQ(hashIn(script(monitor + "--exclude blanking:147M-148M").out), plain);
}

struct UsageCase {
    const char* name;
    const char* command;
    const char* err;
};
class LiveVerbsUsage : public LiveVerbs, public testing::WithParamInterface<UsageCase> {};

TEST_P(LiveVerbsUsage, EndsWithTwoAndOneLine)
{
    const Ran ran = script(GetParam().command);
    EXPECT_EQ(ran.exitCode, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, MatchesRegex(GetParam().err));
}
INSTANTIATE_TEST_SUITE_P(
    Errors, LiveVerbsUsage,
    testing::Values(
        UsageCase{"MonitorNoPort", "vk410 monitor udp://127.0.0.1",
                  "vk410 monitor: 'udp://127.0.0.1': expected udp://.group@..address.:port, for example "
                  "udp://:5555; the port is missing\n"},
        UsageCase{"MonitorNoFile", "vk410 monitor nothing.pcap", "vk410 monitor: nothing.pcap: .*\n"},
        UsageCase{"MonitorMirrorOfUdp", "vk410 monitor udp://:5555 --mirror 127.0.0.1:7",
                  "vk410 monitor: a mirror needs a tcp:// source; .*\n"},
        UsageCase{
            "MonitorBadMirror", "vk410 monitor tcp://127.0.0.1:5555 --mirror here:7",
            "vk410 monitor: 'here:7': expected address:port, for example 127.0.0.1:7000; 'here' is no IP "
            "address\n"},
        UsageCase{"MonitorBadScanRange", "vk410 monitor udp://:5555 --scan-range 145M-155M",
                  "vk410 monitor: '145M-155M': expected JOB:START-STOP/STEP, for example "
                  "1:145M-155M/12.5k; ':' is missing before the start frequency\n"},
        UsageCase{"MonitorBadTag", "vk410 monitor udp://:5555 --tag panorama=x",
                  "vk410 monitor: --tag 'panorama=x': expected panorama=TAG, .* for example panorama=301\n"},
        UsageCase{"MonitorUnknownKind", "vk410 monitor udp://:5555 --tag audio=401",
                  "vk410 monitor: --tag 'audio=401': expected panorama=TAG, .*\n"},
        UsageCase{"MonitorBadExclusion", "vk410 monitor udp://:5555 --exclude 147M-148M",
                  "vk410 monitor: '147M-148M': expected suppress:START-STOP or .*; it begins with neither\n"},
        UsageCase{"DemoUnknownProcessor", "vk410 demo df --df both",
                  "vk410 demo: .*'vk410 demo --help' shows how\n"},
        UsageCase{"RecordNoFolder", "vk410 record udp://127.0.0.1:$PORT -o no/folder/a.pcap",
                  "vk410 record: no/folder/a.pcap: No such file or directory; choose a folder .*\n"},
        UsageCase{
            "ReplayNowhere", "vk410 replay $SAMPLES/receiver.pcap",
            "vk410 replay: expected one of --udp ADDRESS:PORT and --tcp ADDRESS:PORT, found neither; .*\n"},
        UsageCase{"ReplayNegativeRate", "vk410 replay $SAMPLES/receiver.pcap --udp :5 --rate -1",
                  "vk410 replay: .*'vk410 replay --help' shows how\n"}),
    [](const auto& each) { return each.param.name; });

} // namespace
