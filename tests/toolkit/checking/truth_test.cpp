// SPDX-License-Identifier: MIT
#include "toolkit/checking/truth.h"
#include "toolkit/simulation/simulator.h"
#include <QTemporaryDir>
#include <array>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>

using checking::BadTruth;
using checking::Score;
using checking::Truth;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

std::string lineOf(const QByteArray& datagram, const std::string& fault = {})
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(datagram.constData());
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx",
                  static_cast<unsigned long long>(
                      simulation::fingerprint({bytes, bytes + static_cast<std::size_t>(datagram.size())})));
    return R"({"type":"trace","fingerprint":")" + std::string{digits.data()} + "\"" +
           (fault.empty() ? "" : ",\"fault\":\"" + fault + "\"") + "}\n";
}

class Truths : public testing::Test {
protected:
    Truth truthOf(const std::string& content)
    {
        std::ofstream{path} << content;
        return Truth{path};
    }
    std::string refusalOf(const std::string& content)
    {
        try {
            (void)truthOf(content);
        } catch (const BadTruth& bad) {
            return bad.what();
        }
        return "accepted";
    }

    QTemporaryDir folder;
    std::string path = folder.filePath("truth.ndjson").toStdString();
};

TEST_F(Truths, TickOffWhatCameAndCountCopiesAndStrangers)
{
    Truth truth = truthOf("{\"type\":\"start\"}\n" + lineOf("one") + lineOf("two", "drop") + lineOf("three"));

    truth.take("one");
    truth.take("one");
    truth.take("somebody else");

    const Score score = truth.score();
    EXPECT_EQ(score.sent, 3U);
    EXPECT_EQ(score.there, 1U);
    EXPECT_EQ(score.copies, 1U);
    EXPECT_EQ(score.foreign, 1U);
    EXPECT_THAT(score.missingByFault, ElementsAre(Pair("", 1U), Pair("drop", 1U)));
}

TEST_F(Truths, OfTracesThatAreAlikeWantEachOfThem)
{
    Truth truth = truthOf(lineOf("same") + lineOf("same"));

    truth.take("same");
    EXPECT_EQ(truth.score().missing(), 1U);
    truth.take("same");
    EXPECT_EQ(truth.score().missing(), 0U);
    EXPECT_EQ(truth.score().copies, 0U);
}

TEST_F(Truths, HaveLinesOfABoundedLength)
{
    const std::string trace = lineOf("one");
    const std::string longest =
        trace.substr(0, trace.size() - 2) + std::string(Truth::longestLine - (trace.size() - 1), ' ') + "}\n";

    EXPECT_EQ(refusalOf(longest), "accepted");
    EXPECT_THAT(refusalOf(trace + " " + longest),
                HasSubstr("truth.ndjson:2: expected a line of at most 4194304 bytes, found a longer one"));
}

TEST_F(Truths, KnowABoundedNumberOfFaults)
{
    std::string content;
    for (std::size_t i = 0; i <= Truth::mostFaults; ++i)
        content += lineOf("one", "fault " + std::to_string(i));

    EXPECT_THAT(refusalOf(content),
                HasSubstr("expected at most 256 kinds of faults, found one more: 'fault 256'"));
}

} // namespace
