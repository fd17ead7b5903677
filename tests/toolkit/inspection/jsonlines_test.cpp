// SPDX-License-Identifier: MIT
#include "toolkit/inspection/jsonlines.h"
#include "toolkit/support/inspected.h"
#include "wire/optheader.h"
#include <gmock/gmock.h>

namespace {

using support::Bytes;
using support::datagramOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using wire::DatagramWriter;

std::vector<std::string> jsonOf(const std::vector<Bytes>& datagrams)
{
    support::Output out;
    inspection::JsonLines lines{out.file()};
    inspection::Inspector inspector{lines};
    std::uint64_t position = 0;
    for (const Bytes& datagram : datagrams) {
        inspector.inspect(datagramOf(datagram, position));
        position += datagram.size();
    }
    return out.lines();
}

// The line of the only attribute.
std::string attributeLine(const DatagramWriter& writer)
{
    const std::vector<std::string> lines = jsonOf({writer.build()});
    return lines.size() == 2 ? lines[1] : "not one attribute";
}

TEST(JsonLines, TellDatagramsAttributesAndErrorsInTheOrderOfTheWalk)
{
    const Bytes good = DatagramWriter{}
                           .sequence(7)
                           .attribute(501)
                           .selectors(1)
                           .count(2)
                           .items<std::int16_t>({-730, 125})
                           .build();
    const Bytes bad = DatagramWriter{}
                          .sequence(8)
                          .attribute(101, 3)
                          .attribute(501)
                          .selectors(0x00400001)
                          .count(1)
                          .items<std::int16_t>({1})
                          .build();

    EXPECT_THAT(
        jsonOf({good, bad}),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":32,"valid":true,"sequence":7})",
                    R"({"type":"attribute","datagram":0,"index":0,"offset":16,"tag":501,"known":true,)"
                    R"("channel":0,"count":2,"selectors":1,"fields":{"selBit0":[-730,125]},"dataEnd":32})",
                    R"({"type":"datagram","index":1,"offset":32,"size":42,"valid":true,"sequence":8})",
                    R"({"type":"attribute","datagram":1,"index":0,"offset":16,"tag":101,"known":true,)"
                    R"("channel":3,"count":0,"selectors":0,"fields":{},"dataEnd":28})",
                    R"({"type":"error","datagram":1,"attribute":1,"reason":"Unknown Selector Flag",)"
                    R"("detail":"selector bit 22 at byte 36"})"));
}

TEST(JsonLines, TellWhoSentADatagramAndWhenWhereThatIsKnown)
{
    support::Output out;
    inspection::JsonLines lines{out.file()};
    inspection::Inspector inspector{lines};
    recording::Datagram datagram = datagramOf(DatagramWriter{}.build(), 82);
    datagram.receivedNs = support::firstNs + 5;
    datagram.origin.transport = recording::Transport::Udp;
    datagram.origin.from = {{192, 0, 2, 1}, false, 5555};
    datagram.origin.to = {{192, 0, 2, 2}, false, 4444};

    inspector.inspect(std::move(datagram));

    EXPECT_THAT(
        out.lines(),
        ElementsAre(R"({"type":"datagram","index":0,"offset":82,"size":16,"valid":true,"sequence":0,)"
                    R"("received":1700000000000000005,"source":"udp 192.0.2.1:5555 > 192.0.2.2:4444"})"));
}

TEST(JsonLines, TellADatagramWithABadMagicAndNothingInIt)
{
    EXPECT_THAT(
        jsonOf({DatagramWriter{}.magic(1).attribute(101).build()}),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":28,"valid":false,"sequence":0})"));
}

TEST(JsonLines, LeaveTheSequenceOpenWhereThereAreTooFewBytesForIt)
{
    EXPECT_THAT(
        jsonOf({DatagramWriter{}.cutTo(9).build()}),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":9,"valid":true,"sequence":null})"));
    EXPECT_THAT(
        jsonOf({DatagramWriter{}.sequence(3).cutTo(10).build()}),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":10,"valid":true,"sequence":3})"));
    EXPECT_THAT(
        jsonOf({Bytes{}}),
        ElementsAre(R"({"type":"datagram","index":0,"offset":0,"size":0,"valid":false,"sequence":null})"));
}

struct TagCase {
    std::uint16_t tag;
    const char* fields;  // of selectors 3, count 2: -2, 3 and -70000, 4
    const char* dataEnd; // of a normal and of an extended attribute differ
};

class JsonOfTag : public testing::TestWithParam<TagCase> {};

TEST_P(JsonOfTag, HoldsItsFields)
{
    const TagCase& expected = GetParam();
    const std::string head = R"({"type":"attribute","datagram":0,"index":0,"offset":16,"tag":)" +
                             std::to_string(expected.tag) + R"(,"known":true,"channel":5,"count":2,)";

    EXPECT_EQ(attributeLine(DatagramWriter{}
                                .attribute(expected.tag, 5)
                                .selectors(3)
                                .count(2)
                                .items<std::int16_t>({-2, 3})
                                .items<std::int32_t>({-70000, 4})),
              head + R"("selectors":3,"fields":)" + expected.fields + R"(,"dataEnd":)" + expected.dataEnd +
                  "}");
}

constexpr char walked[] = R"({"selBit0":[-2,3],"selBit1":[-70000,4]})";
INSTANTIATE_TEST_SUITE_P(
    All, JsonOfTag,
    testing::Values(TagCase{101, walked, "40"}, TagCase{201, walked, "40"}, TagCase{301, walked, "40"},
                    TagCase{401, R"({"selBit0":"fffe0003fffeee9000000004"})", "null"},
                    TagCase{501, walked, "40"}, TagCase{601, walked, "40"}, TagCase{701, walked, "40"},
                    TagCase{801, walked, "40"}, TagCase{901, walked, "40"}, TagCase{1001, walked, "40"},
                    TagCase{1101, walked, "40"}, TagCase{1201, walked, "40"},
                    TagCase{1301, R"({"selBit0":[-131069,-70000]})", "null"}, TagCase{1401, walked, "40"},
                    TagCase{1601, walked, "40"}, TagCase{1801, walked, "40"}, TagCase{1901, walked, "40"},
                    TagCase{2401, walked, "40"}, TagCase{2501, walked, "40"}, TagCase{5001, walked, "88"},
                    TagCase{5101, walked, "88"}, TagCase{5201, walked, "40"}, TagCase{5301, walked, "88"}),
    [](const auto& test) { return std::to_string(test.param.tag); });

TEST(JsonLines, NameEveryFieldAndPrintSignedNumbersExceptForBit17)
{
    DatagramWriter writer;
    writer.attribute(201).selectors(0x00BFFFFF).count(1);
    for (unsigned bit = 0; bit < wire::itemSize.size(); ++bit) {
        if (wire::itemSize[bit] == 2)
            writer.items<std::int16_t>({static_cast<std::int16_t>(-100 - static_cast<int>(bit))});
        if (wire::itemSize[bit] == 4)
            writer.items<std::int32_t>({-100'000 - static_cast<std::int32_t>(bit)});
    }

    EXPECT_THAT(
        attributeLine(writer),
        HasSubstr(R"("fields":{"selBit0":[-100],"selBit1":[-100001],"selBit2":[-102],"selBit3":[-103],)"
                  R"("selBit4":[-104],"selBit5":[-105],"selBit6":[-100006],"selBit7":[-100007],)"
                  R"("selBit8":[-100008],"selBit9":[-109],"selBit10":[-100010],"selBit11":[-111],)"
                  R"("selBit12":[-112],"selBit13":[-113],"selBit14":[-114],"selBit15":[-115],)"
                  R"("selBit16":[-116],"selBit17":[4294867279],"selBit18":[-118],"selBit19":[-119],)"
                  R"("selBit20":[-120],"selBit21":[-100021],"selBit23":[-123]},"dataEnd":88})"));
}

TEST(JsonLines, ShowLittleEndianDataAsNumbersToo)
{
    EXPECT_THAT(
        attributeLine(
            DatagramWriter{}.attribute(201).selectors(0x20000001).count(2).items<std::int16_t>({-2, 3})),
        HasSubstr(R"("selectors":536870913,"fields":{"selBit0":[-2,3]})"));
}

TEST(JsonLines, KeepAFieldWithoutItems)
{
    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(201).selectors(0x20003)),
                HasSubstr(R"("fields":{"selBit0":[],"selBit1":[],"selBit17":[]},"dataEnd":28})"));
}

TEST(JsonLines, ShowTheOptionalHeaderAsTheReaderLeavesIt)
{
    const Bytes header{0, 0, 0, 1, 0, 0, 0, 2};

    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(301).optHeader(header)),
                HasSubstr(R"("selectors":0,"optHeader":"0100000002000000","fields":{})"));
    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(501).optHeader(header)),
                HasSubstr(R"("optHeader":"0000000100000002")"));
    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(5301).optHeader(header)),
                HasSubstr(R"("optHeader":"0000000100000002","fields":{},"dataEnd":84)"));
}

TEST(JsonLines, NameTheNumbersOfADirectionFindingHeaderInBothByteOrdersAsFarAsItHoldsThem)
{
    namespace layout = wire::dfscan;
    for (const wire::ByteOrder order : {wire::ByteOrder::Big, wire::ByteOrder::Little}) {
        wire::OptHeaderWriter header{layout::size, order};
        header.set(layout::startFrequency, 145'000'000)
            .set(layout::firstChannel, -3)
            .set(layout::dfFlags, 0x1013)
            .set(layout::jobId, 7)
            .set(layout::eigenValueCount, -2);
        const std::uint32_t selectors = order == wire::ByteOrder::Little ? 0x20000000 : 0;
        const std::string line =
            attributeLine(DatagramWriter{}.attribute(5301).selectors(selectors).optHeader(header.bytes()));
        EXPECT_THAT(
            line,
            HasSubstr(
                R"(","optHeaderFields":{"startFrequency":145000000,"firstChannel":-3,"stepNumerator":0,)"
                R"("stepDenominator":0,"span":0,"averagingTimeOffset":0,"dfFlags":4115,"sweepTime":0,)"
                R"("timestamp":0,"jobId":7,"superResolutionFields":0,"superResolutionCount":0,)"
                R"("eigenValueCount":-2},"fields":{)"));
    }
    EXPECT_THAT(
        attributeLine(DatagramWriter{}.attribute(5301).optHeader(Bytes(23, 1))),
        HasSubstr(R"("optHeaderFields":{"startFrequency":72340172838076673,"firstChannel":16843009},)"));
}

TEST(JsonLines, EndTag401WithItsAttributeOrTheDatagram)
{
    const DatagramWriter writer =
        DatagramWriter{}.attribute(401).optHeader(Bytes{9}).bytes({1, 2, 3}).attribute(101);
    EXPECT_THAT(jsonOf({writer.build()}).at(1),
                HasSubstr(R"("optHeader":"09","fields":{"selBit0":"010203"})"));

    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(401).bytes({1, 2, 3}).claimLength(1000)),
                HasSubstr(R"("fields":{"selBit0":"010203"})"));
    EXPECT_THAT(jsonOf({DatagramWriter{}.attribute(401).bytes({1, 2, 3}).claimLength(4).build()}).at(1),
                HasSubstr(R"("fields":{"selBit0":""})"));
}

TEST(JsonLines, ShowAnAttributeOfAnUnknownTagWithItsHeader)
{
    EXPECT_EQ(
        attributeLine(
            DatagramWriter{}.attribute(9999, 4).selectors(0xFFFFFFFF).count(7).optHeader(Bytes{1, 2})),
        R"({"type":"attribute","datagram":0,"index":0,"offset":16,"tag":9999,"known":false,"channel":4,)"
        R"("count":7,"selectors":4294967295,"optHeader":"0102","fields":{},"dataEnd":null})");
    EXPECT_THAT(attributeLine(DatagramWriter{}.attribute(9999).claimOptHeaderLength(9)),
                HasSubstr(R"("selectors":0,"fields":{})"));
}

TEST(JsonLines, CountTheItemsOfAnExtendedAttributeAsTheReaderDoes)
{
    EXPECT_THAT(attributeLine(DatagramWriter{}
                                  .attribute(5001, 70000)
                                  .selectors(1)
                                  .count(0x00010002)
                                  .items<std::int16_t>({1, 2})),
                HasSubstr(R"("channel":70000,"count":2,"selectors":1,"fields":{"selBit0":[1,2]})"));
}

} // namespace
