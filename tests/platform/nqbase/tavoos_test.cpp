// SPDX-License-Identifier: MIT
#include "nqbase/tavoos.h"
#include <chrono>
#include <gtest/gtest.h>

namespace {

class FixedClock final : public ITavoOS {
public:
    [[nodiscard]] quint64 GetCurrentTimeStamp() const override { return 4711; }
};

TEST(TavoOS, AnswersMicrosecondsSince1970)
{
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const quint64 stamp = TavoOS::Create()->GetCurrentTimeStamp();
    EXPECT_GE(stamp, static_cast<quint64>(now));
    EXPECT_LT(stamp, static_cast<quint64>(now) + 10'000'000U);
}

TEST(TavoOS, UsesTheInstalledLayerUntilTheOldOneIsBack)
{
    const std::shared_ptr<ITavoOS> before = TavoOS::Create();
    const std::shared_ptr<ITavoOS> old = TavoOS::Install(std::make_shared<FixedClock>());
    EXPECT_EQ(old, before);
    EXPECT_EQ(TavoOS::Create()->GetCurrentTimeStamp(), 4711U);
    TavoOS::Install(old);
    EXPECT_EQ(TavoOS::Create(), before);
}

TEST(TavoOS, NullBringsBackTheSystemsClock)
{
    TavoOS::Install(std::make_shared<FixedClock>());
    TavoOS::Install(nullptr);
    EXPECT_GT(TavoOS::Create()->GetCurrentTimeStamp(), 1'000'000'000'000'000U);
}

} // namespace
