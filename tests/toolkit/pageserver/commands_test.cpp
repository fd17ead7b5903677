// SPDX-License-Identifier: MIT
// What viewers may ask for, and what they are told when they ask for something else.
#include "toolkit/pageserver/commands.h"
#include <gmock/gmock.h>

namespace {

using namespace pageserver;
using testing::ElementsAre;
using testing::Pair;

template <typename T>
T commandIn(const std::string& text)
{
    const Command command = parseCommand(text);
    EXPECT_TRUE(std::holds_alternative<T>(command)) << nameOf(command);
    return std::get<T>(command);
}

TEST(CommandSubscribe, WantsEverythingLiveUnlessItSaysOtherwise)
{
    const auto wish = commandIn<Subscribe>(R"({"command":"subscribe"})");
    EXPECT_THAT(wish.streams, testing::Each(true));
    EXPECT_EQ(wish.arrays, Live);
    EXPECT_EQ(wish.maxPerSecond, 60);
}

TEST(CommandSubscribe, ChoosesStreamsArraysAndRate)
{
    const auto wish = commandIn<Subscribe>(
        R"({"command":"subscribe","streams":["zerospan","df"],"arrays":["hold","max"],"maxPerSecond":0.5})");
    EXPECT_THAT(wish.streams, ElementsAre(false, false, true, true, true));
    EXPECT_EQ(wish.arrays, Max | Hold);
    EXPECT_EQ(wish.maxPerSecond, 0.5);
}

TEST(CommandRanges, CarryKindFrequenciesNameAndId)
{
    const auto added = commandIn<AddRange>(
        R"({"command":"addRange","kind":"blanking","fromHz":1e8,"toHz":1.1e8,"name":"pager"})");
    EXPECT_EQ(added.kind, RangeKind::Blanking);
    EXPECT_EQ(added.fromHz, 1e8);
    EXPECT_EQ(added.toHz, 1.1e8);
    EXPECT_EQ(added.name, "pager");
    const auto removed = commandIn<RemoveRange>(R"({"command":"removeRange","kind":"suppress","id":3})");
    EXPECT_EQ(removed.kind, RangeKind::Suppress);
    EXPECT_EQ(removed.id, 3U);
}

TEST(CommandPlayback, CarriesItsActionAndNumber)
{
    using Action = ControlPlayback::Action;
    EXPECT_EQ(commandIn<ControlPlayback>(R"({"command":"playback","action":"step"})").action, Action::Step);
    const auto seek = commandIn<ControlPlayback>(R"({"command":"playback","action":"seek","seconds":3.2})");
    EXPECT_EQ(seek.action, Action::Seek);
    EXPECT_EQ(seek.number, 3.2);
    EXPECT_EQ(commandIn<ControlPlayback>(R"({"command":"playback","action":"speed","speed":0})").number, 0);
    EXPECT_EQ(commandIn<ControlPlayback>(R"({"command":"playback","action":"speed","speed":2.5})").number,
              2.5);
}

TEST(CommandOthers, AreRead)
{
    commandIn<ResetHolds>(R"({"command":"resetHolds"})");
    EXPECT_EQ(commandIn<SetAverage>(R"({"command":"average","count":16})").count, 16U);
    EXPECT_THAT(commandIn<SetFaults>(R"({"command":"faults","drop":0.01,"stall":0})").probabilities,
                ElementsAre(Pair("drop", 0.01), Pair("stall", 0.0)));
}

struct BadCase {
    const char* name;
    std::string text;
    const char* command;
    const char* expected;
};
class BadCommands : public testing::TestWithParam<BadCase> {};

TEST_P(BadCommands, AreAnsweredWithWhatWasExpectedAndFound)
{
    try {
        (void)parseCommand(GetParam().text);
        FAIL() << "it was understood";
    } catch (const BadCommand& bad) {
        EXPECT_EQ(bad.command, GetParam().command);
        EXPECT_STREQ(bad.what(), GetParam().expected);
    }
}
INSTANTIATE_TEST_SUITE_P(
    Each, BadCommands,
    testing::Values(
        BadCase{"NoJson", "resetHolds", "", R"(expected a JSON object like {"command":"resetHolds"})"},
        BadCase{"CutJson", R"({"command":"reset)", "",
                R"(expected a JSON object like {"command":"resetHolds"})"},
        BadCase{"NoObject", "[1]", "", R"(expected a JSON object like {"command":"resetHolds"})"},
        BadCase{"DeepNesting", std::string(30'000, '['), "",
                R"(expected a JSON object like {"command":"resetHolds"})"},
        BadCase{"NoCommand", "{}", "",
                "command: expected one of subscribe, resetHolds, average, addRange, removeRange, playback, "
                "faults, "
                "found nothing"},
        BadCase{"UnknownCommand", R"({"command":"reboot"})", "reboot",
                "command: expected one of subscribe, resetHolds, average, addRange, removeRange, playback, "
                "faults, "
                "found \"reboot\""},
        BadCase{"CommandIsNoText", R"({"command":7})", "",
                "command: expected one of subscribe, resetHolds, average, addRange, removeRange, playback, "
                "faults, "
                "found 7"},
        BadCase{"UnknownStream", R"({"command":"subscribe","streams":["iq"]})", "subscribe",
                R"(streams: expected one of panorama, zerospan, df, found a list)"},
        BadCase{"StreamsAreNoList", R"({"command":"subscribe","streams":"df"})", "subscribe",
                "streams: expected a list, found \"df\""},
        BadCase{"RateTooHigh", R"({"command":"subscribe","maxPerSecond":1000})", "subscribe",
                "maxPerSecond: expected a number from 0.1 to 200, found 1000"},
        BadCase{"NoAverage", R"({"command":"average","count":0})", "average",
                "count: expected a whole number from 1 to 10000, found 0"},
        BadCase{"AverageOfHalves", R"({"command":"average","count":1.5})", "average",
                "count: expected a whole number from 1 to 10000, found 1.5"},
        BadCase{"NegativeAverage", R"({"command":"average","count":-1})", "average",
                "count: expected a whole number from 1 to 10000, found -1"},
        BadCase{"UnknownKind", R"({"command":"addRange","kind":"squelch","fromHz":1,"toHz":2})", "addRange",
                "kind: expected one of suppress, blanking, found \"squelch\""},
        BadCase{"RangeBackwards", R"({"command":"addRange","kind":"suppress","fromHz":2,"toHz":1})",
                "addRange", "toHz: expected at least fromHz, found 1"},
        BadCase{"RangeWithoutEnd", R"({"command":"addRange","kind":"suppress","fromHz":2})", "addRange",
                "toHz: expected a number from 0 to 1e+12, found nothing"},
        BadCase{
            "NameTooLong",
            R"({"command":"addRange","kind":"suppress","fromHz":1,"toHz":2,"name":")" +
                std::string(201, 'x') + "\"}",
            "addRange",
            "name: expected a text of at most 200 bytes, found \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx..."},
        BadCase{"NoAction", R"({"command":"playback"})", "playback",
                "action: expected one of pause, play, step, seek, speed, found nothing"},
        BadCase{"SeekNowhere", R"({"command":"playback","action":"seek"})", "playback",
                "seconds: expected a number from 0 to 1e+09, found nothing"},
        BadCase{"TooSlow", R"({"command":"playback","action":"speed","speed":0.01})", "playback",
                "speed: expected a number from 0.1 to 100, found 0.01"},
        BadCase{"NoProbability", R"({"command":"faults","drop":1.5})", "faults",
                "drop: expected a number from 0 to 1, found 1.5"},
        BadCase{"NoFault", R"({"command":"faults","hail":1})", "faults",
                "drop: expected a probability for one of drop, duplicate, reorder, corrupt, truncate, stall, "
                "found "
                "nothing"}),
    [](const auto& each) { return each.param.name; });

TEST(BadCommandText, OfListsWithinListsTakesNoStack)
{
    constexpr std::size_t depth = 30'000;
    const std::string text = R"({"command":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    try {
        const Command taken = parseCommand(text);
        FAIL() << "taken as command " << taken.index();
    } catch (const BadCommand& bad) {
        EXPECT_THAT(bad.what(), testing::EndsWith("found a list"));
    }
}

} // namespace
