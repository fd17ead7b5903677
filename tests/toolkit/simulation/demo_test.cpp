// SPDX-License-Identifier: MIT
// The scene of the demo: everything that a receiver sends, in one stream.
#include "toolkit/simulation/demogenerator.h"
#include "toolkit/simulation/simulator.h"
#include "wire/layout.h"
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace simulation;
using testing::ElementsAre;
using testing::IsSubsetOf;

unsigned tagOf(const wire::Bytes& datagram)
{
    return wire::load<std::uint16_t>(datagram.data() + wire::datagram::headerSize, wire::ByteOrder::Big);
}

unsigned sequenceOf(const wire::Bytes& datagram)
{
    return wire::load<std::uint16_t>(datagram.data() + wire::datagram::sequence.offset, wire::ByteOrder::Big);
}

TEST(DemoScene, InterleavesPanoramasBearingsAndZeroSpansInOneSequence)
{
    Simulator simulator{builtinScene("demo"), 1};
    std::vector<unsigned> tags;
    for (unsigned i = 0; i < 12; ++i) {
        const Emission emission = *simulator.next();
        tags.push_back(tagOf(emission.bytes));
        EXPECT_EQ(sequenceOf(emission.bytes), i);
        EXPECT_NEAR(static_cast<double>(emission.atNs), i * 1e9 / 120, 1);
    }
    EXPECT_THAT(tags, ElementsAre(501, 5301, 501, 5301, 501, 1801, 501, 5301, 501, 5301, 501, 1801));
}

TEST(DemoScene, HasTheSameSignalsOnTheAirForItsPanoramasAndItsDirectionFinder)
{
    Simulator simulator{builtinScene("demo"), 1};
    std::vector<std::vector<std::string>> names(6'000);
    std::vector<std::string> lines;
    simulator.setTruthSink([&](const std::string& line) { lines.push_back(line); });
    for (int i = 0; i < 240; ++i)
        (void)simulator.next();
    std::set<std::string> inPanoramas;
    std::set<std::string> found;
    for (const std::string& line : lines) {
        const auto json = nlohmann::json::parse(line);
        if (json.at("type") != "trace" || json.at("tag") == 1801)
            continue;
        for (const auto& signal : json.at("signals"))
            (json.at("tag") == 501 ? inPanoramas : found).insert(signal.at("name").get<std::string>());
    }
    EXPECT_EQ(inPanoramas, found);
    EXPECT_THAT((std::set<std::string>{"beacon", "mobile 1", "mobile 2", "hopper", "data link"}),
                IsSubsetOf(found));
}

TEST(DemoScene, LooksBackSoThatNoBurstIsMissedBetweenTwoTracesOfAKind)
{
    Scene scene = builtinScene("demo");
    Signal click = scene.onAir.front();
    click.periodMs = 1'000;
    click.durationMs = 0.5; // shorter than the pause between two panoramas
    scene.onAir = {click};
    Simulator simulator{scene, 7};
    int panoramas = 0;
    int blocks = 0;
    simulator.setTruthSink([&](const std::string& line) {
        const auto json = nlohmann::json::parse(line);
        if (json.at("type") != "trace" || json.at("signals").empty())
            return;
        panoramas += json.at("tag") == 501 ? 1 : 0;
        blocks += json.at("tag") == 5301 ? 1 : 0;
    });
    for (int i = 0; i < 120 * 20; ++i)
        (void)simulator.next();
    EXPECT_GE(panoramas, 20); // one a second, two where it falls on a border
    EXPECT_LE(panoramas, 22);
    EXPECT_GE(blocks, 8); // half of the blocks lie elsewhere
}

TEST(DemoScene, TunesItsZeroSpanToTheFirstBurst)
{
    const Scene scene = builtinScene("demo");
    EXPECT_EQ(partOf(scene, SceneKind::ZeroSpan).centreHz, 98.9e6);
    Scene without = scene;
    without.onAir.clear();
    EXPECT_EQ(partOf(without, SceneKind::ZeroSpan).centreHz, scene.centreHz);
}

TEST(DemoScene, IsCheckedPartByPart)
{
    Scene scene = builtinScene("demo");
    scene.jobs.clear();
    EXPECT_THROW(checkScene(scene), BadScene);
    scene = builtinScene("demo");
    scene.spanHz = 3;
    EXPECT_THROW(checkScene(scene), BadScene);
}

} // namespace
