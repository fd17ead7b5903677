// SPDX-License-Identifier: MIT
#include "support/delivered.h"
#include "toolkit/ledger/ledger.h"
#include "toolkit/simulation/simulator.h"
#include "wire/optheader.h"
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using simulation::Emission;
using simulation::FaultCounts;
using simulation::Faults;
using simulation::Simulator;
using testing::ElementsAre;

std::vector<Emission> run(Simulator& simulator)
{
    std::vector<Emission> emissions;
    while (std::optional<Emission> emission = simulator.next())
        emissions.push_back(std::move(*emission));
    return emissions;
}

simulation::Scene sceneFor(const std::string& name)
{
    if (name != "df with super-resolution")
        return Simulator::builtinScene(name);
    simulation::Scene scene = Simulator::builtinScene("df");
    scene.superResolution = 3;
    return scene;
}

std::vector<wire::Bytes> datagramsOf(const char* scene, std::uint64_t seed, const Faults& faults,
                                     std::uint64_t traces)
{
    Simulator simulator{sceneFor(scene), seed};
    simulator.setFaults(faults);
    simulator.setLimit(traces);
    std::vector<wire::Bytes> datagrams;
    for (Emission& emission : run(simulator))
        datagrams.push_back(std::move(emission.bytes));
    return datagrams;
}

std::uint16_t sequenceOf(const wire::Bytes& datagram)
{
    return wire::load<std::uint16_t>(datagram.data() + 8, wire::ByteOrder::Big);
}

std::vector<int> sequencesOf(const std::vector<Emission>& emissions)
{
    std::vector<int> numbers;
    for (const Emission& emission : emissions)
        numbers.push_back(sequenceOf(emission.bytes));
    return numbers;
}

// What the library and the ledger make of a run.
struct Received {
    ledger::Counters counters;
    FaultCounts faults;
};

Received receive(const char* scene, std::uint64_t seed, const Faults& faults, std::uint64_t traces)
{
    Simulator simulator{sceneFor(scene), seed};
    simulator.setFaults(faults);
    simulator.setLimit(traces);
    support::RecordingDispatcher receiver;
    ledger::Ledger ledger;
    receiver.dispatcher.SetMassDataObserver(&ledger);
    for (const Emission& emission : run(simulator))
        receiver.dispatcher.ProcessDatagram(new UdpDatagram{support::received(emission.bytes)});
    return {ledger.counters(), simulator.faultCounts()};
}

struct LedgerCase {
    const char* name;
    const char* scene;
    Faults faults;
    std::uint64_t FaultCounts::*mustHappen;
};

class LedgerCounts : public testing::TestWithParam<LedgerCase> {};

TEST_P(LedgerCounts, EqualTheInjectedFaults)
{
    for (const std::uint64_t seed : {1U, 2U, 3U, 77U}) {
        const Received got = receive(GetParam().scene, seed, GetParam().faults, 1'500);
        EXPECT_GT(got.faults.*GetParam().mustHappen, 0U);
        EXPECT_EQ(got.counters.wireLost, got.faults.drop + got.faults.corruptMagic);
        EXPECT_EQ(got.counters.wireDuplicates, got.faults.duplicate);
        EXPECT_EQ(got.counters.wireReordered, got.faults.reorder);
        EXPECT_EQ(got.counters.invalid, got.faults.corruptMagic);
        EXPECT_EQ(got.counters.selectorErrors, got.faults.corruptSelector);
        EXPECT_EQ(got.counters.unknownTag, got.faults.corruptTag);
        EXPECT_EQ(got.counters.truncated, got.faults.truncate);
        EXPECT_EQ(got.counters.datagrams, 1'500 - got.faults.drop + got.faults.duplicate);
        EXPECT_TRUE(got.counters.balances());
    }
}

Faults only(double Faults::*kind, double probability)
{
    Faults faults;
    faults.*kind = probability;
    return faults;
}

const Faults everything{0.02, 0.02, 0.02, 0.06, 0.02, 0.02};

INSTANTIATE_TEST_SUITE_P(
    Kinds, LedgerCounts,
    testing::Values(
        LedgerCase{"Drop", "band", only(&Faults::drop, 0.01), &FaultCounts::drop},
        LedgerCase{"DropMost", "band", only(&Faults::drop, 0.9), &FaultCounts::drop},
        LedgerCase{"DropAll", "band", only(&Faults::drop, 1), &FaultCounts::drop},
        LedgerCase{"Duplicate", "band", only(&Faults::duplicate, 0.05), &FaultCounts::duplicate},
        LedgerCase{"DuplicateAll", "band", only(&Faults::duplicate, 1), &FaultCounts::duplicate},
        LedgerCase{"Reorder", "band", only(&Faults::reorder, 0.05), &FaultCounts::reorder},
        LedgerCase{"ReorderAll", "band", only(&Faults::reorder, 1), &FaultCounts::reorder},
        LedgerCase{"CorruptMagic", "band", only(&Faults::corrupt, 0.05), &FaultCounts::corruptMagic},
        LedgerCase{"CorruptSelector", "band", only(&Faults::corrupt, 0.05), &FaultCounts::corruptSelector},
        LedgerCase{"CorruptTag", "band", only(&Faults::corrupt, 1), &FaultCounts::corruptTag},
        LedgerCase{"Truncate", "band", only(&Faults::truncate, 0.05), &FaultCounts::truncate},
        LedgerCase{"TruncateZeroSpan", "zerospan", only(&Faults::truncate, 1), &FaultCounts::truncate},
        LedgerCase{"Stall", "band", only(&Faults::stall, 0.05), &FaultCounts::stall},
        LedgerCase{"TruncateDf", "df", only(&Faults::truncate, 1), &FaultCounts::truncate},
        LedgerCase{"TruncateSuperResolution", "df with super-resolution", only(&Faults::truncate, 1),
                   &FaultCounts::truncate},
        LedgerCase{"CorruptDf", "df with super-resolution", only(&Faults::corrupt, 1),
                   &FaultCounts::corruptTag},
        LedgerCase{"EverythingInDf", "df", everything, &FaultCounts::corruptTag},
        LedgerCase{"EverythingInABand", "band", everything, &FaultCounts::corruptTag},
        LedgerCase{"EverythingInZeroSpan", "zerospan", everything, &FaultCounts::truncate}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Simulator, MakesTheSameDatagramsFromTheSameSeed)
{
    EXPECT_EQ(datagramsOf("band", 5, everything, 300), datagramsOf("band", 5, everything, 300));
    EXPECT_EQ(datagramsOf("zerospan", 5, everything, 50), datagramsOf("zerospan", 5, everything, 50));
    EXPECT_EQ(datagramsOf("df with super-resolution", 5, everything, 50),
              datagramsOf("df with super-resolution", 5, everything, 50));
}

TEST(Simulator, MakesOtherDatagramsFromAnotherSeed)
{
    EXPECT_NE(datagramsOf("band", 5, {}, 10), datagramsOf("band", 6, {}, 10));
}

TEST(Simulator, DoesNotChangeWhatIsOnTheAirByFaults)
{
    const std::vector<wire::Bytes> sound = datagramsOf("band", 5, {}, 100);
    const std::vector<wire::Bytes> gappy = datagramsOf("band", 5, only(&Faults::drop, 0.3), 100);

    ASSERT_LT(gappy.size(), sound.size());
    for (const wire::Bytes& datagram : gappy)
        EXPECT_EQ(datagram, sound.at(sequenceOf(datagram)));
}

TEST(Simulator, EndsAfterItsLimitAndStaysThere)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setLimit(3);

    EXPECT_THAT(sequencesOf(run(simulator)), ElementsAre(0, 1, 2));
    EXPECT_FALSE(simulator.next());
}

TEST(Simulator, EndsAfterOneMoreTraceWhenStopped)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    (void)simulator.next();
    simulator.stop();

    EXPECT_THAT(sequencesOf(run(simulator)), ElementsAre(1));
}

TEST(Simulator, SendsALateDatagramBehindTheOneThatFollowsIt)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setFaults(only(&Faults::reorder, 1));
    simulator.setLimit(6);

    EXPECT_THAT(sequencesOf(run(simulator)), ElementsAre(0, 2, 1, 4, 3, 5));
}

TEST(Simulator, NeverSpoilsTheFirstAndTheLastDatagram)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setFaults(only(&Faults::drop, 1));
    simulator.setLimit(50);

    EXPECT_THAT(sequencesOf(run(simulator)), ElementsAre(0, 49));
    EXPECT_EQ(simulator.faultCounts().drop, 48U);
}

TEST(Simulator, LetsNoGapGrowBeyondWhatSequenceNumbersCanTell)
{
    const Received got = receive("zerospan", 1, only(&Faults::drop, 1), 25'000);

    EXPECT_EQ(got.counters.datagrams, 4U);
    EXPECT_EQ(got.counters.wireLost, got.faults.drop);
}

TEST(Simulator, SpacesTracesEvenlyWithoutDrift)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setLimit(61);
    const std::vector<Emission> emissions = run(simulator);

    EXPECT_EQ(emissions.at(1).atNs, 16'666'667);
    EXPECT_EQ(emissions.at(3).atNs, 50'000'000);
    EXPECT_EQ(emissions.at(60).atNs, 1'000'000'000);
}

TEST(Simulator, PausesHalfASecondAtAStall)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setFaults(only(&Faults::stall, 1));
    simulator.setLimit(3);
    const std::vector<Emission> emissions = run(simulator);

    EXPECT_EQ(emissions.at(0).atNs, 0);
    EXPECT_EQ(emissions.at(1).atNs, 516'666'667);
    // The last one is sound and leaves on time behind the pause.
    EXPECT_EQ(emissions.at(2).atNs, 533'333'333);
}

TEST(Simulator, ObeysFaultsThatChangeWhileItRuns)
{
    Simulator simulator{Simulator::builtinScene("band"), 1};
    simulator.setLimit(100);
    for (int i = 0; i < 50; ++i)
        (void)simulator.next();
    EXPECT_EQ(simulator.faultCounts().sum(), 0U);
    simulator.setFaults(only(&Faults::drop, 1));

    EXPECT_THAT(sequencesOf(run(simulator)), ElementsAre(99));
    EXPECT_EQ(simulator.faultCounts().drop, 49U);
}

TEST(Simulator, DropsAsOftenAsAsked)
{
    const Received got = receive("zerospan", 4, only(&Faults::drop, 0.1), 5'000);

    EXPECT_NEAR(static_cast<double>(got.faults.drop), 500, 100);
}

TEST(Simulator, TellsTheTruthAboutEveryTrace)
{
    Simulator simulator{Simulator::builtinScene("band"), 9};
    simulator.setFaults(everything);
    simulator.setLimit(400);
    std::vector<nlohmann::json> lines;
    simulator.setTruthSink(
        [&lines](const std::string& line) { lines.push_back(nlohmann::json::parse(line)); });
    const std::size_t sent = run(simulator).size();

    ASSERT_EQ(lines.size(), 402U);
    EXPECT_EQ(lines.front()["type"], "start");
    EXPECT_EQ(lines.front()["seed"], 9);
    EXPECT_EQ(lines.front()["points"], 1601);
    EXPECT_EQ(lines.back()["type"], "end");
    EXPECT_EQ(lines.back()["datagrams"], sent);
    std::map<std::string, std::uint64_t> told;
    for (const nlohmann::json& line : lines) {
        if (line.contains("fault"))
            ++told[line["fault"]];
    }
    for (const simulation::FaultName& fault : simulation::faultNames()) {
        EXPECT_EQ(told[std::string(fault.name)], simulator.faultCounts().*fault.count) << fault.name;
        EXPECT_EQ(lines.back()["faults"][std::string(fault.name)], simulator.faultCounts().*fault.count);
    }
}

TEST(Simulator, FingerprintsTheSoundDatagramInTheTruth)
{
    Simulator simulator{Simulator::builtinScene("band"), 9};
    simulator.setLimit(1);
    std::vector<nlohmann::json> lines;
    simulator.setTruthSink(
        [&lines](const std::string& line) { lines.push_back(nlohmann::json::parse(line)); });
    const wire::Bytes sent = run(simulator).front().bytes;

    // FNV-1a, written out.
    std::uint64_t hash = 14695981039346656037U;
    for (const unsigned char byte : sent)
        hash = (hash ^ byte) * 1099511628211U;
    EXPECT_EQ(std::stoull(lines.at(1)["fingerprint"].get<std::string>(), nullptr, 16), hash);
    EXPECT_EQ(lines.at(1)["size"], sent.size());
}

// Levels of the first panorama of a scene, by the bytes of its datagram.
std::vector<double> firstLevels(simulation::Scene scene)
{
    Simulator simulator{std::move(scene), 1};
    simulator.setLimit(1);
    const wire::Bytes bytes = run(simulator).front().bytes;
    std::vector<double> levels;
    for (std::size_t at = 16 + 12 + 50; at < bytes.size(); at += 2)
        levels.push_back(wire::load<std::int16_t>(bytes.data() + at, wire::ByteOrder::Big) / 10.0);
    return levels;
}

TEST(BandScene, HasItsCarriersWhereTheyAreAtTheirLevels)
{
    const std::vector<double> levels = firstLevels(Simulator::builtinScene("band"));

    ASSERT_EQ(levels.size(), 1601U);
    // 95 MHz + k x 6250 Hz.
    EXPECT_NEAR(levels[176], 42, 0.2);  // 96.1 MHz
    EXPECT_NEAR(levels[1436], 28, 0.2); // 103.975 MHz
    EXPECT_LT(levels[100], 10);
}

TEST(BandScene, HasANoiseFloorAtTheDensityTimesTheFilterWidth)
{
    simulation::Scene scene = Simulator::builtinScene("band");
    scene.onAir.clear();
    const std::vector<double> levels = firstLevels(scene);

    double power = 0;
    for (const double level : levels)
        power += std::pow(10, level / 10) / static_cast<double>(levels.size());
    // -47 dBuV/Hz in 9375 Hz.
    EXPECT_NEAR(10 * std::log10(power), -7.28, 0.3);
}

TEST(BandScene, FollowsCentreSpanAndPoints)
{
    simulation::Scene scene = Simulator::builtinScene("band");
    scene.centreHz = 96.2e6;
    scene.spanHz = 400e3;
    scene.points = 401;
    const std::vector<double> levels = firstLevels(scene);

    ASSERT_EQ(levels.size(), 401U);
    EXPECT_NEAR(levels[100], 42, 0.1); // 96 MHz + 100 x 1 kHz
}

TEST(BandScene, SaysInItsHeaderWhereItsChannelsLie)
{
    simulation::Scene scene = Simulator::builtinScene("band");
    scene.centreHz = 5e9; // does not fit into 32 bits
    Simulator simulator{scene, 1};
    simulator.setLimit(2);
    const wire::Bytes bytes = run(simulator).back().bytes;
    const auto at = [&bytes](std::size_t offset) {
        return wire::load<std::int32_t>(bytes.data() + 28 + offset, wire::ByteOrder::Big);
    };

    EXPECT_EQ(at(0), 705'032'704); // 5e9 - 2^32
    EXPECT_EQ(at(4), 10'000'000);
    EXPECT_EQ(at(16), 1);
    EXPECT_EQ(at(40), 10'000'000);
    EXPECT_EQ(at(44), 1600);
    EXPECT_EQ(wire::load<std::int64_t>(bytes.data() + 28 + 32, wire::ByteOrder::Big),
              1'735'689'600'000'000'000 + 16'666'667);
}

TEST(BandScene, HopsAndKeepsSilentBetweenBursts)
{
    Simulator simulator{Simulator::builtinScene("band"), 3};
    simulator.setLimit(600);
    std::set<double> hops;
    int withBurst = 0;
    simulator.setTruthSink([&](const std::string& text) {
        for (const auto& signal : nlohmann::json::parse(text).value("signals", nlohmann::json::array())) {
            if (signal["name"] == "hopper")
                hops.insert(signal["frequencyHz"].get<double>());
            withBurst += signal["name"] == "pager" ? 1 : 0;
        }
    });
    run(simulator);

    EXPECT_GT(hops.size(), 15U);
    // 350 ms of every 2 s, five times in 10 s; a trace that is touched counts whole.
    EXPECT_GE(withBurst, 5 * 21);
    EXPECT_LE(withBurst, 5 * 23);
}

TEST(ZeroSpanScene, ShowsBurstsOverTimeAndBothFields)
{
    Simulator simulator{Simulator::builtinScene("zerospan"), 1};
    simulator.setLimit(1);
    const wire::Bytes bytes = run(simulator).front().bytes;
    ASSERT_EQ(bytes.size(), 16U + 12 + 96 + 1001 * 4);
    std::vector<std::int16_t> levels;
    std::vector<std::int16_t> amplitudes;
    for (std::size_t i = 0; i < 1001; ++i) {
        levels.push_back(wire::load<std::int16_t>(bytes.data() + 124 + 2 * i, wire::ByteOrder::Big));
        amplitudes.push_back(wire::load<std::int16_t>(bytes.data() + 2126 + 2 * i, wire::ByteOrder::Big));
    }

    // 45 dBuV for 2.4 of every 6 ms.
    const auto high = std::ranges::count_if(levels, [](int level) { return level > 440; });
    EXPECT_NEAR(static_cast<double>(high), 1001 * 0.4, 130);
    for (std::size_t i = 0; i < levels.size(); ++i)
        EXPECT_EQ(amplitudes[i] > 10'000, levels[i] > 430) << i;
    EXPECT_EQ(wire::load<std::int64_t>(bytes.data() + 28 + 24, wire::ByteOrder::Big), 20'000'000);
    EXPECT_EQ(wire::load<std::int64_t>(bytes.data() + 28 + 32, wire::ByteOrder::Big), 0);
}

} // namespace
