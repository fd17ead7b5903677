// SPDX-License-Identifier: MIT
#include "toolkit/inspection/explanation.h"
#include "toolkit/support/inspected.h"
#include "wire/optheader.h"
#include <algorithm>
#include <gmock/gmock.h>

namespace {

using support::Bytes;
using support::datagramOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using wire::DatagramWriter;

// Runs of blanks become one.
std::string squeezed(const std::string& line)
{
    std::string result;
    for (const char character : line) {
        if (character != ' ' || (!result.empty() && result.back() != ' '))
            result += character;
    }
    return result;
}

std::vector<std::string> explained(recording::Datagram datagram)
{
    support::Output out;
    inspection::Explanation explanation{out.file()};
    inspection::Inspector inspector{explanation};
    inspector.inspect(std::move(datagram));
    std::vector<std::string> lines = out.lines();
    std::transform(lines.begin(), lines.end(), lines.begin(), squeezed);
    return lines;
}

std::vector<std::string> explained(const Bytes& bytes)
{
    return explained(datagramOf(bytes));
}

TEST(Explanation, NamesEveryByteOfADatagram)
{
    EXPECT_THAT(
        explained(DatagramWriter{}
                      .sequence(258)
                      .attribute(201, 4)
                      .selectors(3)
                      .count(2)
                      .optHeader(Bytes{0xAA, 0xBB})
                      .items<std::int16_t>({-1, 2})
                      .items<std::int32_t>({3, -4})
                      .bytes({7})
                      .build()),
        ElementsAre(
            "datagram 0: 43 bytes at byte 0 of the file", "", "byte bytes name value",
            "0 00 0C 5A 10 magic good", "4 00 00 00 00 not interpreted", "8 01 02 sequence 258",
            "10 00 00 not interpreted", "12 00 00 00 2B totalLength 43", "attribute 0", "16 00 C9 tag 201",
            "18 00 17 length 23: the attribute takes 27 bytes", "20 00 02 count 2", "22 04 channel 4",
            "23 02 optHeaderLength 2", "24 00 00 00 03 selectors 0x00000003 selBit0 selBit1",
            "28 AA BB optHeader 2 bytes not interpreted", "30 FF FF 00 02 selBit0 2 items of 16 bits: -1, 2",
            "34 00 00 00 03 FF FF FF FC selBit1 2 items of 32 bits: 3, -4", "42 07 1 bytes not interpreted"));
}

TEST(Explanation, TellsSenderAndTime)
{
    recording::Datagram datagram = datagramOf(DatagramWriter{}.build(), 82);
    datagram.receivedNs = support::firstNs;
    datagram.origin.transport = recording::Transport::Udp;

    const std::vector<std::string> lines = explained(std::move(datagram));

    EXPECT_THAT(lines, Contains("datagram 0: 16 bytes at byte 82 of the file"));
    EXPECT_THAT(lines, Contains("received 2023-11-14T22:13:20.000000000Z, udp 0.0.0.0:0 > 0.0.0.0:0"));
}

TEST(Explanation, NamesTheFieldsOfTheOptionalHeadersThatSomebodyReads)
{
    wire::OptHeaderWriter header{wire::ifpan::size};
    header.set(wire::ifpan::centreFrequencyLow, 98'500'000).set(wire::ifpan::timeStamp, -5);

    const std::vector<std::string> lines =
        explained(DatagramWriter{}.attribute(501).optHeader(header.bytes()).build());

    EXPECT_THAT(lines, Contains("28 05 DE FD A0 centreFrequencyLow 98500000"));
    EXPECT_THAT(lines, Contains("60 FF FF FF FF FF FF FF FB timeStamp -5"));
    EXPECT_THAT(lines, Contains("76 00 00 half48 0"));
}

TEST(Explanation, ReadsOptionalHeadersInTheByteOrderOfTheirAttribute)
{
    for (const std::uint16_t tag : std::initializer_list<std::uint16_t>{301, 501, 1801}) {
        const Bytes little{1, 0, 0, 0};
        EXPECT_THAT(
            explained(DatagramWriter{}.attribute(tag).selectors(0x20000000).optHeader(little).build()),
            Contains(HasSubstr("28 01 00 00 00 " + std::string{tag == 501 ? "centreFrequencyLow" : "word0"} +
                               " 1")))
            << tag;
    }
    EXPECT_THAT(explained(DatagramWriter{}.attribute(301).optHeader(Bytes{0, 0, 0, 1}).build()),
                Contains("28 00 00 00 01 word0 1"));
}

TEST(Explanation, ShowsFloatsSmallNumbersAndBytesOfTheDfScanHeader)
{
    Bytes header(wire::dfscan::size);
    header[32] = 0x3F; // 0.5
    header[73] = 0xFE;

    const std::vector<std::string> lines =
        explained(DatagramWriter{}.attribute(5301).optHeader(header).build());

    EXPECT_THAT(lines, Contains("76 00 00 00 00 00 00 00 00 bytes0 not interpreted"));
    EXPECT_THAT(lines, Contains("108 3F 00 00 00 float32 0.5"));
    EXPECT_THAT(lines, Contains("149 FE eigenValueCount -2"));
    EXPECT_THAT(lines, Contains("56 00 00 00 00 word40 0"));
    EXPECT_THAT(lines, Contains("24 00 00 00 00 00 00 00 00 .. not interpreted"));
}

TEST(Explanation, SaysWhatTheFlagsOfADirectionFindingScanMean)
{
    const auto flagsLine = [](std::int32_t flags) {
        wire::OptHeaderWriter header{wire::dfscan::size};
        header.set(wire::dfscan::dfFlags, flags);
        for (const std::string& line :
             explained(DatagramWriter{}.attribute(5301).optHeader(header.bytes()).build())) {
            if (line.starts_with("124 "))
                return line;
        }
        return std::string{};
    };

    EXPECT_EQ(flagsLine(0x1001), "124 00 00 10 01 dfFlags 4097: valid, method 1");
    EXPECT_EQ(flagsLine(0x02007016),
              "124 02 00 70 16 dfFlags 33583126: not valid, overflow, blanking, end of sweep, polar "
              "frequency, method 7");
}

TEST(Explanation, ShowsTheRestOfAHeaderThatIsCutInsideANumber)
{
    const std::vector<std::string> lines =
        explained(DatagramWriter{}.attribute(301).optHeader(Bytes(6, 1)).build());

    EXPECT_THAT(lines, Contains("28 01 01 01 01 word0 16843009"));
    EXPECT_THAT(lines, Contains("32 01 01 optHeader 2 bytes not interpreted"));
}

TEST(Explanation, ShowsTheFirstItemsOfALongField)
{
    EXPECT_THAT(
        explained(support::traceDatagram(1, 1601)),
        Contains("28 00 01 00 02 00 03 00 04 .. selBit0 1601 items of 16 bits: 1, 2, 3, 4, 5, 6, 7, 8, .."));
}

TEST(Explanation, ShowsTheBytesOfTag401)
{
    EXPECT_THAT(explained(DatagramWriter{}.attribute(401).bytes({1, 2, 3}).build()),
                Contains("28 01 02 03 selBit0 3 bytes as they came"));
}

TEST(Explanation, SaysThatAnUnknownTagIsSteppedOver)
{
    EXPECT_THAT(explained(DatagramWriter{}.attribute(9999).bytes({1}).build()),
                Contains("16 27 0F tag 9999: unknown, stepped over"));
}

TEST(Explanation, SaysWhyAnAttributeWasDropped)
{
    const std::vector<std::string> lines =
        explained(DatagramWriter{}.attribute(101).selectors(0x00400001).count(1).bytes({0, 5}).build());

    EXPECT_THAT(lines, Contains("24 00 40 00 01 selectors 0x00400001 selBit0 selBit22 (unknown)"));
    EXPECT_THAT(lines, Contains("28 00 05 2 bytes dropped"));
    EXPECT_EQ(lines.back(), "dropped: Unknown Selector Flag: selector bit 22 at byte 24");
}

TEST(Explanation, SaysWhyBytesWereNotWalked)
{
    const std::vector<std::string> lines = explained(DatagramWriter{}.attribute(101).cutTo(31).build());

    EXPECT_THAT(lines, Contains("28 00 00 00 3 bytes dropped"));
    EXPECT_EQ(
        lines.back(),
        "dropped: Not Walked: 3 bytes at byte 28: attribute header needs 12 bytes at byte 28, 3 remain");
}

TEST(Explanation, SaysWhyADatagramIsInvalid)
{
    const std::vector<std::string> lines =
        explained(DatagramWriter{}.magic(0x01020304).attribute(101).build());

    EXPECT_THAT(lines, Contains("0 01 02 03 04 magic bad: 00 0C 5A 10 or 10 5A 0C 00 expected"));
    EXPECT_THAT(lines, Contains(HasSubstr("16 00 65 00 08 00 00 00 00 .. not interpreted")));
    EXPECT_EQ(lines.back(), "dropped: the whole datagram, for its magic");
}

TEST(Explanation, NotesFieldsThatRunIntoTheNextAttribute)
{
    const Bytes bytes =
        DatagramWriter{}.attribute(101).selectors(1).count(4).bytes(Bytes(2)).attribute(201).build();

    EXPECT_THAT(explained(bytes), Contains("note: the fields end 6 bytes behind the attribute's own length"));
}

TEST(Explanation, TakesDatagramsOfAnySize)
{
    const Bytes whole = support::traceDatagram(1, 3);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<std::string> lines =
            explained(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(lines.front(), "datagram 0: " + std::to_string(size) + " bytes at byte 0 of the file");
    }
}

} // namespace
