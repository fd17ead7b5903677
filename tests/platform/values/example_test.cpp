// SPDX-License-Identifier: MIT
// The example of docs/value-framework.md; a test of the documents compares both.
#include "support/listener.h"
#include "support/value_tree.h"
// [includes]
#include "values/fastvaluemap.h"
#include "values/tree.h"
#include "values/valuenumeric.h"
#include "values/valueptr.h"
// [includes]
#include <gmock/gmock.h>

namespace {

class Program : public support::Listener {
public:
    using Listener::Listener;

    void run(const short* trace)
    {
        // clang-format off
        // [example]
        auto levels = values::Tree::Instance()->Create<values::LevelMap>("/RECEIVER", "LEVELS");
        values::ChannelRangeDefinition grid;
        grid.AddRangeDefinition(0, 1601, 100e6, 12.5e3, "");       // first id, channels, start, step, name
        levels->SetChannelRangeDefinition(grid, 10);               // clears the levels, notifies with 10
        levels->SetChannelValues(0, 1601, trace);                  // one copy
        levels->EndOfScan();                                       // to the real-time buffers
        levels->HasChanged(10);                                    // displays may look now

        values::ValuePtr<values::ValueNumericWithOffset> frequency("/RECEIVER/FREQUENCY");
        if (frequency)                                             // empty when there is no such value
            frequency->SetValue(433.92e6, this);                   // tells everybody but the originator
        // [example]
        // clang-format on
    }
};

TEST(ValueFrameworkExample, WritesATraceAndSetsAValue)
{
    const support::FreshValueTree tree;
    support::EffectLog log;
    Program program(log, "program");
    support::Listener display(log, "display");
    const auto frequency = tree->Create<values::ValueNumericWithOffset>("/RECEIVER", "FREQUENCY");
    frequency->AddObserver(&program);
    frequency->AddObserver(&display);
    const std::vector<short> trace(1601, 7);

    program.run(trace.data());

    const auto levels = tree->Find<values::LevelMap>("/RECEIVER/LEVELS");
    ASSERT_NE(levels, nullptr);
    EXPECT_THAT(levels->GetValues(), testing::Each(7));
    EXPECT_EQ(levels->GetScanCount(), 1U);
    EXPECT_EQ(frequency->ToText(), QStringLiteral("433920000"));
    EXPECT_THAT(log.take(), testing::ElementsAre("display 3"));
}

} // namespace
