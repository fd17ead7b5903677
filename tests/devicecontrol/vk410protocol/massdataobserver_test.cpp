// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "support/delivered.h"
#include <gmock/gmock.h>
#include <sstream>
#include <stdexcept>

using support::received;
using testing::ElementsAre;
using wire::Bytes;
using wire::DatagramWriter;

namespace {

class Log : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport& r) override
    {
        std::ostringstream line;
        line << (r.valid ? "datagram " : "invalid ") << r.size;
        if (r.hasSequence)
            line << " #" << r.sequence;
        if (r.bytesNotWalked != 0)
            line << " not walked " << r.bytesNotWalked;
        lines.push_back(line.str());
    }
    void AttributeDone(const AttributeReport& r) override
    {
        static const char* const names[]{"dispatched", "unknown tag", "unrouted", "selector error",
                                         "truncated"};
        std::ostringstream line;
        line << names[static_cast<int>(r.outcome)] << ' ' << r.tag << '/' << r.channel << " at " << r.offset
             << '+' << r.size;
        if (!r.reason.isEmpty())
            line << ' ' << r.reason.toStdString();
        lines.push_back(line.str());
    }
    void AttributeNotAccepted(const char* reason) override
    {
        lines.push_back(std::string("not accepted: ") + reason);
    }
    void StreamBroken(quint32) override {}
    void MirrorClientCut(qint64) override {}
    std::vector<std::string> lines;
};

class Refusing : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override
    {
        NotAccepted("no optional header");
    }
};

class MassDataObserverTest : public testing::Test {
protected:
    std::vector<std::string> told(const Bytes& bytes)
    {
        log.lines.clear();
        dispatcher.SetMassDataObserver(&log);
        dispatcher.RegisterTagProcessor(&recorder, TAG_101, 0);
        dispatcher.ProcessDatagram(new UdpDatagram{received(bytes)});
        return log.lines;
    }
    Log log;
    support::RecordingProcessor recorder;
    VK410Processor dispatcher{false};
};

TEST_F(MassDataObserverTest, IsToldTheOutcomeOfEveryAttributeAndThenOfTheDatagram)
{
    EXPECT_THAT(told(DatagramWriter{}.sequence(7).attribute(101).attribute(777, 4).attribute(201, 9).build()),
                ElementsAre("dispatched 101/0 at 16+12", "unknown tag 777/4 at 28+12",
                            "unrouted 201/9 at 40+12", "datagram 52 #7"));
}

TEST_F(MassDataObserverTest, IsToldAboutASelectorErrorAndTheBytesBehindIt)
{
    EXPECT_THAT(
        told(DatagramWriter{}.attribute(101).selectors(0x400000).attribute(101).build()),
        ElementsAre("selector error 101/0 at 16+12 Unknown Selector Flag", "datagram 40 #0 not walked 12"));
}

TEST_F(MassDataObserverTest, IsToldAboutATruncatedAttribute)
{
    EXPECT_THAT(told(DatagramWriter{}.attribute(101).selectors(1).count(3).attribute(101).cutTo(29).build()),
                ElementsAre("truncated 101/0 at 16+12", "datagram 29 #0 not walked 1"));
}

TEST_F(MassDataObserverTest, IsToldHowManyBytesNoHeaderFitted)
{
    EXPECT_THAT(told(DatagramWriter{}.attribute(101).cutTo(33).build()),
                ElementsAre("dispatched 101/0 at 16+12", "datagram 33 #0 not walked 5"));
}

TEST_F(MassDataObserverTest, CountsWhatAnExtendedAttributeStepsOverAsNotWalked)
{
    EXPECT_THAT(told(DatagramWriter{}.attribute(5301).attribute(101).build()),
                ElementsAre("unrouted 5301/0 at 16+60", "datagram 88 #0 not walked 12"));
}

TEST_F(MassDataObserverTest, ClipsAnAttributeThatClaimsMoreThanThereIs)
{
    EXPECT_THAT(told(DatagramWriter{}.attribute(101).claimLength(0xFFFF).build()),
                ElementsAre("dispatched 101/0 at 16+12", "datagram 28 #0"));
}

TEST_F(MassDataObserverTest, IsToldAboutAnInvalidDatagram)
{
    EXPECT_THAT(told(DatagramWriter{}.magic(1).sequence(3).attribute(101).build()),
                ElementsAre("invalid 28 #3"));
    EXPECT_THAT(told({1, 2}), ElementsAre("invalid 2"));
}

TEST_F(MassDataObserverTest, IsToldWhenAProcessorDropsAnAttribute)
{
    Refusing refusing;
    refusing.SetMassDataObserver(&log);
    dispatcher.RegisterTagProcessor(&refusing, TAG_301, 0);
    EXPECT_THAT(
        told(DatagramWriter{}.attribute(301).build()),
        ElementsAre("dispatched 301/0 at 16+12", "not accepted: no optional header", "datagram 28 #0"));
}

TEST_F(MassDataObserverTest, IsToldAboutTheDatagramAlsoWhenAProcessorThrows)
{
    class Throwing : public IMassDataProcessor {
        void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override
        {
            throw std::runtime_error("x");
        }
    } throwing;
    dispatcher.RegisterTagProcessor(&throwing, TAG_301, 0);
    EXPECT_THROW(told(DatagramWriter{}.attribute(301).attribute(101).build()), std::runtime_error);
    EXPECT_THAT(log.lines, ElementsAre("dispatched 301/0 at 16+12", "datagram 40 #0 not walked 12"));
}

TEST_F(MassDataObserverTest, BalancesForEveryPrefixOfADatagram)
{
    const Bytes whole = DatagramWriter{}
                            .attribute(101)
                            .selectors(1)
                            .count(2)
                            .bytes({1, 2, 3, 4})
                            .attribute(777)
                            .bytes({1})
                            .attribute(5001)
                            .bytes({1, 2, 3})
                            .build();
    class Sum : public IMassDataObserver {
    public:
        void DatagramDone(const DatagramReport& r) override
        {
            if (r.valid && r.size >= 16) {
                EXPECT_EQ(16 + attributes + r.bytesNotWalked, r.size);
            }
            ++datagrams;
        }
        void AttributeDone(const AttributeReport& r) override { attributes += r.size; }
        void AttributeNotAccepted(const char*) override {}
        void StreamBroken(quint32) override {}
        void MirrorClientCut(qint64) override {}
        quint32 attributes = 0;
        int datagrams = 0;
    };
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        Sum sum;
        dispatcher.SetMassDataObserver(&sum);
        dispatcher.ProcessDatagram(
            new UdpDatagram{received(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)))});
        EXPECT_EQ(sum.datagrams, 1);
    }
}

} // namespace
