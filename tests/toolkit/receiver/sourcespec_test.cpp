// SPDX-License-Identifier: MIT
#include "toolkit/receiver/sourcespec.h"
#include <gmock/gmock.h>

using receiver::BadSource;
using receiver::parseListen;
using receiver::parseSource;
using receiver::SourceSpec;

namespace {

TEST(SourceSpec, ReadsEveryFormOfUdp)
{
    EXPECT_EQ(parseSource("udp://:5555").kind, SourceSpec::Kind::Udp);
    EXPECT_EQ(parseSource("udp://:5555").port, 5555);
    EXPECT_TRUE(parseSource("udp://:5555").address.isNull());
    EXPECT_EQ(parseSource("udp://127.0.0.1:1").address.toString(), "127.0.0.1");
    EXPECT_EQ(parseSource("udp://239.1.2.3@192.0.2.1:65535").group.toString(), "239.1.2.3");
    EXPECT_EQ(parseSource("udp://239.1.2.3@192.0.2.1:65535").address.toString(), "192.0.2.1");
    EXPECT_TRUE(parseSource("udp://239.1.2.3@:7").address.isNull());
    EXPECT_EQ(parseSource("udp://[::1]:7").address.toString(), "::1");
}

TEST(SourceSpec, ReadsTcpSimulationAndRecordings)
{
    const SourceSpec tcp = parseSource("tcp://receiver.local:5555");
    EXPECT_EQ(tcp.kind, SourceSpec::Kind::Tcp);
    EXPECT_EQ(tcp.host, "receiver.local");
    EXPECT_EQ(parseSource("tcp://[::1]:9").host, "::1");
    EXPECT_EQ(parseSource("sim:band").kind, SourceSpec::Kind::Simulation);
    EXPECT_EQ(parseSource("sim:band").path, "band");
    EXPECT_EQ(parseSource("some/a.pcap").kind, SourceSpec::Kind::Recording);
}

struct BadCase {
    const char* name;
    const char* text;
    const char* message;
};
class SourceSpecRefuses : public testing::TestWithParam<BadCase> {};

TEST_P(SourceSpecRefuses, AndSaysWhatWasExpectedAndWhatCame)
{
    try {
        (void)parseSource(GetParam().text);
        FAIL() << "accepted";
    } catch (const BadSource& bad) {
        EXPECT_STREQ(bad.what(), GetParam().message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SourceSpecRefuses,
    testing::Values(
        BadCase{"UdpWithoutPort", "udp://127.0.0.1",
                "'udp://127.0.0.1': expected udp://[group@][address]:port, for example udp://:5555; the port "
                "is missing"},
        BadCase{
            "UdpWithEmptyPort", "udp://:",
            "'udp://:': expected udp://[group@][address]:port, for example udp://:5555; the port is missing"},
        BadCase{
            "UdpWithEmptyGroup", "udp://@127.0.0.1:7",
            "'udp://@127.0.0.1:7': expected udp://[group@][address]:port, for example udp://:5555; the group "
            "is missing"},
        BadCase{"NothingAtAll", "",
                "expected udp://..., tcp://..., sim:scene or the path of a recording, found an empty text"},
        BadCase{"PortTooLarge", "udp://:65536",
                "'udp://:65536': expected udp://[group@][address]:port, for example udp://:5555; '65536' is "
                "no port (1 to "
                "65535)"},
        BadCase{"PortZero", "tcp://a:0",
                "'tcp://a:0': expected tcp://host:port, for example tcp://192.0.2.7:5555; '0' is no port (1 "
                "to 65535)"},
        BadCase{"NoAddress", "udp://here:7",
                "'udp://here:7': expected udp://[group@][address]:port, for example udp://:5555; 'here' is "
                "no IP address"},
        BadCase{"NoGroup", "udp://10.0.0.1@:7",
                "'udp://10.0.0.1@:7': expected udp://[group@][address]:port, for example udp://:5555; "
                "'10.0.0.1' is no "
                "multicast group"},
        BadCase{
            "NoHost", "tcp://:7",
            "'tcp://:7': expected tcp://host:port, for example tcp://192.0.2.7:5555; the host is missing"},
        BadCase{"NoScene", "sim:", "'sim:': expected sim:scene, for example sim:band; the scene is missing"},
        BadCase{"OtherScheme", "http://x",
                "'http://x': expected udp://..., tcp://..., sim:scene or the path of a recording; this kind "
                "of address is "
                "not known"}),
    [](const auto& each) { return each.param.name; });

TEST(ListenSpec, IsLoopbackUnlessAnAddressIsGiven)
{
    EXPECT_EQ(parseListen(":7000").address, QHostAddress(QHostAddress::LocalHost));
    EXPECT_EQ(parseListen("0.0.0.0:7000").address.toString(), "0.0.0.0");
    EXPECT_EQ(parseListen("[::1]:7000").port, 7000);
    EXPECT_THROW((void)parseListen("7000"), BadSource);
    EXPECT_THROW((void)parseListen("no address:7000"), BadSource);
}

} // namespace
