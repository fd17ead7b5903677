// SPDX-License-Identifier: MIT
// What happens for every trace allocates nothing.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "support/allocation_count.h"
#include "support/listener.h"
#include "values/valuelist.h"
#include "values/valuenumeric.h"
#include "values/valueselection.h"
#include <gtest/gtest.h>

using namespace values;

namespace {

ChannelRangeDefinition gridOf(unsigned int count)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, count, 1000.0, 25.0, QString());
    return grid;
}

template <typename Action>
std::size_t allocationsOf(const Action& action)
{
    action(); // what is allocated once is not asked for
    const std::size_t before = support::allocationCount();
    for (int i = 0; i < 10; ++i)
        action();
    return support::allocationCount() - before;
}

class SteadyState : public testing::Test {
protected:
    void SetUp() override
    {
        if (!support::allocationCountWorks())
            GTEST_SKIP() << "the sanitizer has an allocator of its own";
    }
};

TEST_F(SteadyState, WritingEqualTracesAllocatesNothing)
{
    LevelMap map;
    map.SetChannelRangeDefinition(gridOf(1601), 10);
    const std::vector<short> levels(1601, 5);
    EXPECT_EQ(allocationsOf([&] {
                  map.SetTimeStamp(1);
                  map.SetChannelValues(0, 1601, levels.data());
                  map.EndOfScan();
                  map.HasChanged(10);
              }),
              0U);
}

TEST_F(SteadyState, WritingEqualBlocksOfSamplesAllocatesNothing)
{
    DFSpectrumMap map;
    map.SetChannelRangeDefinition(gridOf(1000), 10);
    std::vector<DFSpectrumSample> samples(1000);
    EXPECT_EQ(allocationsOf([&] { map.SetChannelValues(0, 1000, samples.data()); }), 0U);
    for (DFSpectrumSample& sample : samples)
        sample.createSuperResolutionSample(4);
    EXPECT_EQ(allocationsOf([&] { map.SetChannelValues(0, 1000, samples.data()); }), 0U);
    EXPECT_EQ(allocationsOf([&] { samples[7].createSuperResolutionSample(4); }), 0U);
}

TEST_F(SteadyState, InstallingAGridOfTheSameSizeAllocatesNothing)
{
    LevelMap map;
    const ChannelRangeDefinition a = gridOf(100);
    ChannelRangeDefinition b;
    b.AddRangeDefinition(0, 100, 5.0, 1.0, QString());
    EXPECT_EQ(allocationsOf([&] {
                  map.SetChannelRangeDefinition(a, 10);
                  map.SetChannelRangeDefinition(b, 10);
              }),
              0U);
}

TEST_F(SteadyState, FillingALevelMapAllocatesOneListOfIds)
{
    LevelMap map;
    FastLevelMapFiller filler(&map, nullptr);
    filler.SetRangeDefinition(gridOf(1601), 10);
    std::vector<short> levels(1601, 5);
    EXPECT_EQ(allocationsOf([&] { filler.SetData(1000.0, 41000.0, 1601, levels.data()); }), 10U);
    EXPECT_EQ(allocationsOf([&] { filler.EndOfScan(); }), 0U);
}

TEST_F(SteadyState, SettingValuesAllocatesNothing)
{
    support::EffectLog log;
    ValueNumeric<double> number("V");
    ValueSelection selection("V", {{1.0, "a"}, {2.0, "b"}});
    ValueList<int> list("V");
    const std::vector<int> numbers{1, 2, 3};
    const std::vector<int> others{4};
    EXPECT_EQ(allocationsOf([&] {
                  number.SetValue(number.GetValue() + 1.0);
                  selection.SelectClosestValue(2.0);
                  selection.SelectKey(1.0);
                  list.SetList(numbers);
                  list.SetList(others);
              }),
              0U);
}

} // namespace
