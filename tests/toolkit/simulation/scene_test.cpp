// SPDX-License-Identifier: MIT
#include "toolkit/simulation/scene.h"
#include <gmock/gmock.h>

namespace {

using simulation::BadScene;
using simulation::parseScene;
using simulation::Scene;
using simulation::Signal;

std::string refusal(const std::string& json)
{
    try {
        (void)parseScene(json, "a.json");
    } catch (const BadScene& bad) {
        return bad.what();
    }
    return "accepted";
}

struct BadCase {
    const char* name;
    const char* json;
    const char* text;
};

class BadScenes : public testing::TestWithParam<BadCase> {};

TEST_P(BadScenes, AreRefusedWithPlaceExpectedAndFound)
{
    EXPECT_EQ(refusal(GetParam().json), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BadScenes,
    testing::Values(
        BadCase{"NoObject", "[1]", "a.json: expected an object, found [1]"},
        BadCase{"NoKind", "{}", R"(a.json: kind: expected one of "band" "zerospan" "df", found nothing)"},
        BadCase{"UnknownKind", R"({"kind":"tv"})",
                R"(a.json: kind: expected one of "band" "zerospan" "df", found "tv")"},
        BadCase{"LevelThatIsText",
                R"({"kind":"band","signals":[{"type":"carrier","frequencyHz":1e8,"levelDbuv":"loud"}]})",
                R"(a.json: signals[0]: levelDbuv: expected a number from -100 to 200, found "loud")"},
        BadCase{"SignalWithoutFrequency", R"({"kind":"band","signals":[{"type":"carrier"}]})",
                "a.json: signals[0]: frequencyHz: expected a frequency in Hz, found nothing"},
        BadCase{
            "SecondSignalUnknown",
            R"({"kind":"band","signals":[{"type":"carrier","frequencyHz":1e8},{"type":"am","frequencyHz":1}]})",
            R"(a.json: signals[1]: type: expected one of "carrier" "fm" "burst" "hopper", found "am")"},
        BadCase{"SignalsThatAreNoList", R"({"kind":"band","signals":7})",
                "a.json: signals: expected a list, found 7"},
        BadCase{"MisspeltJobMember",
                R"({"kind":"df","jobs":[{"startHz":1e8,"stopHz":2e8,"stepHz":1e5,"methode":1}]})",
                R"(a.json: jobs[0]: expected one of id startHz stopHz stepHz method, found "methode")"},
        BadCase{"PointsThatAreNotWhole", R"({"kind":"band","points":10.5})",
                "a.json: points: expected a whole number from 2 to 32000, found 10.5"},
        BadCase{"OddSpan", R"({"kind":"band","spanHz":1000001})",
                "a.json: spanHz: expected an even number of hertz, found 1e+06"},
        BadCase{"CentreBelowHalfTheSpan", R"({"kind":"band","centreHz":1000})",
                "a.json: centreHz: expected at least half of the span, found 1000"},
        BadCase{"DirectionFindingWithoutJobs", R"({"kind":"df"})",
                "a.json: jobs: expected at least one job, found 0"},
        BadCase{"NameThatIsANumber", R"({"kind":"band","name":3})",
                "a.json: name: expected a text, found 3"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(SceneFile, ThatIsNoJsonIsRefusedWithItsPlace)
{
    EXPECT_THAT(refusal("{\n\"kind\": band}"),
                testing::StartsWith("a.json: expected JSON, found an error at line 2, column 9: "));
}

TEST(SceneFile, WithANumberBeyondAllNumbersIsRefused)
{
    EXPECT_EQ(refusal(R"({"kind":"band","rate":1e999})"),
              "a.json: expected JSON, found number overflow parsing '1e999'");
}

TEST(SceneFile, WithListsInListsIsRefusedAndDoesNotTakeTheStack)
{
    constexpr std::size_t depth = 1'000'000;
    EXPECT_THAT(refusal("{\"kind\":" + std::string(depth, '[') + std::string(depth, ']') + "}"),
                testing::StartsWith("a.json: kind: expected one of \"band\" \"zerospan\" \"df\", found [[["));
}

TEST(SceneFile, ThatIsNotThereIsRefusedWithWhatWouldDo)
{
    try {
        (void)simulation::sceneNamed("nowhere/x.json");
        FAIL();
    } catch (const BadScene& bad) {
        EXPECT_STREQ(bad.what(), "nowhere/x.json: expected demo, band, zerospan, df or a scene file, found: "
                                 "No such file or directory; check its name and permissions");
    }
}

TEST(SceneFile, SetsEverythingThatItSays)
{
    const Scene scene = parseScene(R"({"kind": "band", "name": "harbour", "centreHz": 156e6, "spanHz": 2e6,
        "points": 401, "rate": 25, "noiseDbuvPerHz": -40, "signals": [
        {"type": "hopper", "name": "h", "frequencyHz": 156.1e6, "levelDbuv": 33, "bandwidthHz": 25000,
         "channels": 8, "spacingHz": 50000, "dwellMs": 10},
        {"type": "burst", "frequencyHz": 156.2e6, "periodMs": 70, "durationMs": 7}]})",
                                   "a.json");

    EXPECT_EQ(scene.name, "harbour");
    EXPECT_EQ(scene.centreHz, 156e6);
    EXPECT_EQ(scene.spanHz, 2e6);
    EXPECT_EQ(scene.points, 401);
    EXPECT_EQ(scene.rate, 25);
    EXPECT_EQ(scene.noiseDbuvPerHz, -40);
    ASSERT_EQ(scene.onAir.size(), 2U);
    EXPECT_EQ(scene.onAir[0].type, Signal::Type::Hopper);
    EXPECT_EQ(scene.onAir[0].channels, 8);
    EXPECT_EQ(scene.onAir[0].dwellMs, 10);
    EXPECT_EQ(scene.onAir[1].durationMs, 7);
}

TEST(BuiltinScenes, AreThreeAndSound)
{
    for (const char* const name : {"demo", "band", "zerospan", "df"})
        EXPECT_NO_THROW(checkScene(simulation::builtinScene(name))) << name;
    try {
        (void)simulation::builtinScene("tv");
        FAIL() << "accepted";
    } catch (const BadScene& bad) {
        EXPECT_STREQ(bad.what(), "expected demo, band, zerospan or df, found 'tv'");
    }
}

} // namespace
