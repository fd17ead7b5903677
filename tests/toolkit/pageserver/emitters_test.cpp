// SPDX-License-Identifier: MIT
// Emitters in pictures made by hand.
#include "toolkit/pageserver/emitters.h"
#include <gmock/gmock.h>

namespace {

using namespace pageserver;
using testing::DoubleNear;
using testing::IsEmpty;
using testing::SizeIs;
using Fields = values::DFSpectrumSample::Fields;
using Validity = values::DFSpectrumSample::Validity;

Fields sample(double azimuthDeg, short quality = 80, double levelDb = 40)
{
    return {Validity::Valid,
            quality,
            static_cast<quint16>(azimuthDeg * 100),
            static_cast<qint16>(levelDb * 100),
            0,
            0,
            0};
}

// A map of 100 channels of 10 kHz from 100 MHz; what is not set has no bearing.
DfPicture picture(double seconds, const std::map<std::size_t, Fields>& channels)
{
    DfPicture made;
    made.grid.AddRangeDefinition(0, 100, 100e6, 10e3, {});
    made.info.receivedNs = static_cast<qint64>(seconds * 1e9);
    made.samples.assign(100, {Validity::Valid, 0, 0, -500, 0, 0, 0});
    for (const auto& [channel, fields] : channels)
        made.samples[channel] = fields;
    return made;
}

TEST(Emitters, LieAtTheStrongestOfNeighbouringChannels)
{
    Emitters emitters;
    emitters.add(picture(1, {{49, sample(90, 80, 30)}, {50, sample(91, 90, 40)}, {51, sample(92, 80, 35)}}));
    const std::vector<Emitter> found = emitters.list();
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].frequencyHz, 100.5e6);
    EXPECT_NEAR(found[0].azimuthDeg, 91, 1e-6);
    EXPECT_EQ(found[0].quality, 90);
    EXPECT_EQ(found[0].levelDb, 40);
    EXPECT_EQ(found[0].ageMs, 0);
    EXPECT_NEAR(found[0].spreadDeg, 0, 1e-4);
}

TEST(Emitters, AreAveragedOnTheCircleByQuality)
{
    Emitters emitters;
    emitters.add(picture(1, {{10, sample(350, 60)}}));
    emitters.add(picture(2, {{10, sample(20, 30)}}));
    const Emitter found = emitters.list().at(0);
    EXPECT_THAT(found.azimuthDeg, DoubleNear(359.896, 1e-3)); // two parts of 350 and one of 20
    EXPECT_GT(found.spreadDeg, 13);
    EXPECT_LT(found.spreadDeg, 15);
    EXPECT_EQ(found.quality, 45);
}

TEST(Emitters, NeedAValidBearingWorthBelieving)
{
    Emitters emitters;
    Fields blanked = sample(10);
    blanked.validity = Validity::Blanked;
    Fields unmeasured = sample(10);
    unmeasured.level = values::noLevel;
    emitters.add(picture(1, {{10, sample(10, 29)}, {20, blanked}, {30, unmeasured}}));
    EXPECT_THAT(emitters.list(), IsEmpty());
    emitters.add(picture(2, {{10, sample(10, 30)}}));
    EXPECT_THAT(emitters.list(), SizeIs(1));
}

TEST(Emitters, OfSeparatePlacesAreSeparateAndThoseThatWanderALittleAreOne)
{
    Emitters emitters;
    emitters.add(picture(1, {{10, sample(10)}, {14, sample(200)}}));
    emitters.add(picture(2, {{11, sample(10)}, {15, sample(200)}}));
    const std::vector<Emitter> found = emitters.list();
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_EQ(found[0].frequencyHz, 100.105e6);
    EXPECT_EQ(found[1].frequencyHz, 100.145e6);
}

TEST(Emitters, AgeAndAreForgottenAfterFiveSeconds)
{
    Emitters emitters;
    emitters.add(picture(1, {{10, sample(10)}}));
    emitters.add(picture(6, {}));
    ASSERT_THAT(emitters.list(), SizeIs(1));
    EXPECT_EQ(emitters.list()[0].ageMs, 5'000);
    emitters.add(picture(6.001, {}));
    EXPECT_THAT(emitters.list(), IsEmpty());
}

TEST(Emitters, AreForgottenWhenAPlaybackGoesBack)
{
    Emitters emitters;
    emitters.add(picture(100, {{10, sample(10)}}));
    emitters.add(picture(3, {{20, sample(20)}}));
    ASSERT_THAT(emitters.list(), SizeIs(1));
    EXPECT_EQ(emitters.list()[0].frequencyHz, 100.2e6);
}

TEST(Emitters, ThatMoveHaveATrendAlsoAcrossNorth)
{
    Emitters emitters;
    for (int i = 0; i <= 20; ++i)
        emitters.add(picture(1 + 0.1 * i, {{10, sample(i < 10 ? 357 + 0.3 * i : 0.3 * (i - 10))}}));
    const Emitter found = emitters.list().at(0);
    EXPECT_NEAR(found.trendDegPerSecond, 3, 0.05);
    EXPECT_NEAR(std::remainder(found.azimuthDeg, 360), 0, 0.1);
}

TEST(Emitters, SeenForATwinklingHaveNoTrend)
{
    Emitters emitters;
    emitters.add(picture(1.0, {{10, sample(10)}}));
    emitters.add(picture(1.1, {{10, sample(30)}}));
    EXPECT_EQ(emitters.list().at(0).trendDegPerSecond, 0);
}

TEST(Emitters, OfMapsWithGapsAndSeveralRangesHaveTheirFrequencies)
{
    DfPicture made;
    made.grid.AddRangeDefinition(5, 10, 100e6, 10e3, {});
    made.grid.AddRangeDefinition(20, 10, 430e6, 25e3, {});
    made.samples.assign(25, {});
    made.samples[9] = sample(10);  // channel id 14, the last of the first range
    made.samples[15] = sample(20); // channel id 20, the first of the second one
    Emitters emitters;
    emitters.add(made);
    const std::vector<Emitter> found = emitters.list();
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_EQ(found[0].frequencyHz, 100.09e6);
    EXPECT_EQ(found[1].frequencyHz, 430e6);
}

TEST(Emitters, AreAtMostAHundredTheStrongest)
{
    DfPicture made;
    made.grid.AddRangeDefinition(0, 4'000, 100e6, 10e3, {});
    made.samples.assign(4'000, {});
    for (std::size_t i = 0; i < 4'000; i += 10)
        made.samples[i] = sample(10, 80, static_cast<double>(i) / 50);
    Emitters emitters;
    emitters.add(made);
    const std::vector<Emitter> found = emitters.list();
    ASSERT_THAT(found, SizeIs(100));
    EXPECT_EQ(found.front().frequencyHz, 100e6 + 3'000 * 10e3);
}

} // namespace
