// SPDX-License-Identifier: MIT
#include "support/effect_log.h"
#include "toolkit/inspection/inspector.h"
#include "toolkit/support/inspected.h"
#include <gmock/gmock.h>

namespace {

using support::Bytes;
using support::datagramOf;
using testing::ElementsAre;
using wire::DatagramWriter;

class Recorder : public inspection::Sink {
public:
    void datagram(const inspection::DatagramInfo& datagram) override
    {
        log.add("datagram " + std::to_string(datagram.index) + (datagram.valid ? "" : " invalid"));
    }
    void attribute(const inspection::AttributeInfo& attribute) override
    {
        const inspection::AttributeHeader& header = attribute.header;
        std::string text = "attribute " + std::to_string(header.index) + " tag " + std::to_string(header.tag);
        for (const inspection::FieldInfo& field : attribute.fields)
            text += " " + std::to_string(field.bit) + "@" + std::to_string(field.offset);
        log.add(text);
    }
    void dropped(const inspection::Drop& drop) override
    {
        log.add("dropped " + std::to_string(drop.attribute) + " " + drop.reason + ": " + drop.detail + " [" +
                std::to_string(drop.begin) + "," + std::to_string(drop.end) + ")");
    }
    support::EffectLog log;
};

std::vector<std::string> effectsOf(const Bytes& bytes)
{
    Recorder recorder;
    inspection::Inspector inspector{recorder};
    inspector.inspect(datagramOf(bytes));
    return recorder.log.take();
}

bool isSound(const Bytes& bytes)
{
    Recorder recorder;
    inspection::Inspector inspector{recorder};
    inspector.inspect(datagramOf(bytes));
    return inspector.allSound();
}

TEST(Inspector, TellsWhereEachFieldLies)
{
    const Bytes bytes = DatagramWriter{}
                            .attribute(101)
                            .optHeader(Bytes(3))
                            .selectors(0x00A20003)
                            .count(2)
                            .bytes(Bytes(4 + 8 + 8 + 8 + 4))
                            .build();

    EXPECT_THAT(effectsOf(bytes),
                ElementsAre("datagram 0", "attribute 0 tag 101 0@31 1@35 17@43 21@51 23@59"));
}

TEST(Inspector, TellsWhereTheWidenedFieldLiesWhenItIsAlone)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(101).selectors(0x20000).count(3).bytes(Bytes(12)).build()),
        ElementsAre("datagram 0", "attribute 0 tag 101 17@28"));
}

TEST(Inspector, SaysWhichSelectorWordIsTooLarge)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(101).selectors(0xE0400001).count(1).bytes(Bytes(2)).build()),
        ElementsAre("datagram 0",
                    "dropped 0 Too Many Selector Flags: selector word 0xE0400001 at byte 24 [28,30)"));
}

TEST(Inspector, SaysWhichSelectorBitOfAnExtendedAttributeIsUnknown)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(5301).selectors(0x01000001).count(1).bytes(Bytes(2)).build()),
        ElementsAre("datagram 0", "dropped 0 Unknown Selector Flag: selector bit 24 at byte 52 [76,78)"));
}

TEST(Inspector, DropsAllBehindARefusedSelectorWordAndSaysItOnce)
{
    EXPECT_THAT(
        effectsOf(
            DatagramWriter{}.attribute(101).attribute(201).selectors(0x00400000).attribute(301).build()),
        ElementsAre("datagram 0", "attribute 0 tag 101",
                    "dropped 1 Unknown Selector Flag: selector bit 22 at byte 36 [40,52)"));
}

TEST(Inspector, SaysWhichFieldLeavesTheDatagram)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(101).selectors(3).count(1000).bytes(Bytes(2002)).build()),
        ElementsAre("datagram 0",
                    "dropped 0 Truncated: field selBit1 needs 4000 bytes at byte 2028, 2 remain [28,2030)"));
}

TEST(Inspector, SaysThatTheWordsOfTag1301LeaveTheDatagram)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(1301).count(3).bytes(Bytes(11)).build()),
        ElementsAre("datagram 0",
                    "dropped 0 Truncated: field selBit0 needs 12 bytes at byte 28, 11 remain [28,39)"));
}

TEST(Inspector, SaysThatAnOptionalHeaderLeavesTheDatagram)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(401).bytes(Bytes(4)).claimOptHeaderLength(5).build()),
        ElementsAre("datagram 0",
                    "dropped 0 Truncated: optional header needs 5 bytes at byte 28, 4 remain [32,32)"));
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(5101).claimOptHeaderLength(0xFFFFFFFF).build()),
        ElementsAre(
            "datagram 0",
            "dropped 0 Truncated: optional header needs 4294967295 bytes at byte 76, 0 remain [76,76)"));
}

TEST(Inspector, SaysWhatLiesBehindAnExtendedAttribute)
{
    EXPECT_THAT(
        effectsOf(DatagramWriter{}.attribute(5001).attribute(101).build()),
        ElementsAre(
            "datagram 0", "attribute 0 tag 5001",
            "dropped 1 Not Walked: 12 bytes at byte 76: the reader steps 34 times the 60 bytes of the "
            "extended attribute at byte 16 [76,88)"));
}

TEST(Inspector, SaysWhatWasSteppedOverInFrontOfTheNextAttribute)
{
    // The far step of 34 x 60 bytes from byte 16 ends at byte 2056, where another attribute lies.
    const Bytes far =
        DatagramWriter{}.attribute(5001).attribute(9999).bytes(Bytes(2056 - 76 - 12)).attribute(201).build();

    EXPECT_THAT(
        effectsOf(far),
        ElementsAre(
            "datagram 0", "attribute 0 tag 5001",
            "dropped 1 Not Walked: 1980 bytes at byte 76: the reader steps 34 times the 60 bytes of the "
            "extended attribute at byte 16 [76,2056)",
            "attribute 1 tag 201"));
}

TEST(Inspector, SaysThatAHeaderDoesNotFit)
{
    const Bytes normal = DatagramWriter{}.attribute(101).cutTo(28 + 11).build();
    EXPECT_THAT(effectsOf(normal),
                ElementsAre("datagram 0", "attribute 0 tag 101",
                            "dropped 1 Not Walked: 11 bytes at byte 28: attribute header needs 12 "
                            "bytes at byte 28, 11 remain [28,39)"));
    EXPECT_THAT(effectsOf(DatagramWriter{}.attribute(5301).cutTo(16 + 59).build()),
                ElementsAre("datagram 0",
                            "dropped 0 Not Walked: 59 bytes at byte 16: attribute header needs 60 bytes "
                            "at byte 16, 59 remain [16,75)"));
    EXPECT_THAT(effectsOf(DatagramWriter{}.cutTo(17).build()),
                ElementsAre("datagram 0",
                            "dropped 0 Not Walked: 1 bytes at byte 16: attribute header needs 12 bytes "
                            "at byte 16, 1 remain [16,17)"));
}

TEST(Inspector, SaysWhatAnExtendedAttributeClaims)
{
    EXPECT_THAT(effectsOf(DatagramWriter{}.attribute(5301).claimLength(1000).build()),
                ElementsAre("datagram 0",
                            "dropped 0 Not Walked: 60 bytes at byte 16: attribute of tag 5301 at byte 16 "
                            "claims 1024 bytes, 60 remain [16,76)"));
    EXPECT_THAT(effectsOf(DatagramWriter{}.attribute(5301).claimLength(0xFFFFFF00).build()),
                ElementsAre("datagram 0",
                            "dropped 0 Not Walked: 60 bytes at byte 16: attribute of tag 5301 at byte 16 "
                            "claims -232 bytes, 60 remain [16,76)"));
}

TEST(Inspector, CallsDataSoundWhenNothingIsDroppedButUnknownTags)
{
    EXPECT_TRUE(isSound(DatagramWriter{}.attribute(9999).attribute(101).attribute(5301).build()));
    EXPECT_FALSE(isSound(DatagramWriter{}.magic(1).build()));
    EXPECT_FALSE(isSound(DatagramWriter{}.attribute(101).selectors(1).count(1).build()));
}

TEST(Inspector, CountsDatagramsThatItSkips)
{
    Recorder recorder;
    inspection::Inspector inspector{recorder};

    inspector.skip();
    inspector.inspect(datagramOf(DatagramWriter{}.magic(2).build()));

    EXPECT_THAT(recorder.log.take(), ElementsAre("datagram 1 invalid"));
    EXPECT_EQ(inspector.count(), 2U);
}

TEST(Inspector, TakesEveryPrefixOfADatagram)
{
    const Bytes whole = DatagramWriter{}
                            .attribute(501)
                            .selectors(0x20003)
                            .count(2)
                            .optHeader(Bytes(50))
                            .bytes(Bytes(20))
                            .attribute(9999)
                            .optHeader(Bytes(5))
                            .attribute(401)
                            .bytes(Bytes(7))
                            .attribute(5301)
                            .optHeader(Bytes(74))
                            .selectors(0x1)
                            .count(1)
                            .bytes(Bytes(2))
                            .build();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<std::string> effects =
            effectsOf(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(effects.front(), size < 4 ? "datagram 0 invalid" : "datagram 0") << size;
    }
    EXPECT_THAT(effectsOf(whole),
                ElementsAre("datagram 0", "attribute 0 tag 501 0@78 1@82 17@90", "attribute 1 tag 9999",
                            "attribute 2 tag 401", "attribute 3 tag 5301 0@268"));
}

} // namespace
