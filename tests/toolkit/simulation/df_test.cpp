// SPDX-License-Identifier: MIT
// Direction-finding scans, read by the byte.
#include "toolkit/simulation/simulator.h"
#include <bit>
#include <cstdlib>
#include <gmock/gmock.h>

namespace {

using namespace simulation;
using testing::ElementsAre;
using wire::ByteOrder;

constexpr int noValue = 32766;

// One block as it lies on the wire: 16 bytes, 60 bytes of attribute header, 74 of optional header, fields.
struct Block {
    explicit Block(wire::Bytes from)
        : bytes(std::move(from))
    {}
    template <typename T>
    [[nodiscard]] T at(std::size_t offset) const
    {
        return wire::load<T>(bytes.data() + offset, ByteOrder::Big);
    }
    [[nodiscard]] std::size_t count() const { return at<std::uint32_t>(40); }
    [[nodiscard]] std::int64_t startHz() const { return at<std::int64_t>(76 + 8); }
    [[nodiscard]] int firstChannel() const { return at<std::int32_t>(76 + 16); }
    [[nodiscard]] int flags() const { return at<std::int32_t>(76 + 48); }
    [[nodiscard]] int jobId() const { return at<std::int16_t>(76 + 68); }
    // Bits 11, 12, 13, 14, 15, 18: short-time level, azimuth, quality, field strength, level, elevation.
    [[nodiscard]] int item(std::size_t field, std::size_t channel) const
    {
        return at<std::int16_t>(150 + 2 * (field * count() + channel));
    }
    [[nodiscard]] int azimuth(std::size_t channel) const { return item(1, channel); }
    [[nodiscard]] int quality(std::size_t channel) const { return item(2, channel); }
    [[nodiscard]] int level(std::size_t channel) const { return item(4, channel); }
    wire::Bytes bytes;
};

std::vector<Block> blocksOf(const Scene& scene, std::uint64_t count)
{
    Simulator simulator{scene, 1};
    simulator.setLimit(count);
    std::vector<Block> blocks;
    while (std::optional<Emission> emission = simulator.next())
        blocks.emplace_back(std::move(emission->bytes));
    return blocks;
}

TEST(DfScene, SweepsItsJobsBlockByBlockAndMarksTheEndOfEachSweep)
{
    std::vector<std::string> order;
    for (const Block& block : blocksOf(builtinScene("df"), 6))
        order.push_back(std::to_string(block.jobId()) + ": " + std::to_string(block.firstChannel()) + "+" +
                        std::to_string(block.count()) + ((block.flags() & 0x10) != 0 ? " end" : ""));

    EXPECT_THAT(order, ElementsAre("1: 0+401", "1: 401+400", "2: 0+401 end", "1: 0+401", "1: 401+400",
                                   "2: 0+401 end"));
}

TEST(DfScene, SaysInItsHeaderWhatItsBlocksAre)
{
    const Block block = blocksOf(builtinScene("df"), 2).at(1);

    EXPECT_EQ(block.at<std::uint16_t>(16), 5301);
    EXPECT_EQ(block.at<std::uint32_t>(16 + 4) + 24, block.bytes.size() - 16);
    EXPECT_EQ(block.at<std::uint32_t>(16 + 36), 0x4F800U);
    EXPECT_EQ(block.at<std::uint32_t>(16 + 32), 74U);
    EXPECT_EQ(block.startHz(), 145'000'000);
    EXPECT_EQ(block.at<std::int32_t>(76 + 20), 12'500'000); // step: thousandths
    EXPECT_EQ(block.at<std::int32_t>(76 + 24), 1000);
    EXPECT_EQ(block.at<std::int32_t>(76 + 28), 5'000'000);
    EXPECT_EQ(block.at<std::int64_t>(76 + 52), 75'000'000); // three blocks at 40 a second
    EXPECT_EQ(block.at<std::int64_t>(76 + 60), 1'735'689'600'025'000'000);
    EXPECT_EQ(block.flags(), 1 | 1 << 12); // valid, Watson-Watt
    EXPECT_EQ(block.at<std::int16_t>(76 + 70), 0);
}

TEST(DfScene, FindsItsTransmittersWhereTheyAre)
{
    const std::vector<Block> blocks = blocksOf(builtinScene("df"), 3);

    // 145.6 MHz is channel 48 of 145 MHz + k x 12.5 kHz; 154 MHz is 720, in the second block 319.
    EXPECT_NEAR(blocks[0].azimuth(48), 625, 10);
    EXPECT_GT(blocks[0].quality(48), 900);
    EXPECT_NEAR(blocks[1].azimuth(319), 3512, 15);
    EXPECT_NEAR(blocks[1].level(319), 300, 3);
    // 438.2 MHz is channel 328 of 430 MHz + k x 25 kHz.
    EXPECT_NEAR(blocks[2].azimuth(328), 2410, 10);
    EXPECT_NEAR(blocks[2].level(328), 550, 3);
}

TEST(DfScene, HasNoBearingWhereThereIsOnlyNoise)
{
    const Block block = blocksOf(builtinScene("df"), 1).at(0);

    EXPECT_EQ(block.azimuth(300), noValue);
    EXPECT_EQ(block.quality(300), noValue);
    EXPECT_EQ(block.item(5, 300), noValue);
    EXPECT_LT(block.level(300), 60);
    for (std::size_t k = 0; k < block.count(); ++k)
        EXPECT_TRUE(block.azimuth(k) == noValue || (block.azimuth(k) >= 0 && block.azimuth(k) < 3600)) << k;
}

TEST(DfScene, LetsBearingsMoveAndCross)
{
    Scene scene = builtinScene("df");
    // 147.25 MHz is channel 180 of the first block; 152.5 MHz is 600, in the second one 199.
    const std::vector<Block> blocks = blocksOf(scene, 40 * 22);
    const Block& early = blocks[0];
    const Block& late = blocks[3 * 290]; // after 21.75 s at 3 degrees a second

    EXPECT_NEAR(early.azimuth(180), 1800, 20);
    EXPECT_NEAR(late.azimuth(180), 1800 + 652, 20);
    EXPECT_LT(early.azimuth(180), blocks[1].azimuth(199));
    EXPECT_GT(late.azimuth(180), blocks[3 * 290 + 1].azimuth(199));
}

TEST(DfScene, FlagsOverflowAndBlankingAsOftenAsAsked)
{
    Scene scene = builtinScene("df");
    scene.overflowProbability = 1;
    EXPECT_EQ(blocksOf(scene, 1).at(0).flags() & 0x7, 0x3);
    scene.overflowProbability = 0;
    scene.blankingProbability = 0.25;
    int blanked = 0;
    for (const Block& block : blocksOf(scene, 1000))
        blanked += (block.flags() & 0x4) != 0 ? 1 : 0;

    EXPECT_NEAR(blanked, 250, 60);
}

TEST(DfScene, AppendsSuperResolutionArraysInTheOrderOfTheirBits)
{
    Scene scene = builtinScene("df");
    scene.superResolution = 2;
    const Block block = blocksOf(scene, 1).at(0);
    const std::size_t count = block.count();
    const std::size_t fieldsEnd = 150 + 6 * 2 * count;

    EXPECT_EQ(block.at<std::int16_t>(76 + 70), 0x3F);
    EXPECT_EQ(block.bytes[76 + 72], 2);
    EXPECT_EQ(block.bytes[76 + 73], 3);
    // Three eigenvalues of four bytes, then five arrays of two 16-bit values a channel.
    EXPECT_EQ(block.bytes.size(), fieldsEnd + count * (3 * 4 + 5 * 2 * 2));
    const auto eigenValue = std::bit_cast<float>(block.at<std::uint32_t>(fieldsEnd + 48 * 12));
    EXPECT_GT(eigenValue, 1e4F); // a strong signal
    const std::size_t levels = fieldsEnd + count * 12;
    const std::size_t azimuths = levels + count * 4;
    EXPECT_EQ(block.at<std::int16_t>(levels + 48 * 4), block.level(48));
    EXPECT_EQ(block.at<std::int16_t>(azimuths + 48 * 4), block.azimuth(48));
    EXPECT_EQ(block.at<std::int16_t>(azimuths + 48 * 4 + 2), (block.azimuth(48) + 300) % 3600);
    EXPECT_EQ(block.at<std::int16_t>(azimuths + 300 * 4), noValue);
}

std::string refusalOf(const Scene& scene)
{
    try {
        const Simulator simulator{scene, 1};
    } catch (const BadScene& bad) {
        return bad.what();
    }
    return "accepted";
}

TEST(DfScene, IsRefusedWhereItsBlocksFitNoPacket)
{
    Scene scene = builtinScene("df");
    scene.superResolution = 8;
    scene.points = 1000;
    EXPECT_EQ(refusalOf(scene), "df: points: expected at most 507 with 8 bearings a channel, found 1000");
}

TEST(DfScene, IsRefusedWhereItsNumbersDoNotFitTheWire)
{
    Scene scene = builtinScene("df");
    scene.jobs[0].stepHz = 3e6;
    EXPECT_EQ(refusalOf(scene), "df: jobs.stepHz: expected at most 2e6, found 3e+06");
    scene = builtinScene("df");
    scene.iq = "x.sigmf-meta";
    EXPECT_EQ(refusalOf(scene), "df: iq: expected in a scene of kind band or zerospan, found in df");
}

} // namespace
