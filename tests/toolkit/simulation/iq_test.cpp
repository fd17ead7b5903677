// SPDX-License-Identifier: MIT
// Traces from recorded I/Q, beside a transform by its definition.
#include "sigmf_files.h"
#include "support/tcp_receiver.h"
#include "toolkit/receiver/session.h"
#include "toolkit/simulation/iqfile.h"
#include "toolkit/simulation/simulationsource.h"
#include <QTemporaryDir>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>

namespace {

using namespace simulation;
using support::Iq;
using support::Tone;

class FromIq : public testing::Test {
protected:
    static constexpr double rate = 100e3;
    static constexpr double centre = 50e6;

    std::string write(const Iq& iq, const std::string& datatype = "cf32_le")
    {
        return support::writeSigmf(folder.path().toStdString(), iq, datatype, rate, centre);
    }
    static Scene sceneFor(const std::string& meta, const char* kind = "band")
    {
        Scene scene = builtinScene(kind);
        useRecording(scene, meta);
        return scene;
    }
    QTemporaryDir folder;
};

// Values of the panoramas (or, with another header size, of the first field) of all datagrams, in dB.
std::vector<std::vector<double>> levelsOf(const Scene& scene, std::size_t optHeader = 50)
{
    Simulator simulator{scene, 1};
    std::vector<std::vector<double>> traces;
    while (const std::optional<Emission> emission = simulator.next()) {
        const std::size_t begin = 28 + optHeader;
        std::vector<double>& levels = traces.emplace_back();
        for (int i = 0; i < scene.points; ++i)
            levels.push_back(
                wire::load<std::int16_t>(emission->bytes.data() + begin + 2 * i, wire::ByteOrder::Big) /
                10.0);
    }
    return traces;
}

TEST_F(FromIq, APanoramaIsSetLikeTheRecording)
{
    const Scene scene = sceneFor(write(Iq(5000)));

    EXPECT_EQ(scene.centreHz, 50e6);
    EXPECT_EQ(scene.spanHz, 80e3);
    EXPECT_EQ(scene.points, 801);
}

TEST_F(FromIq, EveryChannelIsWhereAndAsStrongAsTheTransformByDefinitionSays)
{
    const Iq iq = support::tones(
        5000, rate, {{10e3, 0.5}, {-23.4e3, 0.02}, {31e3, 0.1, 2300, 2500}, {-5e3, 0.3, 900, 1100}});
    Scene scene = sceneFor(write(iq));
    scene.rate = 100;
    scene.points = 81; // 1 kHz apart: spectra of 100 samples
    const auto traces = levelsOf(scene);

    ASSERT_EQ(traces.size(), 5U);
    for (std::size_t t = 0; t < traces.size(); ++t) {
        for (std::size_t k = 0; k < 81; ++k) {
            const double frequency = (-40e3 + 1e3 * static_cast<double>(k)) / rate;
            const double expected =
                10 * std::log10(support::largestPower(iq, 1000 * t, 1000 * (t + 1), 100, frequency));
            // What lies near the rounding of single precision is not compared.
            if (expected > -90) {
                EXPECT_NEAR(traces[t][k], expected, 0.15) << t << " " << k;
            }
        }
    }
    EXPECT_NEAR(traces[0][50], 20 * std::log10(0.5), 0.06);
    EXPECT_GT(traces[2][71], -21);
    EXPECT_LT(traces[3][71], -60); // the burst was in the third trace
}

TEST_F(FromIq, LevelsAreTheSameInEveryFormat)
{
    const Iq iq = support::tones(4000, rate, {{12e3, 0.25}});
    for (const char* const format : {"cu8", "ci8", "ci16_le", "cf32_le"}) {
        const auto traces = levelsOf(sceneFor(write(iq, format)));
        ASSERT_FALSE(traces.empty()) << format;
        EXPECT_NEAR(traces[0][520], -12.04, 0.15) << format; // -40 kHz + 520 x 100 Hz
    }
}

TEST_F(FromIq, CentreAndSpanCanBeNarrowed)
{
    Scene scene = sceneFor(write(support::tones(20'000, rate, {{12e3, 0.25}})));
    scene.centreHz += 10e3;
    scene.spanHz = 8e3;
    scene.points = 41; // 200 Hz apart
    const auto traces = levelsOf(scene);

    ASSERT_FALSE(traces.empty());
    EXPECT_NEAR(traces[0][30], -12.04, 0.1); // 6 kHz + 30 x 200 Hz
}

TEST_F(FromIq, AChannelThatIsWiderThanABinShowsItsLargest)
{
    Scene scene = sceneFor(write(support::tones(20'000, rate, {{12.3e3, 0.25}})));
    scene.spanHz = 80e3;
    scene.points = 11; // 8 kHz apart, bins 6.25 kHz
    const auto traces = levelsOf(scene);

    EXPECT_GT(traces[0][7], -14); // 16 kHz, nearest to 12.5 kHz
    EXPECT_LT(traces[0][2], -30);
}

TEST_F(FromIq, ZeroSpanShowsTheMeanPowerOverTime)
{
    Scene scene = sceneFor(write(support::tones(10'200, rate, {{3e3, 0.5, 2'000, 3'000}})), "zerospan");
    scene.rate = 10;
    scene.windowMs = 100;
    scene.points = 101;
    const auto traces = levelsOf(scene, 96);

    ASSERT_EQ(traces.size(), 1U);
    for (int i = 0; i < 101; ++i) {
        const bool isOn = i >= 20 && i < 30;
        EXPECT_NEAR(traces[0][static_cast<std::size_t>(i)], isOn ? -6.02 : -300, 0.06) << i;
    }
}

TEST_F(FromIq, EndsWithTheRecordingUnlessItLoops)
{
    Scene scene = sceneFor(write(Iq(5'000)));
    EXPECT_EQ(levelsOf(scene).size(), 3U); // 1667 samples each, the last one from 3333 on

    scene.iqLoop = true;
    Simulator simulator{scene, 1};
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(simulator.next());
}

struct Refusal {
    const char* name;
    const char* meta;
    const char* text;
};

class BadDescription : public FromIq {
protected:
    // What is said of a recording with this description, behind its path.
    std::string refusal(const std::string& description)
    {
        const std::string meta = write(Iq(100));
        std::ofstream(meta) << description;
        try {
            const IqFile read{meta};
        } catch (const BadScene& bad) {
            return std::string(bad.what()).substr(meta.size());
        }
        return "accepted";
    }
};

class BadRecordings : public BadDescription, public testing::WithParamInterface<Refusal> {};

TEST_P(BadRecordings, AreRefusedWithPlaceExpectedAndFound)
{
    EXPECT_EQ(refusal(GetParam().meta), GetParam().text);
}

TEST_F(BadDescription, WithListsInListsDoesNotTakeTheStack)
{
    constexpr std::size_t depth = 1'000'000;
    EXPECT_THAT(
        refusal(R"({"global":{"core:datatype":)" + std::string(depth, '[') + std::string(depth, ']') + "}}"),
        testing::StartsWith(": core:datatype: expected cu8, ci8, ci16_le or cf32_le, found [[["));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BadRecordings,
    testing::Values(Refusal{"NoJson", "{",
                            ": expected a JSON object with a \"global\" object in it, found something else"},
                    Refusal{"NoDatatype", R"({"global":{}})",
                            ": core:datatype: expected cu8, ci8, ci16_le or cf32_le, found nothing"},
                    Refusal{"RealSamples", R"({"global":{"core:datatype":"rf32_le"}})",
                            R"(: core:datatype: expected cu8, ci8, ci16_le or cf32_le, found "rf32_le")"},
                    Refusal{"NoRate", R"({"global":{"core:datatype":"cu8"}})",
                            ": core:sample_rate: expected a number of samples a second, found nothing"},
                    Refusal{"RateZero", R"({"global":{"core:datatype":"cu8","core:sample_rate":0}})",
                            ": core:sample_rate: expected a number of samples a second, found 0"}),
    [](const auto& row) { return std::string(row.param.name); });

std::string refusalOf(const Scene& scene)
{
    try {
        const Simulator simulator{scene, 1};
    } catch (const BadScene& bad) {
        return bad.what();
    }
    return "accepted";
}

TEST_F(FromIq, ARecordingTooShortForATraceIsRefused)
{
    const std::string meta = write(Iq(999));
    EXPECT_EQ(refusalOf(sceneFor(meta)),
              meta + ": expected at least 1000 samples, which one trace takes, found 999");
}

TEST_F(FromIq, ASpanOutsideTheRecordingIsRefused)
{
    const std::string meta = write(Iq(5000));
    Scene scene = sceneFor(meta);
    scene.centreHz += 20e3;
    EXPECT_EQ(refusalOf(scene), meta + ": expected a centre and span inside 49950000 to 50050000 Hz, found "
                                       "49980000 to 50060000");
}

TEST_F(FromIq, StepsFinerThanASpectrumCanHaveAreRefused)
{
    const std::string meta = write(Iq(5000));
    Scene scene = sceneFor(meta);
    scene.spanHz = 8;
    EXPECT_EQ(refusalOf(scene), meta + ": expected steps of at least 0.0953674 Hz, found 0.01");
}

TEST_F(FromIq, AWindowLongerThanATraceCanTakeIsRefused)
{
    const std::string meta = write(Iq(5000));
    Scene scene = sceneFor(meta, "zerospan");
    scene.windowMs = 1e6;
    EXPECT_EQ(refusalOf(scene), meta + ": expected a windowMs of at most 671089, found 1e+06");
}

TEST_F(FromIq, ARecordingWithoutItsSamplesIsRefused)
{
    const std::string meta = write(Iq(10));
    const std::string data = folder.path().toStdString() + "/iq.sigmf-data";
    ASSERT_EQ(std::remove(data.c_str()), 0);
    try {
        const IqFile read{meta};
        FAIL();
    } catch (const BadScene& bad) {
        EXPECT_EQ(bad.what(), data + ": cannot be read; the samples of a recording lie beside it");
    }
}

// Plays `scene` into a session and compares its level map, after the last trace, with `expectedDb`.
void expectMap(const Scene& scene, const std::vector<double>& expectedDb)
{
    receiver::Session session;
    session.run(std::make_unique<SimulationSource>(scene, 1, 0));
    bool hasFinished = false;
    QObject::connect(&session, &receiver::Session::finished, [&] { hasFinished = true; });
    ASSERT_TRUE(support::waitUntil([&] { return hasFinished; }, 20'000));
    const auto levels = session.values().ifPanorama->GetValues();
    ASSERT_EQ(levels.size(), expectedDb.size());
    for (std::size_t k = 0; k < levels.size(); ++k) {
        if (expectedDb[k] > -90) {
            EXPECT_NEAR(levels[k] / 10.0, expectedDb[k], 0.2) << k;
        }
    }
    EXPECT_TRUE(session.ledger().counters().balances());
    EXPECT_EQ(session.ledger().counters().losses(), 0U);
}

std::vector<double> expectedPanorama(const Iq& iq, std::size_t from, std::size_t to, std::size_t size,
                                     std::size_t points)
{
    std::vector<double> expected;
    for (std::size_t k = 0; k < points; ++k) {
        const double bin = static_cast<double>(k) - static_cast<double>(points / 2);
        expected.push_back(
            10 * std::log10(support::largestPower(iq, from, to, size, bin / static_cast<double>(size))));
    }
    return expected;
}

TEST_F(FromIq, AGeneratedRecordingArrivesInTheLevelMapOfASession)
{
    const Iq iq = support::tones(5'900, rate, {{10e3, 0.5}, {-30e3, 0.2, 4'100, 4'500}});
    expectMap(sceneFor(write(iq)), expectedPanorama(iq, 3'333, 5'000, 1000, 801));
}

TEST(RecordedBursts, OfAircraftArriveInTheLevelMapWhereATransformByDefinitionPutsThem)
{
    const char* const data = std::getenv("VK410_DATA");
    if (!data)
        GTEST_SKIP() << "VK410_DATA names no folder of recordings";
    const std::string meta = std::string(data) + "/airband-1090MHz.sigmf-meta";
    const Iq iq = support::readCu8(meta);
    Scene scene = builtinScene("band");
    useRecording(scene, meta);
    scene.rate = 250; // 8000 samples a trace
    // 356868 samples: the last trace begins at 44 x 8000 and ends with the recording.
    const std::vector<double> expected = expectedPanorama(iq, 352'000, 356'868, 1000, 801);
    expectMap(scene, expected);
}

} // namespace
