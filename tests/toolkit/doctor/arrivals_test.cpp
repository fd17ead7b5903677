// SPDX-License-Identifier: MIT
#include "toolkit/doctor/doctor.h"
#include <algorithm>
#include <gmock/gmock.h>
#include <memory>

using doctor::Finding;
using doctor::Outcome;
using receiver::Source;
using receiver::SourceSpec;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

namespace {

// Says of itself what a test wants.
class FakeSource : public Source {
public:
    explicit FakeSource(Facts facts)
        : m_facts(std::move(facts))
    {}
    void start(Sink /*sink*/) override {}
    [[nodiscard]] Facts facts() const override { return m_facts; }

private:
    Facts m_facts;
};

// What is found after `strangers` datagrams without the magic have come from such a source.
std::vector<Finding> findings(SourceSpec::Kind kind, const Source::Facts& facts, int strangers)
{
    receiver::Session session;
    session.run(std::make_unique<FakeSource>(facts));
    for (int i = 0; i < strangers; ++i) {
        receiver::Received received;
        received.datagram =
            std::make_unique<UdpDatagram>(std::make_unique<QByteArray>("nobody's datagram, this one"));
        session.take(std::move(received));
    }
    SourceSpec spec;
    spec.kind = kind;
    spec.port = 5555;
    return doctor::checkArrivals(session, spec, "a.pcap", 3);
}

Finding of(const std::vector<Finding>& findings, const std::string& check)
{
    const auto found = std::ranges::find(findings, check, &Finding::check);
    return found == findings.end() ? Finding{} : *found;
}

TEST(Arrivals, OfARecordingTellTheFirstOfItsProblemsAndHowManyThereAre)
{
    Source::Facts facts;
    facts.problems = 3;
    facts.firstProblem = "a.pcap: byte 24: expected 60 bytes, found 20";

    const Finding whole = of(findings(SourceSpec::Kind::Recording, facts, 1), "whole");

    EXPECT_EQ(whole.outcome, Outcome::Problem);
    EXPECT_EQ(whole.found, "a.pcap: byte 24: expected 60 bytes, found 20; and 2 more problems");
    EXPECT_THAT(whole.fix, HasSubstr("'vk410 check a.pcap --repair OUT'"));
}

TEST(Arrivals, OfAWholeRecordingSayHowMuchWasRead)
{
    Source::Facts facts;
    facts.fileBytes = 936;

    const Finding whole = of(findings(SourceSpec::Kind::Recording, facts, 1), "whole");

    EXPECT_EQ(whole.outcome, Outcome::Fine);
    EXPECT_EQ(whole.found, "936 bytes read to their end");
}

TEST(Arrivals, OfAnEmptyRecordingAreNotSoughtOnThePort)
{
    const std::vector<Finding> all = findings(SourceSpec::Kind::Recording, {}, 0);

    EXPECT_EQ(of(all, "datagrams").outcome, Outcome::Problem);
    EXPECT_THAT(all, Not(Contains(Field(&Finding::check, "firewall"))));
    EXPECT_THAT(all, Each(Field(&Finding::fix, AllOf(Not(HasSubstr("tcpdump")), Not(HasSubstr("nft"))))));
}

TEST(Arrivals, OfStrangersNameThePortOrTheRecording)
{
    EXPECT_THAT(of(findings(SourceSpec::Kind::Udp, {}, 2), "magic").fix,
                HasSubstr("any port 5555' shows who"));
    EXPECT_THAT(of(findings(SourceSpec::Kind::Recording, {}, 2), "magic").fix,
                HasSubstr("'vk410 inspect a.pcap --port PORT'"));
}

TEST(Arrivals, OfALiveSourceAreNoFile)
{
    EXPECT_THAT(findings(SourceSpec::Kind::Tcp, {}, 1), Not(Contains(Field(&Finding::check, "whole"))));
}

} // namespace
