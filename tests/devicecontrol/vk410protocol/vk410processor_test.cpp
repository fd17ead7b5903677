// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/losstext.h"
#include "nqbase/nqexception.h"
#include "support/delivered.h"
#include "support/effect_log.h"
#include "support/trace_capture.h"
#include <functional>
#include <gmock/gmock.h>
#include <stdexcept>

using support::EffectLog;
using support::received;
using support::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

class Listener : public IMassDataProcessor {
public:
    Listener(EffectLog& log, std::string name)
        : m_log(log)
        , m_name(std::move(name))
    {}
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* /*attribute*/,
                      bool optHeaderAvailable) override
    {
        m_log.add(m_name + (optHeaderAvailable ? " opt" : ""));
        if (onAttribute)
            onAttribute(data);
    }
    std::function<void(DataPointers*)> onAttribute;
    using IMassDataProcessor::Path;

private:
    EffectLog& m_log;
    std::string m_name;
};

class VK410ProcessorTest : public testing::Test {
protected:
    void process(VK410Processor& dispatcher, const Bytes& bytes)
    {
        dispatcher.ProcessDatagram(std::make_unique<UdpDatagram>(received(bytes)).release());
    }
    EffectLog log;
    TraceCapture traces{0xFFFFFFFF, &log};
    Listener a{log, "a"};
    Listener b{log, "b"};
    VK410Processor byChannel{false};
    VK410Processor ignoring{true};
};

TEST_F(VK410ProcessorTest, HandsAnAttributeToTheProcessorOfItsTagAndChannel)
{
    byChannel.RegisterTagProcessor(&a, TAG_301, 3);
    byChannel.RegisterTagProcessor(&b, TAG_301, 0);
    process(byChannel,
            DatagramWriter{}.attribute(301, 3).optHeader({1}).attribute(301, 0).attribute(301, 4).build());
    EXPECT_THAT(log.take(), ElementsAre("a opt", "b"));
}

TEST_F(VK410ProcessorTest, SendsEveryChannelToChannel0WhenItIgnoresChannels)
{
    ignoring.RegisterTagProcessor(&a, TAG_301, 0);
    ignoring.RegisterTagProcessor(&b, TAG_301, 3);
    process(ignoring, DatagramWriter{}.attribute(301, 3).attribute(301, 0).build());
    EXPECT_THAT(log.take(), ElementsAre("a", "a"));
}

TEST_F(VK410ProcessorTest, SendsTags1801And5101ToChannel0InBothModes)
{
    for (VK410Processor* const dispatcher : {&byChannel, &ignoring}) {
        dispatcher->RegisterTagProcessor(&a, TAG_1801, 0);
        dispatcher->RegisterTagProcessor(&b, TAG_5101, 0);
        process(*dispatcher, DatagramWriter{}.attribute(1801, 2).attribute(5101, 2).build());
        EXPECT_THAT(log.take(), ElementsAre("a", "b"));
    }
}

TEST_F(VK410ProcessorTest, UsesAll32BitsOfAnExtendedChannel)
{
    byChannel.RegisterTagProcessor(&a, TAG_5301, 0x01020304);
    process(byChannel, DatagramWriter{}.attribute(5301, 0x01020304).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
}

TEST_F(VK410ProcessorTest, KeepsTheFirstProcessorOfAKey)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    byChannel.RegisterTagProcessor(&b, TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(101).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
}

TEST_F(VK410ProcessorTest, ForgetsAnUnregisteredProcessorAndIgnoresUnknownKeysAndNull)
{
    byChannel.RegisterTagProcessor(nullptr, TAG_101, 0);
    byChannel.UnRegisterTagProcessor(TAG_201, 7);
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    byChannel.UnRegisterTagProcessor(TAG_101, 1);
    byChannel.UnRegisterTagProcessor(TAG_201, 0);
    process(byChannel, DatagramWriter{}.attribute(101).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
    byChannel.UnRegisterTagProcessor(TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(101).build());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VK410ProcessorTest, SkipsUnknownTagsAndUnroutedAttributesSilently)
{
    byChannel.RegisterTagProcessor(&a, TAG_201, 0);
    process(byChannel, DatagramWriter{}.attribute(102).attribute(101).attribute(201).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
}

TEST_F(VK410ProcessorTest, DropsADatagramWithoutMagicSilently)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel, DatagramWriter{}.magic(0x000C5A11).attribute(101).build());
    byChannel.ProcessDatagram(nullptr);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VK410ProcessorTest, DeliversWhatComesBeforeASelectorErrorThenTracesAndDropsTheRest)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel,
            DatagramWriter{}.attribute(101).attribute(101).selectors(0x400000).attribute(101).build());
    EXPECT_THAT(log.take(),
                ElementsAre("a",
                            "trace Throwing Exception - Unknown SelectorFlag: 4194304 "
                            "(devicecontrol/vk410protocol/udpdatagram:452)",
                            "trace Exception while processing UDP-Attribute: Unknown Selector Flag "
                            "(devicecontrol/vk410protocol/vk410processor:67)"));
}

TEST_F(VK410ProcessorTest, TracesTooManySelectorFlags)
{
    process(byChannel, DatagramWriter{}.attribute(101).selectors(0xE0400001).build());
    EXPECT_THAT(log.take(),
                ElementsAre("trace Exception while processing UDP-Attribute: Too Many Selector Flags "
                            "(devicecontrol/vk410protocol/vk410processor:67)"));
}

TEST_F(VK410ProcessorTest, ASelectorErrorDropsTheRestAlsoWhereNobodyIsRegisteredAndNothingIsTraced)
{
    ErrorHandler::Instance()->SetTraceMask(0xFFFFFFDF);
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(201).selectors(0x400000).attribute(101).build());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VK410ProcessorTest, AnUnknownTagsSelectorsAreNotLookedAt)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(102).selectors(0x400000).attribute(101).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
}

TEST_F(VK410ProcessorTest, EndsSilentlyWhereAFieldLeavesTheDatagram)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(101).attribute(101).selectors(1).count(1).build());
    EXPECT_THAT(log.take(), ElementsAre("a"));
}

TEST_F(VK410ProcessorTest, PassesOnWhatAProcessorThrowsAndWorksOnAfterwards)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    a.onAttribute = [](DataPointers*) { throw std::runtime_error("full"); };
    const Bytes bytes = DatagramWriter{}
                            .attribute(101)
                            .selectors(0x20000)
                            .count(1)
                            .items<std::int32_t>({1})
                            .attribute(101)
                            .build();
    EXPECT_THROW(process(byChannel, bytes), std::runtime_error);
    a.onAttribute = [](DataPointers*) { throw NQException("r", "c", "f", "m", 1); };
    EXPECT_THROW(process(byChannel, bytes), NQException);
    a.onAttribute = nullptr;
    process(byChannel, bytes);
    EXPECT_THAT(log.take(), ElementsAre("a", "a", "a", "a"));
}

TEST_F(VK410ProcessorTest, KeepsEachArrayOfBit17DuringItsCallAndLeaksNone)
{
    std::vector<quint64> seen;
    a.onAttribute = [&](DataPointers* data) { seen.push_back(data->selBit17[0]); };
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    DatagramWriter writer;
    for (const int value : {1, 2, 3})
        writer.attribute(101).selectors(0x20000).count(1).items<std::int32_t>({value});
    process(byChannel, writer.build());
    // Bit 17 is allocated before bit 22 is found unknown.
    process(byChannel, writer.attribute(101).selectors(0x420000).count(1).items<std::int32_t>({4}).build());
    EXPECT_THAT(seen, ElementsAre(1U, 2U, 3U, 1U, 2U, 3U));
}

TEST_F(VK410ProcessorTest, HandsOutTheSameRecordForEveryAttribute)
{
    std::vector<DataPointers*> records;
    a.onAttribute = [&](DataPointers* data) { records.push_back(data); };
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    process(byChannel, DatagramWriter{}.attribute(101).attribute(101).build());
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0], records[1]);
}

TEST_F(VK410ProcessorTest, AllowsRegistrationFromInsideAProcessor)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    a.onAttribute = [&](DataPointers*) {
        byChannel.UnRegisterTagProcessor(TAG_101, 0);
        byChannel.RegisterTagProcessor(&b, TAG_101, 0);
        byChannel.RegisterTagProcessor(&b, TAG_201, 0);
    };
    process(byChannel, DatagramWriter{}.attribute(101).attribute(101).attribute(201).build());
    EXPECT_THAT(log.take(), ElementsAre("a", "b", "b"));
}

TEST_F(VK410ProcessorTest, RunsANestedDatagramWholeAndGivesTheOuterRecordBack)
{
    byChannel.RegisterTagProcessor(&a, TAG_101, 0);
    byChannel.RegisterTagProcessor(&b, TAG_201, 0);
    std::vector<quint64> outer;
    a.onAttribute = [&](DataPointers* data) {
        const DataPointers before = *data;
        process(byChannel,
                DatagramWriter{}.attribute(201).selectors(0x20000).count(1).items<std::int32_t>({9}).build());
        EXPECT_EQ(data->selBit17, before.selBit17);
        EXPECT_EQ(data->dataEnd, before.dataEnd);
        outer.push_back(data->selBit17[0]);
    };
    process(byChannel, DatagramWriter{}
                           .attribute(101)
                           .selectors(0x20000)
                           .count(1)
                           .items<std::int32_t>({5})
                           .attribute(201)
                           .build());
    EXPECT_THAT(log.take(), ElementsAre("a", "b", "b"));
    EXPECT_THAT(outer, ElementsAre(5U));
}

TEST_F(VK410ProcessorTest, DoesNotDestroyItsProcessors)
{
    {
        VK410Processor shortLived{false};
        shortLived.RegisterTagProcessor(&a, TAG_101, 0);
        EXPECT_EQ(shortLived.parent(), nullptr);
    }
    a.Init("/RX1");
    EXPECT_EQ(a.Path(), "/RX1");
}

TEST(VK410ProcessorSequence, ComposesTheLossAndWritesNothing)
{
    EXPECT_EQ(datagramLossText(7, 10), "2 Datagrams from 8 to 9LOST !!!\n");
    EffectLog log;
    TraceCapture traces{0x40, &log};
    VK410Processor dispatcher{false};
    for (const std::uint16_t sequence : std::initializer_list<std::uint16_t>{7, 10, 3})
        dispatcher.ProcessDatagram(new UdpDatagram{received(DatagramWriter{}.sequence(sequence).build())});
    EXPECT_THAT(log.take(), IsEmpty());
}

struct LossCase {
    const char* name;
    quint16 last;
    quint16 current;
    const char* text;
};
class DatagramLossText : public testing::TestWithParam<LossCase> {};

TEST_P(DatagramLossText, CountsIn32BitsWithoutWrapping)
{
    EXPECT_EQ(datagramLossText(GetParam().last, GetParam().current).toStdString(), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Jumps, DatagramLossText,
    testing::Values(LossCase{"TwoMissing", 7, 10, "2 Datagrams from 8 to 9LOST !!!\n"},
                    LossCase{"Repeated", 5, 5, "-1 Datagrams from 6 to 4LOST !!!\n"},
                    LossCase{"Backwards", 10, 3, "-8 Datagrams from 11 to 2LOST !!!\n"},
                    LossCase{"FromBeyondTheLargest", 65535, 1, "-65535 Datagrams from 65536 to 0LOST !!!\n"},
                    LossCase{"ToBelowZero", 9, 0, "-10 Datagrams from 10 to -1LOST !!!\n"}),
    [](const testing::TestParamInfo<LossCase>& each) { return each.param.name; });

} // namespace
