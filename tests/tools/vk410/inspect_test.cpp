// SPDX-License-Identifier: MIT
#include "toolkit/support/capture_bytes.h"
#include "tools/vk410/json_schema.h"
#include "tools/vk410/run_program.h"
#include "tools/vk410/samples.h"
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class Inspect : public testing::Test {
protected:
    [[nodiscard]] Ran vk410(const std::string& arguments) const
    {
        return run("vk410 " + arguments, m_folder.path());
    }

    TemporaryFolder m_folder;
};

TEST_F(Inspect, PrintsATableAndEndsWell)
{
    m_folder.write("a.bin", traceDatagram(1));

    const Ran ran = vk410("inspect a.bin");

    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_THAT(ran.outLines(), ElementsAre("a.bin: 1 datagrams, 36 bytes", StartsWith("file: 1 datagrams"),
                                            "", StartsWith("tag"), StartsWith("501")));
    EXPECT_EQ(ran.err, "");
}

TEST_F(Inspect, PrintsOneJsonObjectALine)
{
    m_folder.write("a.bin", joined({traceDatagram(1, 2), traceDatagram(2, 1)}));

    const Ran ran = vk410("inspect --json a.bin");

    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_THAT(
        ran.outLines(),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":32,"valid":true,"sequence":1})",
                    R"({"type":"attribute","datagram":0,"index":0,"offset":16,"tag":501,"known":true,)"
                    R"("channel":0,"count":2,"selectors":1,"fields":{"selBit0":[1,2]},"dataEnd":32})",
                    R"({"type":"datagram","index":1,"offset":32,"size":30,"valid":true,"sequence":2})",
                    R"({"type":"attribute","datagram":1,"index":0,"offset":16,"tag":501,"known":true,)"
                    R"("channel":0,"count":1,"selectors":1,"fields":{"selBit0":[2]},"dataEnd":30})"));
}

TEST_F(Inspect, WritesJsonThatFitsItsSchema)
{
    const auto schema = nlohmann::json::parse(contentOf(VK410_DOCS "/inspect.schema.json"));
    std::vector<Bytes> parts{sampleStream(), wire::DatagramWriter{}.magic(5).build()};
    for (const std::uint16_t tag : wire::tag::known)
        parts.push_back(wire::DatagramWriter{}
                            .attribute(tag, 3)
                            .selectors(0x00BFFFFF)
                            .count(2)
                            .optHeader(Bytes(6))
                            .bytes(Bytes(200))
                            .build());
    parts.push_back(wire::DatagramWriter{}.attribute(5301).optHeader(Bytes(74, 0xFF)).build());
    parts.push_back(wire::DatagramWriter{}.attribute(5001).attribute(101).build());
    parts.push_back(wire::DatagramWriter{}.attribute(101).selectors(0xFFFFFFFF).build());
    parts.push_back(wire::DatagramWriter{}.attribute(101).selectors(1).count(9).build());
    m_folder.write("a.bin", joined(parts));
    m_folder.write("a.pcap", sampleCapture());
    m_folder.write("tiny.pcap",
                   capture(timed({udpPacket({0x10, 0x5A, 0x0C, 0}), udpPacket({})}), linktype::raw));

    for (const char* const name : {"a.bin", "a.pcap", "tiny.pcap"}) {
        const std::vector<std::string> lines = vk410(std::string{"inspect --json "} + name).outLines();
        EXPECT_THAT(lines, testing::Not(IsEmpty()));
        for (const std::string& line : lines)
            EXPECT_EQ(schemaError(nlohmann::json::parse(line), schema), "") << line;
    }
}

TEST_F(Inspect, ExplainsOneDatagram)
{
    m_folder.write("a.bin", joined({wire::DatagramWriter{}.magic(1).build(), traceDatagram(1)}));

    const Ran ran = vk410("inspect a.bin --explain 1");

    EXPECT_EQ(ran.exitCode, 0); // the other one does not matter
    EXPECT_THAT(ran.out, StartsWith("datagram 1: 36 bytes at byte 16 of the file\n"));
    EXPECT_EQ(vk410("inspect a.bin --explain 0").exitCode, 1);
}

TEST_F(Inspect, SaysHowManyDatagramsThereAreToExplain)
{
    m_folder.write("a.bin", joined({traceDatagram(1), Bytes(3)}));

    const Ran ran = vk410("inspect a.bin --explain 1");

    EXPECT_EQ(ran.exitCode, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err,
              "vk410 inspect: a.bin: expected datagram 1, found 1 before byte 36: expected a datagram header "
              "of 16 bytes, found 3; they count from 0\n");
}

TEST_F(Inspect, EndsWithOneWhereTheFileIsCutAndShowsWhatCameBefore)
{
    m_folder.write("a.bin", joined({traceDatagram(1), Bytes(3)}));

    const Ran json = vk410("inspect a.bin --json");
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_THAT(json.outLines(), SizeIs(2));
    EXPECT_EQ(json.err,
              "vk410 inspect: a.bin: byte 36: expected a datagram header of 16 bytes, found 3; 1 datagrams "
              "came before it\n");

    const Ran table = vk410("inspect a.bin");
    EXPECT_EQ(table.exitCode, 1);
    EXPECT_THAT(table.out, StartsWith("a.bin: 1 datagrams"));
}

TEST_F(Inspect, EndsWithOneWhereAnAttributeWasDropped)
{
    m_folder.write("a.bin", sampleStream());

    const Ran ran = vk410("inspect a.bin");

    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.out, HasSubstr("1 errors: 1 Unknown Selector Flag\n  datagram 1 at byte 86: Unknown "
                                   "Selector Flag in attribute 0"));
    EXPECT_EQ(ran.err, "");
}

TEST_F(Inspect, EndsWithOneWhereACaptureHasAHole)
{
    m_folder.write("a.pcap", capture(timed({udpPacket(traceDatagram(1)), Bytes(10, 0x45)}), linktype::raw));

    const Ran ran = vk410("inspect a.pcap --json");

    EXPECT_EQ(ran.exitCode, 1);
    EXPECT_THAT(ran.outLines(), SizeIs(2));
    EXPECT_THAT(ran.err,
                StartsWith("vk410 inspect: a.pcap: byte 120: expected a whole packet of 10 bytes, found "));
}

TEST_F(Inspect, TellsTwentyLossesAndCountsTheRest)
{
    m_folder.write("a.pcap", capture(timed(std::vector<Bytes>(25, Bytes(10, 0x45))), linktype::raw));

    const std::vector<std::string> lines = linesOf(vk410("inspect a.pcap").err);

    ASSERT_THAT(lines, SizeIs(22));
    EXPECT_EQ(lines[20], "vk410 inspect: a.pcap: and 5 more losses");
}

TEST_F(Inspect, SaysWhyThereAreNoDatagrams)
{
    m_folder.write("a.pcap", capture(timed({udpPacket(traceDatagram(1))}), linktype::raw));

    const Ran ran = vk410("inspect a.pcap --port 9");

    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err,
              "vk410 inspect: a.pcap: no datagrams; of 1 packets 0 are neither UDP nor TCP, 1 of other "
              "ports, most of port 4444; 0 TCP streams hold none\n");
}

TEST_F(Inspect, EndsWithOneWhereTheFileIsNoRecording)
{
    m_folder.write("empty", {});
    m_folder.write("wlan.pcap", capture({}, linktype::wlan));
    for (const char* const name : {"empty", "wlan.pcap"}) {
        const Ran ran = vk410(std::string{"inspect "} + name);
        EXPECT_EQ(ran.exitCode, 1);
        EXPECT_EQ(ran.out, "");
        EXPECT_THAT(ran.err, StartsWith(std::string{"vk410 inspect: "} + name + ": byte 0: expected "));
        EXPECT_THAT(linesOf(ran.err), SizeIs(1));
    }
}

struct UsageCase {
    const char* name;
    const char* arguments;
    const char* err;
};

class InspectUsage : public testing::TestWithParam<UsageCase> {};

TEST_P(InspectUsage, EndsWithTwoAndOneLine)
{
    const TemporaryFolder folder;

    const Ran ran = run(std::string{"vk410 "} + GetParam().arguments, folder.path());

    EXPECT_EQ(ran.exitCode, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr(GetParam().err));
    EXPECT_THAT(linesOf(ran.err), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(
    All, InspectUsage,
    testing::Values(
        UsageCase{"NoVerb", "", "vk410: expected a verb, found none; 'vk410 --help' shows how"},
        UsageCase{"UnknownVerb", "dance", "vk410: "},
        UsageCase{"NoSource", "inspect",
                  "vk410 inspect: expected SOURCE, found none; 'vk410 inspect --help' shows how"},
        UsageCase{"UnknownOption", "inspect a --frob", "vk410 inspect: "},
        UsageCase{"BadPort", "inspect a --port 65536", "--port"},
        UsageCase{"NegativeIndex", "inspect a --explain -1", "--explain"},
        UsageCase{"TwoForms", "inspect a --json --explain 1", "--json"},
        UsageCase{"MissingFile", "inspect missing",
                  "vk410 inspect: missing: expected a readable file, found No such file or "
                  "directory; check its name"},
        UsageCase{"Directory", "inspect .", "vk410 inspect: .: expected a readable file, found a directory"},
        UsageCase{"PortOfALiveSource", "inspect udp://:5555 --port 5555",
                  "vk410 inspect: --port: expected a recording to look into, found udp://:5555; a "
                  "live source has a port of its own"},
        UsageCase{"TimeOfARecording", "inspect a.bin --for 2",
                  "vk410 inspect: --for: expected a live source, found a.bin; --count N ends in a "
                  "recording"}),
    [](const auto& test) { return test.param.name; });

TEST_F(Inspect, EndsWithTwoWhenItsResultsCannotBeWritten)
{
    m_folder.write("a.bin", traceDatagram(1));

    const Ran ran = vk410("inspect a.bin >/dev/full");

    EXPECT_EQ(ran.exitCode, 2);
    EXPECT_THAT(ran.err, HasSubstr("could not be written"));
}

TEST_F(Inspect, KeepsItsMemorySmallForALargeFile)
{
    std::vector<unsigned char> large;
    const Bytes datagram = traceDatagram(1, 32'754);
    for (int i = 0; i < 1024; ++i) // 64 MiB
        large.insert(large.end(), datagram.begin(), datagram.end());
    m_folder.write("large.bin", large);
    m_folder.write("small.bin", datagram);
    // Address checks keep freed memory, as much as they are let.
    const std::string command = "ASAN_OPTIONS=quarantine_size_mb=1 vk410 inspect --json ";

    const Ran little = run(command + "small.bin", m_folder.path());
    const Ran much = run(command + "large.bin >/dev/null", m_folder.path());

    EXPECT_EQ(much.exitCode, 0);
    EXPECT_LT(much.peakKiB - little.peakKiB, 16 * 1024);
}

} // namespace
