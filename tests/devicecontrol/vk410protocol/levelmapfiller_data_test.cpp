// SPDX-License-Identifier: MIT
// Traces: which are written, which are dropped, when a new sweep begins, in which order maps are called.
#include "levelmapfiller_fixture.h"
#include <limits>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class FastLevelMapFillerData : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerData, WritesATraceThatCoversTheGrid)
{
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 0+5", "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(11, 12, 13, 14, 15));
    EXPECT_EQ(filler.m_lastChannel, 4U);
}

TEST_F(FastLevelMapFillerData, WritesAPartWhereItLies)
{
    filler.SetData(125.0, 175.0, 3, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 1+3", "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, 11, 12, 13, none));
    EXPECT_EQ(filler.m_lastChannel, 3U);
}

TEST_F(FastLevelMapFillerData, StartsAtTheChannelNearestToTheStartFrequency)
{
    filler.SetData(130.0, 180.0, 3, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 1+3", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerData, WritesTheSameIntoTheMirrorMapAndNotifiesItLast)
{
    withMirror.SetData(125.0, 175.0, 3, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 1+3", "mirror SetChannelValues 1+3",
                                       "primary HasChanged 10", "mirror HasChanged 10"));
    EXPECT_THAT(levelsOf(mirror), ElementsAre(none, 11, 12, 13, none));
}

TEST_F(FastLevelMapFillerData, WritesASingleValueWithoutLookingAtTheStep)
{
    filler.SetData(150.0, 150.0, 1, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 2+1", "primary HasChanged 10"));
    EXPECT_EQ(filler.m_lastChannel, 2U);
}

TEST_F(FastLevelMapFillerData, DropsATraceThatReachesOutOfTheGridAndClearsIt)
{
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    effects();
    withMirror.SetData(100.0, 225.0, 6, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 4", "mirror ClearChannelRange 0 4",
                                       "primary HasChanged 10", "mirror HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, none, none, none));
    EXPECT_THAT(levelsOf(mirror), ElementsAre(none, none, none, none, none));
    EXPECT_EQ(withMirror.m_lastChannel, 4U) << "a dropped trace says nothing about the sweep";
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(FastLevelMapFillerData, DropsATraceThatSpansTwoRanges)
{
    values::ChannelRangeDefinition two = gridOf(7, 3, 100.0, 25.0);
    two.AddRangeDefinition(10, 3, 175.0, 25.0, QString());
    filler.SetRangeDefinition(two, 10);
    effects();
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 7 12", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerData, DropsATraceWhileThereIsNoGrid)
{
    filler.SetRangeDefinition({}, 10);
    effects();
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 0", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerData, DropsATraceWhoseStartLiesOnARangeWithoutChannels)
{
    filler.SetRangeDefinition(gridOf(0, 0, 100.0, 25.0), 10);
    effects();
    filler.SetData(100.0, 100.0, 1, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 0", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerData, DropsFrequenciesThatAreNotNumbers)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    filler.SetData(nan, 200.0, 5, levels.data());
    filler.SetData(100.0, nan, 25.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 4", "primary HasChanged 10",
                                       "primary ClearChannelRange 0 4", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerData, RejectsANegativeCountBeforeAnyMapIsCalled)
{
    withMirror.SetData(100.0, 200.0, -1, levels.data());
    withMirror.SetData(100.0, 200.0, 25.0, std::numeric_limits<int>::min(), levels.data());
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(FastLevelMapFillerData, HandsACountOfZeroOnAndStepsBackByOne)
{
    filler.SetRangeDefinition(gridOf(0, 5, 100.0, 0.5), 10);
    effects();
    filler.SetData(101.0, 101.0, 0, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 2+0", "primary HasChanged 10"));
    EXPECT_EQ(filler.m_lastChannel, 1U);
    EXPECT_EQ(filler.m_stepWidth, 0) << "0 / 0 is not a number, which is kept as 0";
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, none, none, none));
}

TEST_F(FastLevelMapFillerData, StepsBackNoFurtherThanToChannelZero)
{
    filler.SetRangeDefinition(gridOf(0, 5, 100.0, 0.5), 10);
    filler.SetData(100.0, 100.0, 0, levels.data());
    EXPECT_EQ(filler.m_lastChannel, 0U);
}

TEST_F(FastLevelMapFillerData, HandsTheFullCountOnAndLetsTheMapClip)
{
    filler.SetRangeDefinition(gridOf(0, 5, 100.0, 0.1), 10);
    effects();
    // Ten levels where the grid has five channels: the step is the same in whole units.
    std::vector<short> ten(10, 7);
    filler.SetData(100.2, 100.3, 10, ten.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 2+10", "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, 7, 7, 7));
    EXPECT_EQ(filler.m_lastChannel, 11U);
}

TEST_F(FastLevelMapFillerData, TracesAStartChannelBehindTheGrid)
{
    EXPECT_TRUE(filler.StartChannelOk(4.0, grid));
    EXPECT_FALSE(filler.StartChannelOk(5.0, grid));
    EXPECT_THAT(
        traces.take(),
        ElementsAre(HasSubstr("LevelFillerMap: StartChannel calculation went wrong -> StartChannel too big! "
                              "(devicecontrol/vk410protocol/levelmapfillerimpl:")));
}

TEST_F(FastLevelMapFillerData, DropsATraceAtWhoseStartTooManyChannelsLieToBeListed)
{
    // A grid so fine that one hertz holds more channels than one list takes.
    values::ChannelRangeDefinition fine = gridOf(0, 20'000'000, 100.0, 1e-9);
    filler.SetRangeDefinition(fine, 10);
    effects();
    traces.take();
    filler.SetData(100.0, 100.0, 1, levels.data());
    EXPECT_THAT(effects(), ElementsAre(HasSubstr("trace LevelFillerMap: "),
                                       "primary ClearChannelRange 0 19999999", "primary HasChanged 10"));
}

class FastLevelMapFillerStep : public LevelMapFillerTest {
protected:
    bool written(double step, int count)
    {
        std::vector<short> many(static_cast<std::size_t>(count), 1);
        filler.SetData(100.0, 100.0 + step * (count - 1), count, many.data());
        return testing::Value(effects(), testing::Contains(HasSubstr("SetChannelValues")));
    }
};

TEST_F(FastLevelMapFillerStep, PassesWhenOnlyAFractionOfAUnitDiffers)
{
    EXPECT_TRUE(written(25.0, 3));
    EXPECT_TRUE(written(25.9, 3));
    EXPECT_FALSE(written(24.99, 3));
    EXPECT_FALSE(written(26.0, 3));
}

TEST_F(FastLevelMapFillerStep, OfATraceIsComparedWithThatOfTheLowestChannel)
{
    values::ChannelRangeDefinition two = gridOf(10, 5, 100.0, 25.0);
    two.AddRangeDefinition(0, 5, 1000.0, 50.0, QString());
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 3, two));
    EXPECT_FALSE(filler.StepWidthOk(100.0, 200.0, 5, two));
}

TEST_F(FastLevelMapFillerStep, GivenByTheReceiverChoosesTheRangeButIsNotCompared)
{
    values::ChannelRangeDefinition two = gridOf(10, 5, 100.0, 25.0);
    two.AddRangeDefinition(0, 5, 100.0, 50.0, QString());
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 25.0, 5, two));
    EXPECT_FALSE(filler.StepWidthOk(100.0, 200.0, 25.0, 3, two));
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 50.0, 3, two));
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 7777.0, 5, two)) << "no range has it: the first one counts";
}

TEST_F(FastLevelMapFillerStep, IsNotAskedForOfASingleValue)
{
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 1, grid));
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 3.0, 1, grid));
    EXPECT_TRUE(filler.StepWidthOk(100.0, 200.0, 1, values::ChannelRangeDefinition{}));
}

TEST_F(FastLevelMapFillerStep, OfAGridWithoutChannelsMatchesNothing)
{
    EXPECT_FALSE(filler.StepWidthOk(100.0, 100.0, 2, gridOf(0, 0, 100.0, 0.0)));
    EXPECT_FALSE(filler.StepWidthOk(100.0, 100.0, 0.0, 2, gridOf(0, 0, 100.0, 0.0)));
}

TEST_F(FastLevelMapFillerStep, ThatNoIntegerHoldsMatchesNothingNotEvenItself)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(filler.StepWidthOk(0.0, infinity, 2, gridOf(0, 5, 100.0, infinity)));
    EXPECT_FALSE(filler.StepWidthOk(0.0, 1e19, 2, gridOf(0, 5, 100.0, 1e19)));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(filler.StepWidthOk(nan, 0.0, 2, gridOf(0, 5, 100.0, nan)));
}

TEST_F(FastLevelMapFillerStep, IsComparedInItsLow32Bits)
{
    // 2^32 + 25 and 25 are one step here. It looks wrong and is meant.
    EXPECT_TRUE(filler.StepWidthOk(0.0, 4294967321.0, 2, grid));
    EXPECT_FALSE(filler.StepWidthOk(0.0, 4294967322.0, 2, grid));
}

TEST_F(FastLevelMapFillerStep, OfANegativeTraceIsTruncatedTowardZero)
{
    EXPECT_TRUE(filler.StepWidthOk(200.0, 174.1, 2, gridOf(0, 2, 100.0, -25.0)));
    EXPECT_FALSE(filler.StepWidthOk(200.0, 174.0, 2, gridOf(0, 2, 100.0, -25.0)));
}

TEST_F(FastLevelMapFillerStep, DividesTheRangeByTheCountForItsRecord)
{
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_EQ(filler.m_stepWidth, 20) << "100 / 5, although the trace fits the grid by 100 / 4";
    filler.SetData(100.0, 100.0, 25.0, 1, levels.data());
    EXPECT_EQ(filler.m_stepWidth, 0);
}

TEST_F(FastLevelMapFillerStep, IsRecordedTruncatedAndWithinItsType)
{
    EXPECT_EQ(filler.m_stepWidth, -1);
    filler.SetData(100.0, 175.0, 4, levels.data());
    EXPECT_EQ(filler.m_stepWidth, 18);
    filler.SetRangeDefinition(gridOf(0, 2, 1.0, 1e12), 10);
    filler.SetData(1.0, 1.0 + 1e12, 2, levels.data());
    EXPECT_EQ(filler.m_stepWidth, std::numeric_limits<qint32>::max());
}

class FastLevelMapFillerSweep : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerSweep, IsSeenByAStartBelowTheLastChannelAndNotifiedWithoutTheReceiversStep)
{
    filler.SetData(150.0, 200.0, 3, levels.data());
    effects();
    filler.SetData(100.0, 150.0, 3, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary HasChanged 10", "primary SetChannelValues 0+3",
                                       "primary HasChanged 10"));
    EXPECT_EQ(filler.m_lastChannel, 2U);
}

TEST_F(FastLevelMapFillerSweep, EndsTheScanOfThePrimaryMapAloneWithTheReceiversStep)
{
    withMirror.SetData(150.0, 200.0, 25.0, 3, levels.data());
    effects();
    withMirror.SetData(100.0, 150.0, 25.0, 3, levels.data());
    EXPECT_THAT(effects(),
                ElementsAre("primary EndOfScan", "primary SetChannelValues 0+3",
                            "mirror SetChannelValues 0+3", "primary HasChanged 10", "mirror HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, GoesOnWhenTheTraceStartsAtTheLastChannel)
{
    filler.SetData(100.0, 150.0, 3, levels.data());
    effects();
    filler.SetData(150.0, 200.0, 3, levels.data());
    filler.SetData(200.0, 200.0, 25.0, 1, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 2+3", "primary HasChanged 10",
                                       "primary SetChannelValues 4+1", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, EndsBeforeEveryTraceWhenThePanoramaScanFinishes)
{
    filler.SetPScanMSR(true);
    filler.SetPScanMSRFinish(true);
    filler.SetData(100.0, 200.0, 25.0, 5, levels.data());
    EXPECT_THAT(effects(),
                ElementsAre("primary EndOfScan", "primary SetChannelValues 0+5", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, IsNotLookedForWhileThePanoramaScanRuns)
{
    filler.SetPScanMSR(true);
    filler.SetData(150.0, 200.0, 25.0, 3, levels.data());
    effects();
    filler.SetData(100.0, 150.0, 25.0, 3, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 0+3", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, DoesNotCareAboutTheFinishFlagWithoutAPanoramaScan)
{
    filler.SetPScanMSRFinish(true);
    filler.SetData(100.0, 200.0, 25.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 0+5", "primary HasChanged 10"));
    filler.SetData(100.0, 200.0, 25.0, 5, levels.data());
    EXPECT_THAT(effects(),
                ElementsAre("primary EndOfScan", "primary SetChannelValues 0+5", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, FollowsTheFlagsOnlyInTheFormWithTheReceiversStep)
{
    filler.SetPScanMSR(true);
    filler.SetPScanMSRFinish(true);
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 0+5", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, EndsAtAStartOfZeroWhateverElseIsGiven)
{
    withMirror.SetData(150.0, 200.0, 25.0, 3, levels.data());
    effects();
    withMirror.SetData(0.0, std::numeric_limits<double>::quiet_NaN(), -7.0, -3, nullptr);
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan", "mirror EndOfScan", "primary HasChanged 10",
                                       "mirror HasChanged 10"));
    EXPECT_EQ(withMirror.m_lastChannel, 0U);
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, 11, 12, 13)) << "the values stay readable";
}

TEST_F(FastLevelMapFillerSweep, EndsAtANegativeZeroToo)
{
    filler.SetData(-0.0, 200.0, 25.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSweep, ZeroIsAFrequencyWithoutTheReceiversStep)
{
    filler.SetRangeDefinition(gridOf(0, 5, 0.0, 25.0), 10);
    effects();
    filler.SetData(0.0, 100.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 0+5", "primary HasChanged 10"));
}

class FastLevelMapFillerMirror : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerMirror, ReceivesNullLevels)
{
    withMirror.SetData(125.0, 175.0, 3, nullptr);
    EXPECT_THAT(effects(), ElementsAre("mirror SetChannelValues 1+3 null", "primary HasChanged 10",
                                       "mirror HasChanged 10"));
    EXPECT_EQ(withMirror.m_lastChannel, 3U);
    EXPECT_THAT(levelsOf(mirror), ElementsAre(none, none, none, none, none));
}

TEST_F(FastLevelMapFillerMirror, MayHaveAnotherGridOrNone)
{
    mirror.SetChannelRangeDefinition(gridOf(2, 2, 0.0, 1.0), 10);
    effects();
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(levelsOf(mirror), ElementsAre(13, 14));
    mirror.SetChannelRangeDefinition({}, 10);
    effects();
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary HasChanged 10", "primary SetChannelValues 0+5",
                                       "mirror SetChannelValues 0+5",
                                       HasSubstr("trace LevelFillerMap: 5 channels from 0"),
                                       "primary HasChanged 10", "mirror HasChanged 10"));
}

class FastLevelMapFillerFailure : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerFailure, OfOneMapCallIsTracedAndTheNextStepFollows)
{
    primary.failing = {"SetChannelValues", "HasChanged"};
    mirror.failing = {"SetChannelValues"};
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(
        effects(),
        ElementsAre("primary SetChannelValues 0+5",
                    HasSubstr("trace LevelFillerMap: SetChannelValues failed"), "mirror SetChannelValues 0+5",
                    HasSubstr("trace LevelFillerMap: SetChannelValues failed"), "primary HasChanged 10",
                    HasSubstr("trace LevelFillerMap: HasChanged failed"), "mirror HasChanged 10"));
    EXPECT_EQ(withMirror.m_lastChannel, 4U);
}

TEST_F(FastLevelMapFillerFailure, OfAnEndOfScanOrAClearIsTracedToo)
{
    primary.failing = {"EndOfScan", "ClearChannelRange"};
    filler.EndOfScan();
    filler.SetData(1.0, 2.0, 5, levels.data());
    EXPECT_THAT(effects(),
                ElementsAre("primary EndOfScan", HasSubstr("trace LevelFillerMap: EndOfScan failed"),
                            "primary ClearChannelRange 0 4",
                            HasSubstr("trace LevelFillerMap: ClearChannelRange failed"),
                            "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerFailure, IsSilentWhenErrorTracesAreOff)
{
    ErrorHandler::Instance()->SetTraceMask(~tracemask::error);
    primary.failing = {"EndOfScan"};
    filler.EndOfScan();
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan"));
    EXPECT_FALSE(filler.StartChannelOk(5.0, grid));
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(FastLevelMapFillerFailure, DoesNotHideOtherExceptions)
{
    struct Thrower : values::LevelMap {
        void EndOfScan() override { throw std::runtime_error("other"); }
    } thrower;
    FastLevelMapFiller other{&thrower, nullptr};
    EXPECT_THROW(other.EndOfScan(), std::runtime_error);
}

// An observer that installs another grid while a new sweep is notified: the trace goes where the old grid had
// it, as far as the new one reaches.
TEST_F(FastLevelMapFillerSweep, MayBeAnsweredByAnotherGrid)
{
    struct Replacer : IObserver {
        explicit Replacer(values::LevelMap& m)
            : map(m)
        {}
        void Update(Observable* /*subject*/, TChangeCode /*code*/) override
        {
            map.RemoveObserver(this);
            map.SetChannelRangeDefinition(gridOf(0, 2, 500.0, 1.0), 10);
        }
        values::LevelMap& map;
    } replacer{primary};
    filler.SetData(150.0, 200.0, 3, levels.data());
    primary.AddObserver(&replacer);
    effects();
    filler.SetData(100.0, 200.0, 5, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary HasChanged 10", "primary SetChannelRangeDefinition 2 10",
                                       "primary HasChanged 10", "primary SetChannelValues 0+5",
                                       "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(11, 12));
}

} // namespace
