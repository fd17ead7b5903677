// SPDX-License-Identifier: MIT
// From the simulated direction finder to the maps of a session: what is on the air comes out at its frequency
// and azimuth.
#include "freqlist/freqstore.h"
#include "support/delivered.h"
#include "toolkit/receiver/session.h"
#include "toolkit/simulation/simulationsource.h"
#include "values/valuelist.h"
#include <QCoreApplication>
#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace simulation;
using receiver::ExcludedRange;
using receiver::Session;
using receiver::SessionOptions;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Json = nlohmann::json;
using Sample = values::DFSpectrumSample;
using Validity = Sample::Validity;
using Processor = SessionOptions::DfProcessor;

// Three blocks of the built-in scene are a sweep: 801 channels of 145 to 155 MHz, 401 of 430 to 440 MHz.
constexpr std::uint64_t blocksOfASweep = 3;

// What the direction finder measures is what is there.
Scene exactScene()
{
    Scene scene = builtinScene("df");
    scene.bearingErrorDeg = 0;
    return scene;
}

/// A session that has taken the first `blocks` blocks of a scene, and the truth about them.
struct Received {
    Received(const Scene& scene, std::uint64_t blocks, SessionOptions options = {})
        : session(std::move(options))
    {
        auto source = std::make_unique<SimulationSource>(scene, 1, 0);
        source->simulator().setLimit(blocks);
        source->simulator().setTruthSink([this](const std::string& line) {
            const Json told = Json::parse(line);
            if (told["type"] == "trace")
                truth.push_back(told["signals"]);
        });
        bool hasEnded = false;
        QObject::connect(&session, &Session::finished, [&hasEnded] { hasEnded = true; });
        session.run(std::move(source));
        while (!hasEnded)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    [[nodiscard]] const values::DFSpectrumMap& map() { return *session.values().dfSpectrum; }

    // The channel nearest to a frequency.
    [[nodiscard]] unsigned channelAt(double hertz)
    {
        for (const values::ChannelRange& range : map().GetChannelRangeDefinition().GetRanges()) {
            const double channel = std::round((hertz - range.start) / range.step);
            if (channel >= 0 && channel < range.count)
                return range.firstChannel + static_cast<unsigned>(channel);
        }
        ADD_FAILURE() << hertz << " Hz lies in no scan range";
        return 0;
    }
    [[nodiscard]] const Sample& at(double hertz) { return *map().FindChannelValue(channelAt(hertz)); }

    // Channel ids of a validity.
    [[nodiscard]] std::vector<unsigned> channelsOf(Validity validity)
    {
        std::vector<unsigned> channels;
        for (unsigned id = 0; id < map().GetValues().size(); ++id) {
            if (map().GetValues()[id].getValidity() == validity)
                channels.push_back(id);
        }
        return channels;
    }

    Session session;
    std::vector<Json> truth; // signals of each block
};

// The next blocks of a simulator, one after another.
void take(Session& session, Simulator& simulator, std::uint64_t blocks)
{
    for (std::uint64_t block = 0; block < blocks; ++block) {
        const wire::Bytes bytes = simulator.next()->bytes;
        session.take({std::make_unique<UdpDatagram>(support::received(bytes)), 0, {}});
    }
}

SessionOptions with(Processor processor)
{
    SessionOptions options;
    options.df = processor;
    return options;
}

std::vector<unsigned> idsFrom(unsigned first, unsigned last)
{
    std::vector<unsigned> ids;
    for (unsigned id = first; id <= last; ++id)
        ids.push_back(id);
    return ids;
}

// The map has tenths of what the wire has: bearings in hundredths of a degree, quality in percent.
void expectSignal(const Json& signal, Received& received)
{
    const Sample& sample = received.at(signal["frequencyHz"]);
    ASSERT_TRUE(signal.contains("quality")) << signal;
    EXPECT_EQ(sample.getValidity(), Validity::Valid) << signal;
    EXPECT_EQ(sample.getAzimuth(), std::lround(signal["azimuthDeg"].get<double>() * 100)) << signal;
    EXPECT_EQ(sample.getElevation(), std::lround(signal["elevationDeg"].get<double>() * 100)) << signal;
    EXPECT_EQ(sample.getQuality(), std::floor(signal["quality"].get<double>())) << signal;
}

TEST(DfSession, BringsEachEmitterToItsFrequencyAndAzimuthWithBothProcessors)
{
    for (const Processor processor : {Processor::Scan, Processor::Scif}) {
        Received received{exactScene(), blocksOfASweep, with(processor)};
        std::vector<std::string> names;
        for (const Json& onAir : received.truth) {
            for (const Json& signal : onAir) {
                names.push_back(signal["name"]);
                expectSignal(signal, received);
            }
        }
        EXPECT_THAT(names, testing::IsSupersetOf({"repeater", "mobile 1", "mobile 2", "beacon", "link"}));
        EXPECT_EQ(received.map().GetScanCount(), 1U);
        EXPECT_EQ(received.session.status().dfChannels, 1202U);
        EXPECT_EQ(received.session.status().dfSweeps, 1U);
        EXPECT_EQ(received.session.ledger().counters().losses(), 0U);
    }
}

TEST(DfSession, ShowsTheLevelOfASteadyCarrier)
{
    Received received{exactScene(), blocksOfASweep};

    // 30 and 55 dBuV, in hundredths of a dB; the noise adds a little.
    EXPECT_NEAR(received.at(154e6).getLevel(), 3000, 30);
    EXPECT_NEAR(received.at(438.2e6).getLevel(), 5500, 30);
    EXPECT_NEAR(received.at(154e6).getShortTimeLevel(), 3000, 130);
    // 55 dBuV at 438.2 MHz: 20 lg 438.2 - 29.8 dB/m more.
    EXPECT_NEAR(received.at(438.2e6).getFieldStrength(), 5500 + 2303, 30);
}

TEST(DfSession, HasNoBearingsWhereThereIsOnlyNoise)
{
    Scene scene = exactScene();
    scene.onAir.clear();
    Received received{scene, blocksOfASweep};

    for (const Sample& sample : received.map().GetValues()) {
        EXPECT_EQ(sample.getQuality(), 0);
        EXPECT_EQ(sample.getAzimuth(), 0);
        EXPECT_EQ(sample.getElevation(), 0);
    }
}

TEST(DfSession, FollowsEmittersThatMoveSweepBySweep)
{
    // "mobile 1" at 3 degrees a second, 13.3 sweeps a second; the last sweep is the one in the map.
    for (const std::uint64_t sweeps : {1U, 40U, 400U}) {
        Received received{exactScene(), sweeps * blocksOfASweep};
        const Json& firstBlock = received.truth[received.truth.size() - blocksOfASweep];
        const auto mobile =
            std::ranges::find_if(firstBlock, [](const Json& signal) { return signal["name"] == "mobile 1"; });
        ASSERT_NE(mobile, firstBlock.end());
        const double seconds = static_cast<double>(sweeps - 1) * 3 / 40;
        EXPECT_NEAR((*mobile)["azimuthDeg"], 180 + 3 * seconds, 0.051);
        expectSignal(*mobile, received);
        EXPECT_EQ(received.map().GetScanCount(), sweeps);
    }
}

TEST(DfSession, IsTheSameWithBothProcessorsButForWhatScifDoesNotTake)
{
    Scene scene = builtinScene("df");
    scene.overflowProbability = 0.3;
    Received scan{scene, 4 * blocksOfASweep, with(Processor::Scan)};
    Received scif{scene, 4 * blocksOfASweep, with(Processor::Scif)};

    ASSERT_EQ(scan.map().GetValues().size(), scif.map().GetValues().size());
    EXPECT_TRUE(scan.map().GetChannelRangeDefinition() == scif.map().GetChannelRangeDefinition());
    EXPECT_EQ(scan.map().GetEndOfScanTimeStamp(), scif.map().GetEndOfScanTimeStamp());
    const Sample none;
    for (std::size_t id = 0; id < scan.map().GetValues().size(); ++id) {
        Sample expected = scan.map().GetValues()[id];
        expected.setFieldStrength(none.getFieldStrength());
        ASSERT_TRUE(scif.map().GetValues()[id] == expected) << id;
    }
}

TEST(DfSession, TurnsOverflowIntoUnusableSamplesAndASignal)
{
    Scene scene = exactScene();
    scene.overflowProbability = 1;
    for (const Processor processor : {Processor::Scan, Processor::Scif}) {
        Received received{scene, blocksOfASweep, with(processor)};
        EXPECT_THAT(received.channelsOf(Validity::Unusable), SizeIs(1202));
    }
    Session session;
    int overflows = 0;
    QObject::connect(session.dfScan(), &MdpDFPScan::SignalOverflow, [&overflows] { ++overflows; });
    Simulator simulator{scene, 1};
    session.setScanRanges(scanRangesOf(scene));
    session.values().commands->SelectKey(24);
    take(session, simulator, 5);
    EXPECT_EQ(overflows, 5);
}

TEST(DfSession, BlanksSuppressRangesGivenAsOptionsOrAsValuesInEveryBlock)
{
    SessionOptions options;
    options.excluded = {{ExcludedRange::Kind::Suppress, 147e6, 147.5e6}};
    Received received{exactScene(), blocksOfASweep, options};

    // 147 MHz is channel 160 of 145 MHz + k x 12.5 kHz.
    EXPECT_EQ(received.channelsOf(Validity::Blanked), idsFrom(160, 200));
    // Blanked is the sample; what was measured stays in it.
    EXPECT_EQ(received.at(147.25e6).getAzimuth(), 18000);
    Session session;
    session.values().globalSuppressRanges->AddRange(430e6, 430.05e6);
    EXPECT_EQ(FreqStore::Instance()->GetGlobalSuppressRange(), session.values().globalSuppressRanges);
    EXPECT_EQ(values::Tree::Instance()->Find("/FREQSTORE/GLOBALSUPPRESS"),
              session.values().globalSuppressRanges);
}

TEST(DfSession, BlanksBlankingRangesInBlocksThatReportBlankingAndTellsTheirStatus)
{
    SessionOptions options;
    options.excluded = {{ExcludedRange::Kind::Blanking, 438e6, 438.1e6}};
    Scene scene = exactScene();
    {
        Received quiet{scene, blocksOfASweep, options};
        EXPECT_THAT(quiet.channelsOf(Validity::Blanked), IsEmpty());
        EXPECT_FALSE(quiet.session.values().blankingStatus->FindItem(1)->IsBlanked());
    }
    scene.blankingProbability = 1;
    Received reported{scene, blocksOfASweep, options};
    // 438 MHz is channel 320 of 430 MHz + k x 25 kHz, behind 801 others.
    EXPECT_EQ(reported.channelsOf(Validity::Blanked), idsFrom(801 + 320, 801 + 324));
    EXPECT_TRUE(reported.session.values().blankingStatus->FindItem(1)->IsBlanked());
}

TEST(DfSession, OfferRangesAsValuesThatTakeEffectWithTheNextBlock)
{
    Scene scene = exactScene();
    scene.blankingProbability = 1;
    Session session;
    session.setScanRanges(scanRangesOf(scene));
    session.values().commands->SelectKey(23);
    Simulator simulator{scene, 1};
    const auto sweep = [&] { take(session, simulator, blocksOfASweep); };
    const auto validityOf = [&session](unsigned id) {
        return session.values().dfSpectrum->FindChannelValue(id)->getValidity();
    };
    sweep();
    EXPECT_EQ(validityOf(48), Validity::Valid);
    const auto suppress = session.values().localSuppressRanges->AddRange(145.6e6, 145.6e6);
    const auto blanking = session.values().blankingRanges->AddRange(154e6, 154e6);
    sweep();
    EXPECT_EQ(validityOf(47), Validity::Valid);
    EXPECT_EQ(validityOf(48), Validity::Blanked);
    EXPECT_EQ(validityOf(49), Validity::Valid);
    EXPECT_EQ(validityOf(720), Validity::Blanked);
    EXPECT_TRUE(session.values().blankingStatus->FindItem(blanking)->IsBlanked());
    session.values().localSuppressRanges->RemoveRange(suppress);
    session.values().blankingRanges->RemoveRange(blanking);
    sweep();
    EXPECT_EQ(validityOf(48), Validity::Valid);
    EXPECT_EQ(validityOf(720), Validity::Valid);
    EXPECT_FALSE(session.values().blankingStatus->FindItem(blanking));
}

TEST(DfSession, BlanksAzimuthSectorsOfAScanRange)
{
    SessionOptions options;
    options.scanRanges = scanRangesOf(exactScene());
    options.scanRanges[0]->azimuthSectors = {{3400, 700}}; // across north: "beacon" and "repeater"
    Received received{exactScene(), blocksOfASweep, options};

    EXPECT_EQ(received.at(145.6e6).getValidity(), Validity::Blanked);
    EXPECT_EQ(received.at(145.6e6).getQuality(), 0);
    EXPECT_EQ(received.at(154e6).getValidity(), Validity::Blanked);
    EXPECT_EQ(received.at(147.25e6).getValidity(), Validity::Valid);
    EXPECT_EQ(received.at(438.2e6).getValidity(), Validity::Valid); // the other job has no sectors
}

TEST(DfSession, CarriesTheWavesOfSuperResolution)
{
    Scene scene = exactScene();
    scene.superResolution = 2;
    Received received{scene, blocksOfASweep};

    const Sample& sample = received.at(438.2e6);
    const values::SuperResolutionSample* const waves = sample.getSuperResolutionSample();
    ASSERT_TRUE(waves);
    ASSERT_EQ(waves->getCount(), 2);
    EXPECT_EQ(waves->getAzimuth(0), 24100);
    EXPECT_EQ(waves->getAzimuth(1), 27100);
    EXPECT_EQ(waves->getLevel(0), sample.getLevel());
    EXPECT_EQ(waves->getLevel(1), sample.getLevel() - 300);
    EXPECT_EQ(waves->getQuality(0), sample.getQuality());
    EXPECT_EQ(waves->getElevation(0), -150);
    // Noise has no bearing: no value is 0.
    EXPECT_EQ(received.at(432e6).getSuperResolutionSample()->getQuality(0), 0);
    Received scif{scene, blocksOfASweep, with(Processor::Scif)};
    EXPECT_FALSE(scif.at(438.2e6).getSuperResolutionSample());
    EXPECT_EQ(scif.at(438.2e6).getAzimuth(), 24100);
}

TEST(DfSession, TellsTheValuesOfASweep)
{
    Received received{exactScene(), 2 * blocksOfASweep};
    const auto number = [](const char* path) {
        const auto value = std::dynamic_pointer_cast<values::ValueNumeric<qint64>>(
            values::Tree::Instance()->Find(QString::fromLatin1("/VK410/KRT/") + QLatin1String(path)));
        return value ? value->GetValue() : -1;
    };

    EXPECT_EQ(number("SWEEPTIME"), 75'000);
    EXPECT_EQ(number("DFTIMESTAMP"), 1'735'689'600'125'000);
    // From the first block behind an end of sweep to the next end.
    EXPECT_EQ(number("SPECTRUMAVERAGINGTIME"), 50'000);
    const auto methods = std::dynamic_pointer_cast<values::ValueList<int>>(
        values::Tree::Instance()->Find("/VK410/KRT/DFALTUSED"));
    EXPECT_THAT(methods->GetList(), ElementsAre(1, 2));
}

TEST(DfSession, PrefersTheGivenScanRangesToTheSources)
{
    SessionOptions options;
    options.scanRanges = {scanRangesOf(exactScene())[1]};
    Received received{exactScene(), blocksOfASweep, options};

    EXPECT_THAT(received.map().GetValues(), SizeIs(401));
    EXPECT_EQ(received.session.ledger().counters().notAccepted, 2U);
    EXPECT_EQ(received.at(438.2e6).getAzimuth(), 24100);
}

TEST(DfSession, OfAnotherSceneHasNoScanRanges)
{
    const SimulationSource source{builtinScene("band"), 1};
    EXPECT_THAT(source.scanRanges(), IsEmpty());
}

} // namespace
