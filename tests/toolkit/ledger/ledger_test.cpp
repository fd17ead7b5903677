// SPDX-License-Identifier: MIT
#include "support/delivered.h"
#include "toolkit/ledger/ledger.h"
#include <gmock/gmock.h>
#include <random>
#include <set>

using ledger::Counters;
using ledger::Ledger;
using testing::ContainsRegex;
using testing::HasSubstr;
using wire::DatagramWriter;

namespace {

class Refusing : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override
    {
        NotAccepted("no optional header");
    }
};

class LedgerTest : public testing::Test {
protected:
    void SetUp() override
    {
        dispatcher.SetMassDataObserver(&ledger);
        refusing.SetMassDataObserver(&ledger);
        dispatcher.RegisterTagProcessor(&recorder, TAG_101, 0);
        dispatcher.RegisterTagProcessor(&refusing, TAG_301, 0);
    }
    void process(const wire::Bytes& bytes)
    {
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(bytes)});
    }
    Ledger ledger;
    support::RecordingProcessor recorder;
    Refusing refusing;
    VK410Processor dispatcher{false};
};

TEST_F(LedgerTest, AccountsForEveryOutcome)
{
    process(DatagramWriter{}.sequence(1).attribute(101).attribute(777).attribute(201).attribute(301).build());
    process(DatagramWriter{}.sequence(4).attribute(101).selectors(0x400000).attribute(101).build());
    process(DatagramWriter{}.sequence(5).attribute(101).selectors(1).count(9).build());
    process(DatagramWriter{}.magic(7).sequence(9).build());
    const Counters c = ledger.counters();
    EXPECT_EQ(c.datagrams, 4U);
    EXPECT_EQ(c.wireLost, 2U);
    EXPECT_EQ(c.invalid, 1U);
    EXPECT_EQ(c.delivered, 1U);
    EXPECT_EQ(c.unknownTag, 1U);
    EXPECT_EQ(c.unrouted, 1U);
    EXPECT_EQ(c.notAccepted, 1U);
    EXPECT_EQ(c.selectorErrors, 1U);
    EXPECT_EQ(c.truncated, 1U);
    EXPECT_EQ(c.attributes, 6U);
    EXPECT_EQ(c.bytesNotWalked, 12U);
    EXPECT_TRUE(c.balances());
}

TEST_F(LedgerTest, BalancesForRandomBytesBehindAGoodMagic)
{
    std::mt19937 generator{5};
    const auto random = [&generator] { return static_cast<std::uint32_t>(generator()); };
    for (int i = 0; i < 5'000; ++i) {
        wire::Bytes bytes =
            DatagramWriter{}.attribute(101 + 100 * (random() % 5)).selectors(random()).build();
        for (unsigned extra = random() % 80; extra > 0; --extra)
            bytes.push_back(static_cast<unsigned char>(random()));
        bytes.resize(random() % (bytes.size() + 1));
        process(bytes);
        ASSERT_TRUE(ledger.counters().balances()) << support::hex(bytes.data(), bytes.size());
    }
}

TEST_F(LedgerTest, CountsBrokenStreamsAndCutClients)
{
    ledger.StreamBroken(7);
    ledger.MirrorClientCut(100);
    EXPECT_EQ(ledger.counters().framing, 1U);
    EXPECT_EQ(ledger.counters().mirrorDisconnected, 1U);
}

TEST_F(LedgerTest, ShowsLossesOnlyInItsStatusLine)
{
    EXPECT_EQ(lossText(ledger.counters()), "no losses");
    process(DatagramWriter{}.sequence(1).attribute(201).build());
    process(DatagramWriter{}.sequence(3).attribute(101).build());
    EXPECT_EQ(lossText(ledger.counters()), "wire lost 1 | unrouted 1");
}

TEST_F(LedgerTest, ReportsEveryLineWithWhatHelpsAgainstALoss)
{
    process(DatagramWriter{}.attribute(201).attribute(301).build());
    const std::string report = reportText(ledger);
    EXPECT_THAT(report, ContainsRegex("unrouted +1  attributes for which no processor is registered"));
    EXPECT_THAT(report, HasSubstr("not accepted, no optional header: 1\n"));
    EXPECT_THAT(report, HasSubstr("no processor for tag 201: 1\n"));
    EXPECT_THAT(report, ContainsRegex("sums balance +yes"));
}

TEST_F(LedgerTest, GivesMetricsWithHelpAndTypeForEveryLine)
{
    process(DatagramWriter{}.attribute(101).build());
    const std::string metrics = metricsText(ledger.counters());
    EXPECT_THAT(metrics, HasSubstr("# TYPE vk410_delivered_total counter\nvk410_delivered_total 1\n"));
    EXPECT_THAT(metrics, HasSubstr("vk410_wire_lost_total 0\n"));
    std::set<std::string_view> names;
    for (const ledger::Line& line : ledger::lines())
        EXPECT_TRUE(names.insert(line.metric).second) << line.metric;
}

} // namespace
