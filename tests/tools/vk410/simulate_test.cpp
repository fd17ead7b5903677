// SPDX-License-Identifier: MIT
// vk410 simulate, as a user runs it, and its documentation.
#include "tools/vk410/live_fixture.h"
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace support;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

using Simulate = LiveFixture;

TEST_F(Simulate, HelpFitsAScreenAndEndsWithThreeExamplesThatWork)
{
    const Ran help = script("vk410 simulate --help");
    EXPECT_LE(help.outLines().size(), 24U);
    for (const std::string& line : help.outLines())
        EXPECT_LE(line.size(), 110U) << line;
    const std::vector<std::string> examples = examplesIn(help.out);
    ASSERT_THAT(examples, SizeIs(3));
    for (const std::string& example : examples) {
        const Ran ran = script(example);
        EXPECT_EQ(ran.exitCode, 0) << example << ran.err;
        EXPECT_THAT(ran.out, MatchesRegex("[0-9]+ traces, [0-9]+ datagrams, .* 0 not sent\n")) << example;
    }
}

TEST_F(Simulate, SaysOnStdoutWhatItSentAndSpoilt)
{
    const Ran ran =
        script("vk410 simulate band --udp 127.0.0.1:$PORT --count 200 --rate 0 --seed 1 --drop 0.1");

    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_THAT(ran.out, MatchesRegex("200 traces, 1[0-9]+ datagrams, [0-9]+ bytes, drop [0-9]+ to udp "
                                      "127.0.0.1:[0-9]+, 0 not sent\n"));
    EXPECT_EQ(ran.err, "vk410 simulate: band to udp 127.0.0.1:" + port + "\n"); // no progress into a file
}

TEST_F(Simulate, IsTheSameForTheSameSeed)
{
    const Ran ran =
        script("for i in 1 2; do vk410 simulate band --count 20 --rate 0 --seed 3 --corrupt 0.3 --truth "
               "$i 2>&1; done; cmp 1 2 && echo same");
    EXPECT_THAT(ran.out, HasSubstr("\nsame\n"));
}

TEST_F(Simulate, EndsCleanlyOnCtrlCAndSigtermWithItsCounts)
{
    for (const char* const signal : {"INT", "TERM"}) {
        const Ran ran =
            script("vk410 simulate band --udp 127.0.0.1:$PORT > out 2> err & until_says band err; "
                   "sleep 0.3; kill -" +
                   std::string(signal) + " $!; wait $!; echo exit $?; cat out");
        EXPECT_THAT(ran.out, MatchesRegex("exit 0\n[0-9]+ traces, .* 0 not sent\n")) << signal;
    }
}

const std::string everyFault = " --count 600 --seed 5 --drop 0.05 --dup 0.05 --reorder 0.05 --corrupt 0.06 "
                               "--truncate 0.05 --truth truth ";

// The last line of the truth, then the monitor's ledger.
void expectFaultsInTheLedger(const Ran& ran)
{
    const std::vector<std::string> lines = ran.outLines();
    ASSERT_THAT(lines, testing::Not(IsEmpty()));
    const nlohmann::json faults = nlohmann::json::parse(lines.front())["faults"];
    const auto counted = [&](const std::string& name) {
        for (const std::string& line : lines) {
            if (line.starts_with(name))
                return std::stoi(line.substr(name.size()));
        }
        return -1;
    };

    EXPECT_EQ(counted("wire lost"), faults["drop"].get<int>() + faults["corrupt magic"].get<int>());
    EXPECT_EQ(counted("wire duplicates"), faults["duplicate"].get<int>());
    EXPECT_EQ(counted("wire reordered"), faults["reorder"].get<int>());
    EXPECT_EQ(counted("invalid"), faults["corrupt magic"].get<int>());
    EXPECT_EQ(counted("selector errors"), faults["corrupt selector"].get<int>());
    EXPECT_EQ(counted("unknown tag"), faults["corrupt tag"].get<int>());
    EXPECT_EQ(counted("truncated"), faults["truncate"].get<int>());
    for (const char* const kind :
         {"drop", "duplicate", "reorder", "corrupt magic", "corrupt selector", "truncate"})
        EXPECT_GT(faults[kind].get<int>(), 0) << kind;
}

TEST_F(Simulate, BeginsWithAClientThatStays)
{
    // The first only asks whether anybody is there, as a monitor does before it connects.
    const Ran ran = script("vk410 simulate band --tcp 127.0.0.1:$PORT --rate 0 --count 20 > sent 2> err & "
                           "until_says waiting err; "
                           "bash -c 'exec 3<>/dev/tcp/127.0.0.1/'$PORT'; sleep 0.03'; sleep 0.2; "
                           "bash -c 'cat < /dev/tcp/127.0.0.1/'$PORT > got; wait; cat sent; wc -c < got");
    const std::vector<std::string> lines = ran.outLines();
    ASSERT_EQ(lines.size(), 2U) << ran.out;
    EXPECT_THAT(lines[0], HasSubstr(", " + lines[1] + " bytes"));
}

TEST_F(Simulate, SpoilsWhatTheMonitorThenMissesOverTcp)
{
    // The monitor ends when the simulator has gone and all of it was read, however long that takes.
    expectFaultsInTheLedger(script("vk410 simulate band --tcp 127.0.0.1:$PORT --rate 0" + everyFault +
                                   "> sent 2> err & until_says waiting err; "
                                   "vk410 monitor tcp://127.0.0.1:$PORT --headless > got 2> said & "
                                   "monitor=$!; until_says 'connection lost' said; kill -INT $monitor; "
                                   "wait; tail -1 truth; cat got"));
}

TEST_F(Simulate, SpoilsWhatTheMonitorThenMissesOverUdp)
{
    expectFaultsInTheLedger(script(
        "vk410 monitor udp://127.0.0.1:$PORT --headless --for 5 > got 2> err & until_says listening err; "
        "vk410 simulate band --udp 127.0.0.1:$PORT --rate 300" +
        everyFault + "> sent 2>&1; wait; tail -1 truth; cat got"));
}

TEST_F(Simulate, FeedsSeveralTcpClients)
{
    const Ran ran = script(
        "vk410 simulate band --udp 127.0.0.1:9 --tcp 127.0.0.1:$PORT --for 2 > sent 2> err & "
        "until_says band err; "
        "for i in 1 2; do vk410 record tcp://127.0.0.1:$PORT -o $i.pcap --for 1 > $i 2> /dev/null & done; "
        "wait; cat 1 2");
    for (const std::string& line : ran.outLines())
        EXPECT_GT(std::atoi(line.c_str()), 10) << line; // datagrams
    EXPECT_THAT(ran.outLines(), SizeIs(2));
}

TEST_F(Simulate, IsASourceOfASessionToo)
{
    const Ran ran = script("vk410 monitor sim:band --headless --for 2");

    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_THAT(ran.err, HasSubstr("centre 100.000000 MHz, span 10.000000 MHz, 1601 ch"));
}

// A tone and a burst of noise-free I/Q, 0.5 s of it.
void writeIq(const std::string& folder)
{
    std::ofstream data{folder + "/iq.sigmf-data", std::ios::binary};
    for (int i = 0; i < 50'000; ++i) {
        const double burst = i % 10'000 < 500 ? 0.4 : 0;
        for (const double phase : {0.0, -1.5707963267948966}) {
            const auto value =
                static_cast<float>(0.3 * std::cos(0.6 * i + phase) + burst * std::cos(1.7 * i + phase));
            data.write(reinterpret_cast<const char*>(&value), sizeof value);
        }
    }
    std::ofstream{folder + "/iq.sigmf-meta"} << R"({"global": {"core:datatype": "cf32_le", "core:sample_rate":
        100000}, "captures": [{"core:sample_start": 0, "core:frequency": 50000000}]})";
}

class SimulatedIq : public Simulate {
protected:
    /// A scene of a recording goes over TCP (and into a capture), from the capture, over UDP, and without
    /// sockets.
    void expectTheSameMapsEveryWay(const std::string& meta)
    {
        std::ofstream{folder.path() + "/scene.json"} << R"({"kind": "band", "rate": 250, "iq": ")" << meta
                                                     << R"("})";
        const Ran ran = script(
            "vk410 simulate scene.json --tcp 127.0.0.1:$PORT > sent 2> err & until_says waiting err; "
            "vk410 monitor tcp://127.0.0.1:$PORT --headless --record a.pcap --for 3 2>/dev/null > got; wait; "
            "grep contents got; grep delivered got; "
            "vk410 monitor a.pcap --headless --rate 0 2>/dev/null | grep contents; "
            "vk410 monitor udp://127.0.0.1:$PORT --headless --for 3 > got 2> err & until_says listening err; "
            "vk410 simulate scene.json --udp 127.0.0.1:$PORT > sent 2> /dev/null; wait; grep contents got; "
            "vk410 monitor sim:scene.json --headless 2>/dev/null | grep contents");
        const std::vector<std::string> lines = ran.outLines();

        ASSERT_THAT(lines, SizeIs(5)) << ran.out << ran.err;
        EXPECT_THAT(lines[1], MatchesRegex("delivered +[1-9][0-9]+"));
        EXPECT_EQ(lines[2], lines[0]) << "from the capture";
        EXPECT_EQ(lines[3], lines[0]) << "over UDP";
        EXPECT_EQ(lines[4], lines[0]) << "without sockets";
    }
};

TEST_F(SimulatedIq, GivesTheSameMapsOverTcpOverUdpFromACaptureAndWithoutSockets)
{
    writeIq(folder.path());
    expectTheSameMapsEveryWay("iq.sigmf-meta");
}

TEST_F(SimulatedIq, OfAircraftGivesTheSameMapsEveryWayToo)
{
    const char* const data = std::getenv("VK410_DATA");
    if (!data)
        GTEST_SKIP() << "VK410_DATA names no folder of recordings";
    expectTheSameMapsEveryWay(std::string(data) + "/airband-1090MHz.sigmf-meta");
}

struct WrongUse {
    const char* name;
    const char* arguments;
    const char* text;
};

class WrongUses : public Simulate, public testing::WithParamInterface<WrongUse> {};

TEST_P(WrongUses, EndWithAHintAndExitCode2)
{
    const Ran ran = script(std::string("vk410 simulate ") + GetParam().arguments);

    EXPECT_EQ(ran.exitCode, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, WrongUses,
    testing::Values(WrongUse{"NowhereToSend", "band",
                             "expected --udp ADDRESS:PORT, --tcp ADDRESS:PORT or --truth FILE"},
                    WrongUse{"NoScene", "nothing.json --truth -",
                             "nothing.json: expected demo, band, zerospan, df or a scene file, found: No "
                             "such file or directory; check its name and permissions"},
                    WrongUse{"ProbabilityAboveOne", "band --truth - --drop 2",
                             "--drop: expected a probability from 0 to 1, found 2"},
                    WrongUse{"ProbabilitiesAboveOneTogether", "band --truth - --drop 0.6 --dup 0.6",
                             "expected fault probabilities of at most 1 together, found 1.2"},
                    WrongUse{"NoPort", "band --udp 127.0.0.1", "the port is missing"},
                    WrongUse{"OddSpan", "band --truth - --span 1001",
                             "spanHz: expected an even number of hertz, found 1001"},
                    WrongUse{"StepAndPoints", "band --truth - --step 10 --points 4",
                             "expected one of --points and --step, found both"},
                    WrongUse{"TruthThatCannotBeWritten", "band --truth no/where",
                             "no/where: expected a file that can be written, found: No such file or "
                             "directory; choose a folder that exists and that you may write to"},
                    WrongUse{"NoIq", "--iq x.sigmf-meta --truth -",
                             "x.sigmf-meta: expected a readable .sigmf-meta file, found: No such file or "
                             "directory; check its name and permissions"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Simulate, ObeysCentreSpanAndStep)
{
    const Ran ran =
        script("vk410 simulate band --centre 97e6 --span 2e6 --step 2500 --count 1 --truth - 2>/dev/null");
    const nlohmann::json start = nlohmann::json::parse(ran.outLines().at(0));

    EXPECT_EQ(start["centreHz"], 97e6);
    EXPECT_EQ(start["spanHz"], 2e6);
    EXPECT_EQ(start["points"], 801);
}

} // namespace
