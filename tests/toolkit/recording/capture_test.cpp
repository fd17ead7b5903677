// SPDX-License-Identifier: MIT
#include "toolkit/support/capture_bytes.h"
#include "toolkit/support/read_recording.h"
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const Bytes first = traceDatagram(7, 2);
const Bytes second = traceDatagram(8, 4);
const Route v6Route{"2001:db8::1", "2001:db8::2", 5555, 4444};

// That the position tells where the datagram lies.
void expectBytesAtPositions(const Bytes& file, const Read& read)
{
    for (const recording::Datagram& datagram : read.datagrams) {
        const auto size = static_cast<std::size_t>(datagram.bytes.size());
        const auto there = wire::View{file.data(), file.size()}.sub(datagram.position, size);
        ASSERT_TRUE(there);
        EXPECT_EQ(std::memcmp(there->data(), datagram.bytes.constData(), size), 0) << datagram.position;
    }
}

struct FormCase {
    const char* name;
    Form form;
    wire::ByteOrder order;
    bool hasTimes;
    bool isExact; // to the nanosecond
};

class CaptureForm : public testing::TestWithParam<FormCase> {};

TEST_P(CaptureForm, GivesDatagramsTimesAndPositions)
{
    const FormCase& form = GetParam();
    std::vector<CapturedPacket> packets =
        timed({ethernet(udpPacket(first)), ethernet(udpPacket(second)), ethernet(udpPacket(Bytes{}))});
    packets[1].receivedNs += 123;
    const Bytes file = capture(packets, linktype::ethernet, form.form, form.order);

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(first, second, Bytes{}));
    EXPECT_THAT(read.problems, IsEmpty());
    expectBytesAtPositions(file, read);
    if (form.hasTimes) {
        EXPECT_THAT(read.times(), ElementsAre(firstNs, firstNs + apartNs + (form.isExact ? 123 : 0),
                                              firstNs + 2 * apartNs));
    } else {
        EXPECT_THAT(read.times(), testing::Each(std::nullopt));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, CaptureForm,
    testing::Values(FormCase{"PcapMicroLittle", Form::PcapMicroseconds, wire::ByteOrder::Little, true, false},
                    FormCase{"PcapMicroBig", Form::PcapMicroseconds, wire::ByteOrder::Big, true, false},
                    FormCase{"PcapNanoLittle", Form::PcapNanoseconds, wire::ByteOrder::Little, true, true},
                    FormCase{"PcapNanoBig", Form::PcapNanoseconds, wire::ByteOrder::Big, true, true},
                    FormCase{"PcapNgLittle", Form::PcapNg, wire::ByteOrder::Little, true, true},
                    FormCase{"PcapNgBig", Form::PcapNg, wire::ByteOrder::Big, true, true},
                    FormCase{"PcapNgSimple", Form::PcapNgSimple, wire::ByteOrder::Little, false, false}),
    [](const auto& test) { return test.param.name; });

struct LinkCase {
    const char* name;
    std::uint32_t linkType;
    Bytes (*around)(const Bytes& ip);
    const Route* route;
};

const Route v4Route;
Bytes nothing(const Bytes& ip)
{
    return ip;
}

class CaptureLink : public testing::TestWithParam<LinkCase> {};

TEST_P(CaptureLink, CarriesUdpDatagrams)
{
    const LinkCase& link = GetParam();
    const Bytes file = capture(timed({link.around(udpPacket(first, *link.route))}), link.linkType);

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_THAT(read.problems, IsEmpty());
    EXPECT_THAT(read.origins(),
                ElementsAre(link.route == &v4Route ? "udp 192.0.2.1:5555 > 192.0.2.2:4444"
                                                   : "udp [2001:db8::1]:5555 > [2001:db8::2]:4444"));
    expectBytesAtPositions(file, read);
}

INSTANTIATE_TEST_SUITE_P(All, CaptureLink,
                         testing::Values(LinkCase{"Ethernet", linktype::ethernet, ethernet, &v4Route},
                                         LinkCase{"EthernetV6", linktype::ethernet, ethernet, &v6Route},
                                         LinkCase{"Vlan", linktype::ethernet, vlan, &v4Route},
                                         LinkCase{"VlanV6", linktype::ethernet, vlan, &v6Route},
                                         LinkCase{"DoubleVlan", linktype::ethernet, doubleVlan, &v4Route},
                                         LinkCase{"DoubleVlanV6", linktype::ethernet, doubleVlan, &v6Route},
                                         LinkCase{"Cooked", linktype::cooked, cooked, &v4Route},
                                         LinkCase{"CookedV6", linktype::cooked, cooked, &v6Route},
                                         LinkCase{"Cooked2", linktype::cooked2, cooked2, &v4Route},
                                         LinkCase{"Cooked2V6", linktype::cooked2, cooked2, &v6Route},
                                         LinkCase{"Cooked2Vlan", linktype::cooked2, cooked2Vlan, &v4Route},
                                         LinkCase{"Raw", linktype::raw, nothing, &v4Route},
                                         LinkCase{"RawV6", linktype::raw, nothing, &v6Route},
                                         LinkCase{"RawIpv4Only", linktype::ipv4, nothing, &v4Route},
                                         LinkCase{"RawIpv6Only", linktype::ipv6, nothing, &v6Route}),
                         [](const auto& test) { return test.param.name; });

TEST(Capture, LeavesOutThePaddingOfAShortEthernetFrame)
{
    const Bytes tiny = wire::DatagramWriter{}.build();
    Bytes frame = ethernet(udpPacket(tiny));
    frame.resize(80);

    EXPECT_THAT(readRecording(capture(timed({frame}), linktype::ethernet)).bytes(), ElementsAre(tiny));
}

TEST(Capture, TakesTheUdpLengthNotTheIpLength)
{
    Bytes ip = udpPacket(joined({first, Bytes(6, 0x55)}));
    ip.at(24) = 0;
    ip.at(25) = static_cast<unsigned char>(8 + first.size());

    EXPECT_THAT(readRecording(capture(timed({ip}), linktype::raw)).bytes(), ElementsAre(first));
}

TEST(Capture, CountsWhatIsNeitherUdpNorTcp)
{
    const Bytes arp = joined({Bytes(12, 0xFF), {0x08, 0x06}, Bytes(28)});
    Bytes icmp = udpPacket(Bytes(20));
    icmp.at(9) = 1;

    const Read read =
        readRecording(capture(timed({arp, ethernet(icmp), ethernet(udpPacket(first))}), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_EQ(read.ignored.packets, 3U);
    EXPECT_EQ(read.ignored.protocol, 2U);
    EXPECT_THAT(read.problems, IsEmpty());
}

TEST(Capture, KeepsToTheWantedPortAtEitherEnd)
{
    const std::vector<Bytes> packets{udpPacket(first, {"192.0.2.1", "192.0.2.2", 5555, 1}),
                                     udpPacket(second, {"192.0.2.1", "192.0.2.2", 1, 5555}),
                                     udpPacket(Bytes(99), {"192.0.2.1", "192.0.2.2", 1, 53})};

    const Read read = readRecording(capture(timed(packets), linktype::raw), {5555});

    EXPECT_THAT(read.bytes(), ElementsAre(first, second));
    EXPECT_EQ(read.ignored.port, 1U);
}

TEST(Capture, DoesNotDeliverAPacketThatWasCapturedInPart)
{
    for (const Route& route : {v4Route, v6Route}) {
        Bytes frame = ethernet(udpPacket(first, route));
        const auto whole = static_cast<std::uint32_t>(frame.size());
        frame.resize(whole - 5);
        const CapturedPacket cut{frame, firstNs, whole};

        const Read read = readRecording(
            capture({cut, {ethernet(udpPacket(second, route)), firstNs, {}}}, linktype::ethernet));

        EXPECT_THAT(read.bytes(), ElementsAre(second));
        EXPECT_THAT(read.problems, ElementsAre(HasSubstr("capture whole packets")));
    }
}

TEST(Capture, SaysWhereAPacketCannotBeTakenApart)
{
    Bytes broken = ethernet(udpPacket(first));
    broken.at(14) = 0x4F; // a header of 60 bytes, of which 60 are not there
    broken.resize(40);

    const Read read =
        readRecording(capture(timed({broken, ethernet(udpPacket(second))}), linktype::ethernet));

    EXPECT_THAT(read.bytes(), ElementsAre(second));
    EXPECT_THAT(read.problems,
                ElementsAre(StartsWith("byte 40: expected a whole packet of 40 bytes, found ")));
}

TEST(Capture, RefusesALinkTypeThatItCannotTakeApart)
{
    const Read read = readRecording(capture(timed({Bytes(40)}), linktype::wlan));

    EXPECT_THAT(read.problems,
                ElementsAre("END test: byte 0: expected packets over Ethernet, Linux cooked (v1, "
                            "v2) or raw IP, found IEEE802_11 (105)"));
}

TEST(Capture, RefusesAnUnknownLinkType)
{
    EXPECT_THAT(readRecording(capture({}, 9999)).problems,
                ElementsAre(HasSubstr("found an unknown link type (9999)")));
}

TEST(Capture, WithoutPacketsHoldsNothing)
{
    const Read read = readRecording(capture({}, linktype::ethernet));

    EXPECT_THAT(read.bytes(), IsEmpty());
    EXPECT_THAT(read.problems, IsEmpty());
}

class CutCapture : public testing::TestWithParam<Form> {};

TEST_P(CutCapture, DeliversAllBeforeTheCut)
{
    const Bytes one = ethernet(udpPacket(first));
    const Bytes two = ethernet(udpPacket(second));
    const std::size_t none = capture({}, linktype::ethernet, GetParam()).size();
    const std::size_t afterOne = capture(timed({one}), linktype::ethernet, GetParam()).size();
    const Bytes file = capture(timed({one, two}), linktype::ethernet, GetParam());

    for (std::size_t size = 16; size <= file.size(); ++size) {
        const Read read =
            readRecording(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));

        EXPECT_EQ(read.datagrams.size(), size < afterOne ? 0U : size < file.size() ? 1U : 2U) << size;
        const bool isWhole = size == none || size == afterOne || size == file.size();
        if (size < none)
            continue; // libpcap may not need all of an interface's description
        EXPECT_EQ(read.problems.size(), isWhole ? 0U : 1U) << size;
        if (!isWhole) {
            EXPECT_THAT(read.problems[0],
                        StartsWith("END test: byte " + std::to_string(size < afterOne ? none : afterOne) +
                                   ": expected a whole packet record in the "));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, CutCapture, testing::Values(Form::PcapMicroseconds, Form::PcapNg));

TEST(Capture, LeavesATimeOutThatIsOutOfRange)
{
    CapturedPacket packet{ethernet(udpPacket(first)), 0, {}};
    Bytes file = capture({packet}, linktype::ethernet, Form::PcapNg);
    // The interface counts whole seconds, of which there are 2^63 here.
    const std::size_t interface = 28;
    file.at(interface + 20) = 0;
    const std::size_t packetBlock = interface + 32;
    file.at(packetBlock + 15) = 0x7F;

    const Read read = readRecording(file);

    EXPECT_THAT(read.bytes(), ElementsAre(first));
    EXPECT_THAT(read.times(), ElementsAre(std::nullopt));
}

} // namespace
