// SPDX-License-Identifier: MIT
// Random sequences of calls of grids and fillers, compared with plain models after each call.
#include "support/grid_check.h"
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

TEST(GridAndFillerModel, AgreesOnRandomCalls)
{
    for (unsigned int seed = 0; seed < 4000; ++seed) {
        std::mt19937 random{seed};
        std::vector<std::uint8_t> bytes(600);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        ASSERT_EQ(support::checkGridAndFiller(bytes), "") << "seed " << seed;
    }
}

} // namespace
