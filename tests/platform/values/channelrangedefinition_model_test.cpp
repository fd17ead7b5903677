// SPDX-License-Identifier: MIT
// Thousands of random grids, each question compared with a model that walks all channels.
#include "nqbase/nqexception.h"
#include "support/grid_model.h"
#include "values/channelrangedefinition.h"
#include <gmock/gmock.h>
#include <limits>
#include <random>

using support::GridModel;
using values::ChannelRangeDefinition;

namespace {

using Random = std::mt19937_64;

unsigned int below(Random& random, unsigned int limit)
{
    return static_cast<unsigned int>(random() % limit);
}

double anyOf(Random& random, const std::vector<double>& choices)
{
    return choices[below(random, static_cast<unsigned int>(choices.size()))];
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double huge = std::numeric_limits<double>::max();

// Mostly ordinary ranges that overlap a lot; now and then anything that a double can be.
GridModel::Range randomRange(Random& random)
{
    GridModel::Range range{below(random, 60), below(random, 12), double(below(random, 400)), 0.0};
    range.step = anyOf(random, {1.0, 12.5, 25.0, 0.1, 8.33, 1.0 / 3.0, 3.0});
    switch (below(random, 12)) {
    case 0:
        range.step = anyOf(random, {0.0, -0.0, infinity, -infinity, nan, huge, -huge, 1e-300, 1e300});
        break;
    case 1:
        range.start = anyOf(random, {-0.0, infinity, -infinity, nan, huge, -huge, 1e17, 9007199254740992.0});
        break;
    case 2:
        range.step = -range.step;
        break;
    case 3:
        range.start += 0.1 * below(random, 100);
        break;
    default:
        break;
    }
    return range;
}

double randomPosition(Random& random, const GridModel& model)
{
    switch (below(random, 8)) {
    case 0:
        return anyOf(random, {0.0, infinity, -infinity, nan, huge, -huge, 1e17, 1e300});
    case 1:
        return below(random, 5000) * 0.1;
    default:
        break;
    }
    if (model.ranges.empty())
        return 0.0;
    // On a channel, in the middle between two, or just beside either.
    const GridModel::Range& range =
        model.ranges[below(random, static_cast<unsigned int>(model.ranges.size()))];
    double x = range.position(below(random, range.count + 1));
    if (below(random, 2) != 0)
        x += range.step * 0.5;
    if (below(random, 3) == 0)
        x = std::nextafter(x, below(random, 2) != 0 ? infinity : -infinity);
    return x;
}

void compareIds(const ChannelRangeDefinition& grid, const GridModel& model)
{
    ASSERT_EQ(grid.empty(), model.ranges.empty());
    ASSERT_EQ(grid.GetChannelCount(), model.count());
    ASSERT_EQ(grid.GetMinChannelId(), model.minId());
    ASSERT_EQ(grid.GetMaxChannelId(), model.maxId());
    for (unsigned int id = 0; id < 75; ++id) {
        const GridModel::Range* const holder = model.holder(id);
        if (!holder) {
            ASSERT_THROW(static_cast<void>(grid.ChannelIdToFrequency(id)), NQException);
            ASSERT_THROW(static_cast<void>(grid.GetFrequencyStepForChannelId(id)), NQException);
            continue;
        }
        const double position = holder->position(id - holder->first);
        const double step = holder->step;
        ASSERT_THAT(grid.ChannelIdToFrequency(id), testing::NanSensitiveDoubleEq(position)) << id;
        ASSERT_THAT(grid.GetFrequencyStepForChannelId(id), testing::NanSensitiveDoubleEq(step)) << id;
    }
}

void comparePositions(const ChannelRangeDefinition& grid, const GridModel& model, Random& random)
{
    for (int i = 0; i < 40; ++i) {
        const double x = randomPosition(random, model);
        const double y = randomPosition(random, model);
        const double step = model.ranges.empty() ? 1.0 : model.ranges.front().step;
        ASSERT_EQ(grid.GetClosestChannelIdsForFrequency(x), model.closest(x)) << x;
        ASSERT_EQ(grid.GetClosestChannelIdsForFrequencyRange(x, y), model.between(x, y)) << x << " " << y;
        ASSERT_EQ(grid.FindFirstChannel4RangeDefinition(x, step, y), model.findFirst(x, step, y));
    }
}

void compareRandomGrid(Random& random, unsigned int mostRanges)
{
    ChannelRangeDefinition grid;
    GridModel model;
    const unsigned int ranges = below(random, mostRanges + 1);
    for (unsigned int i = 0; i < ranges; ++i) {
        const GridModel::Range range = randomRange(random);
        ASSERT_TRUE(model.add(range));
        grid.AddRangeDefinition(range.first, range.count, range.start, range.step, QString());
    }
    ASSERT_NO_FATAL_FAILURE(compareIds(grid, model));
    ASSERT_NO_FATAL_FAILURE(comparePositions(grid, model, random));
}

class ChannelRangeDefinitionModel : public testing::TestWithParam<unsigned int> {};

TEST_P(ChannelRangeDefinitionModel, AgreesOnRandomGrids)
{
    const unsigned int mostRanges = GetParam();
    const unsigned int grids = mostRanges > 20 ? 300 : 3000;
    for (unsigned int seed = 0; seed < grids; ++seed) {
        Random random{seed};
        SCOPED_TRACE("seed " + std::to_string(seed));
        ASSERT_NO_FATAL_FAILURE(compareRandomGrid(random, mostRanges));
    }
}

INSTANTIATE_TEST_SUITE_P(RangesUpTo, ChannelRangeDefinitionModel, testing::Values(1, 3, 15, 40, 150));

// Grids as jobs make them: many ranges in ascending order, where the search structures grow at their end.
TEST(ChannelRangeDefinitionOfManyRanges, AgreesWithTheModelWhileItGrows)
{
    Random random{7};
    ChannelRangeDefinition grid;
    GridModel model;
    for (unsigned int i = 0; i < 700; ++i) {
        const GridModel::Range range{i * 3, 3, i * 100.0, 10.0};
        ASSERT_TRUE(model.add(range));
        grid.AddRangeDefinition(range.first, range.count, range.start, range.step, QString());
        if (i % 13 != 0)
            continue;
        ASSERT_NO_FATAL_FAILURE(comparePositions(grid, model, random));
        ASSERT_EQ(grid.ChannelIdToFrequency(i * 3 + 2), i * 100.0 + 20.0);
        ASSERT_EQ(grid.ChannelIdToFrequency(0), 0.0);
    }
}

} // namespace
