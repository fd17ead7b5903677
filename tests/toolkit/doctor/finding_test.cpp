// SPDX-License-Identifier: MIT
#include "toolkit/doctor/finding.h"
#include <gmock/gmock.h>

using doctor::Finding;
using doctor::Outcome;

namespace {

TEST(Finding, HasAFixOnALineOfItsOwnForPeople)
{
    EXPECT_EQ(text(3, Finding{"port", Outcome::Problem, "somebody has it", "stop them"}),
              " 3 port          problem  somebody has it\n   fix: stop them");
    EXPECT_EQ(text(12, Finding{"maps", Outcome::Fine, "4 traces in maps", {}}),
              "12 maps          fine     4 traces in maps");
}

TEST(Finding, IsOneObjectForPrograms)
{
    EXPECT_EQ(
        json(2, Finding{"firewall", Outcome::Unknown, "cannot be asked \"from here\"", {}}),
        R"({"number":2,"check":"firewall","outcome":"unknown","found":"cannot be asked \"from here\"","fix":""})");
}

TEST(Finding, OfBytesThatAreNoTextIsStillAnObject)
{
    EXPECT_EQ(json(1, Finding{"file", Outcome::Problem, "a\xff.bin", {}}),
              "{\"number\":1,\"check\":\"file\",\"outcome\":\"problem\",\"found\":\"a\xEF\xBF\xBD.bin\","
              "\"fix\":\"\"}");
}

} // namespace
