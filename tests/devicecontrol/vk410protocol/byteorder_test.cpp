// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/byteorder.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace {

using Swap = void (*)(void*, std::size_t) noexcept;

struct Case {
    const char* name;
    Swap swap;
    std::size_t width;
};
class ByteOrder : public testing::TestWithParam<Case> {};

TEST_P(ByteOrder, ReversesEachItemAndNothingElseAtAnyAddressAndCount)
{
    const Case& param = GetParam();
    for (std::size_t shift = 0; shift < 5; ++shift) {
        for (std::size_t count = 0; count < 70; ++count) {
            std::vector<unsigned char> bytes(shift + count * param.width + 3);
            std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(count));
            std::vector<unsigned char> expected = bytes;
            for (std::size_t i = 0; i < count; ++i) {
                const auto item = expected.begin() + static_cast<std::ptrdiff_t>(shift + i * param.width);
                std::reverse(item, item + static_cast<std::ptrdiff_t>(param.width));
            }
            param.swap(bytes.data() + shift, count);
            ASSERT_EQ(bytes, expected) << "shift " << shift << " count " << count;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Loops, ByteOrder,
                         testing::Values(Case{"Items16", byteorder::swap16, 2},
                                         Case{"Items32", byteorder::swap32, 4},
                                         Case{"Items16Plain", byteorder::swap16Plain, 2},
                                         Case{"Items32Plain", byteorder::swap32Plain, 4}),
                         [](const testing::TestParamInfo<Case>& each) { return each.param.name; });

} // namespace
