// SPDX-License-Identifier: MIT
// The filler beside its traces: single values, grids, clearing, missing maps, copies, the interfaces.
#include "levelmapfiller_fixture.h"
#include <limits>
#include <memory>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

class FastLevelMapFillerSingle : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerSingle, WritesIntoTheNearestChannelOfThePrimaryMapAlone)
{
    withMirror.SetSingleData(137.0, 42);
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 1+1", "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, 42, none, none, none));
    EXPECT_EQ(withMirror.m_lastChannel, 1U);
}

TEST_F(FastLevelMapFillerSingle, EndsTheScanAtZeroAndKeepsTheLastChannel)
{
    withMirror.SetSingleData(137.0, 42);
    effects();
    withMirror.SetSingleData(0.0, 42);
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan", "primary HasChanged 10"));
    EXPECT_EQ(withMirror.m_lastChannel, 1U);
}

TEST_F(FastLevelMapFillerSingle, DoesNothingWithoutAGrid)
{
    filler.SetRangeDefinition({}, 10);
    effects();
    filler.SetSingleData(137.0, 42);
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(FastLevelMapFillerSingle, ClearsTheGridForAFrequencyOutsideIt)
{
    withMirror.SetSingleData(137.0, 42);
    effects();
    withMirror.SetSingleData(99.9, 42);
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 4", "primary HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, none, none, none));
}

TEST_F(FastLevelMapFillerSingle, ReportsAFrequencyThatTwoRangesHave)
{
    values::ChannelRangeDefinition two = grid;
    two.AddRangeDefinition(5, 5, 150.0, 25.0, QString());
    filler.SetRangeDefinition(two, 10);
    effects();
    filler.SetSingleData(175.0, 42);
    EXPECT_THAT(
        effects(),
        ElementsAre(HasSubstr("trace ERROR: Irregular amount of Channels for this Frequency available "
                              "(devicecontrol/vk410protocol/levelmapfillerimpl:"),
                    "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerSingle, ReportsAFrequencyWithoutChannels)
{
    filler.SetRangeDefinition(gridOf(0, 0, 100.0, 25.0), 10);
    effects();
    filler.SetSingleData(100.0, 42);
    EXPECT_THAT(effects(),
                ElementsAre(HasSubstr("trace ERROR: Irregular amount of Channels"), "primary HasChanged 10"));
}

class FastLevelMapFillerSingleNoClear : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerSingleNoClear, WritesWithoutNotifying)
{
    withMirror.SetSingleDataNoClear(137.0, 42);
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelValues 1+1"));
    EXPECT_EQ(withMirror.m_lastChannel, 1U);
}

TEST_F(FastLevelMapFillerSingleNoClear, EndsTheScanAtZeroWithoutNotifying)
{
    withMirror.SetSingleDataNoClear(0.0, 42);
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan"));
}

TEST_F(FastLevelMapFillerSingleNoClear, ClearsTheGridForAFrequencyOutsideIt)
{
    withMirror.SetSingleDataNoClear(200.1, 42);
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 4"));
}

TEST_F(FastLevelMapFillerSingleNoClear, ReportsAFrequencyThatTwoRangesHave)
{
    values::ChannelRangeDefinition two = grid;
    two.AddRangeDefinition(5, 5, 150.0, 25.0, QString());
    filler.SetRangeDefinition(two, 10);
    effects();
    filler.SetSingleDataNoClear(150.0, 42);
    EXPECT_THAT(effects(),
                ElementsAre(HasSubstr("trace ERROR: Multiple Channels for this Frequency available (")));
}

TEST_F(FastLevelMapFillerSingleNoClear, DoesNothingWithoutAGrid)
{
    filler.SetRangeDefinition({}, 10);
    effects();
    filler.SetSingleDataNoClear(137.0, 42);
    EXPECT_THAT(effects(), IsEmpty());
}

class FastLevelMapFillerScan : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerScan, EndsInBothMapsWithoutNotifying)
{
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    effects();
    withMirror.EndOfScan();
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan", "mirror EndOfScan"));
    EXPECT_EQ(withMirror.m_lastChannel, 0U);
    filler.EndOfScan();
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan"));
}

class FastLevelMapFillerClearAll : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerClearAll, ClearsAndNotifiesOneMapAfterTheOther)
{
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    effects();
    withMirror.ClearAll();
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange -1 4294967295", "primary HasChanged 10",
                                       "mirror ClearChannelRange -1 4294967295", "mirror HasChanged 10"));
    EXPECT_THAT(levelsOf(primary), ElementsAre(none, none, none, none, none));
    EXPECT_EQ(filler.GetRangeDefinition(), grid) << "the grid stays";
    filler.ClearAll();
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange -1 4294967295", "primary HasChanged 10"));
}

TEST_F(FastLevelMapFillerClearAll, DoesNothingWithoutAPrimaryGridEvenToTheMirrorMap)
{
    primary.SetChannelRangeDefinition({}, 10);
    effects();
    withMirror.ClearAll();
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(FastLevelMapFillerClearAll, DoesNotAskForTheGridOfTheMirrorMap)
{
    mirror.SetChannelRangeDefinition({}, 10);
    effects();
    withMirror.ClearAll();
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange -1 4294967295", "primary HasChanged 10",
                                       "mirror ClearChannelRange -1 4294967295", "mirror HasChanged 10"));
}

class FastLevelMapFillerGrid : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerGrid, IsInstalledInBothMapsWithTheGivenCode)
{
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    effects();
    withMirror.SetRangeDefinition(gridOf(0, 3, 1.0, 1.0), 12);
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelRangeDefinition 3 12", "primary HasChanged 12",
                                       "mirror SetChannelRangeDefinition 3 12", "mirror HasChanged 12"));
    EXPECT_EQ(withMirror.m_lastChannel, 0U);
    EXPECT_EQ(withMirror.m_rangeDefinition, gridOf(0, 3, 1.0, 1.0));
    EXPECT_EQ(withMirror.GetRangeDefinition(), gridOf(0, 3, 1.0, 1.0));
}

TEST_F(FastLevelMapFillerGrid, MayBeTheOneOfTheMapItself)
{
    withMirror.SetRangeDefinition(withMirror.GetRangeDefinition(), 10);
    EXPECT_EQ(primary.GetChannelRangeDefinition(), grid);
    EXPECT_EQ(mirror.GetChannelRangeDefinition(), grid);
    EXPECT_EQ(withMirror.m_rangeDefinition, grid);
}

TEST_F(FastLevelMapFillerGrid, ReachesTheMirrorAlsoWhenAnObserverChangesTheOneItWasTakenFrom)
{
    struct Emptier : IObserver {
        explicit Emptier(values::LevelMap& m)
            : map(m)
        {}
        void Update(Observable* /*subject*/, TChangeCode /*code*/) override
        {
            map.RemoveObserver(this);
            map.SetChannelRangeDefinition({}, 10);
        }
        values::LevelMap& map;
    } emptier{primary};
    primary.AddObserver(&emptier);
    withMirror.SetRangeDefinition(withMirror.GetRangeDefinition(), 10);
    EXPECT_EQ(mirror.GetChannelRangeDefinition(), grid);
    EXPECT_TRUE(withMirror.m_rangeDefinition.empty()) << "the grid of the primary map as it stands now";
}

TEST_F(FastLevelMapFillerGrid, IsTheMapsOwnAlsoWhenAnotherInstalledIt)
{
    primary.SetChannelRangeDefinition(gridOf(0, 3, 1.0, 1.0), 10);
    EXPECT_EQ(filler.GetRangeDefinition(), gridOf(0, 3, 1.0, 1.0));
    EXPECT_TRUE(filler.m_rangeDefinition.empty()) << "the filler's copy is that of its last own call";
}

TEST_F(FastLevelMapFillerGrid, ThatIsTooLargeLeavesTheOldOneAndTheMirrorIsStillAsked)
{
    primary.SetMemoryLimit(10);
    withMirror.SetRangeDefinition(gridOf(0, 6, 1.0, 1.0), 10);
    EXPECT_THAT(effects(),
                ElementsAre("primary SetChannelRangeDefinition 6 10", HasSubstr("trace LevelFillerMap: "),
                            "mirror SetChannelRangeDefinition 6 10", "mirror HasChanged 10"));
    EXPECT_EQ(withMirror.m_rangeDefinition, grid);
}

TEST_F(FastLevelMapFillerGrid, IsCreatedFromARangeOfFrequencies)
{
    filler.SetRangeDefinition({}, 10);
    effects();
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, 25.0, false);
    EXPECT_THAT(effects(), ElementsAre("primary SetChannelRangeDefinition 5 10", "primary HasChanged 10"));
    EXPECT_EQ(filler.GetRangeDefinition(), grid);
}

TEST_F(FastLevelMapFillerGrid, StaysEmptyOnlyWhereItWasEmptyAndShallStaySo)
{
    filler.SetRangeDefinition({}, 10);
    effects();
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, 25.0, true);
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(FastLevelMapFillerGrid, IsAlwaysReplacedWhereThereIsOne)
{
    for (const bool keepEmpty : {false, true}) {
        filler.CreateValidChannelRangeDefinition(100.0, 200.0, 25.0, keepEmpty);
        EXPECT_THAT(effects(), ElementsAre("primary SetChannelRangeDefinition 5 10", "primary HasChanged 10"))
            << "also by one that is equal to it";
    }
    filler.CreateValidChannelRangeDefinition(100.0, 160.0, 25.0, true);
    EXPECT_EQ(filler.GetRangeDefinition(), gridOf(0, 3, 100.0, 25.0)) << "60 / 25 + 1, truncated";
}

TEST_F(FastLevelMapFillerGrid, OfNoChannelsIsARangeWithoutChannels)
{
    filler.CreateValidChannelRangeDefinition(100.0, 99.5, 1.0 / 3.0, false);
    EXPECT_EQ(filler.GetRangeDefinition(), gridOf(0, 0, 100.0, 1.0 / 3.0));
    EXPECT_FALSE(filler.GetRangeDefinition().empty());
}

TEST_F(FastLevelMapFillerGrid, IsLeftAloneForACountThatNoGridCanHave)
{
    filler.CreateValidChannelRangeDefinition(100.0, 0.0, 25.0, false);
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, 0.0, false);
    filler.CreateValidChannelRangeDefinition(100.0, 100.0, 0.0, false);
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, -0.0, false);
    filler.CreateValidChannelRangeDefinition(100.0, infinity, 1.0, false);
    filler.CreateValidChannelRangeDefinition(0.0, 4e9, 1.0, false);
    filler.CreateValidChannelRangeDefinition(std::numeric_limits<double>::quiet_NaN(), 1.0, 1.0, false);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(filler.GetRangeDefinition(), grid);
}

TEST_F(FastLevelMapFillerGrid, OfOneChannelMayHaveAnInfiniteStep)
{
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, infinity, false);
    EXPECT_EQ(filler.GetRangeDefinition(), gridOf(0, 1, 100.0, infinity));
    effects();
    filler.SetData(100.0, 100.0, 1, levels.data());
    EXPECT_THAT(effects(), ElementsAre("primary ClearChannelRange 0 0", "primary HasChanged 10"))
        << "0 x infinity is not a number, so nothing lies in that range";
}

TEST_F(FastLevelMapFillerGrid, IsInstalledThroughTheVirtualOperation)
{
    struct Overriding : FastLevelMapFiller {
        using FastLevelMapFiller::FastLevelMapFiller;
        void SetRangeDefinition(const values::ChannelRangeDefinition& def, size_t param) override
        {
            seen = def;
            code = param;
        }
        values::ChannelRangeDefinition seen;
        size_t code = 0;
    } overriding{&primary, nullptr};
    overriding.CreateValidChannelRangeDefinition(100.0, 200.0, 25.0, false);
    EXPECT_EQ(overriding.seen, grid);
    EXPECT_EQ(overriding.code, 10U);
}

class FastLevelMapFillerRange : public LevelMapFillerTest {};

TEST_F(FastLevelMapFillerRange, IncludesBothEnds)
{
    EXPECT_TRUE(filler.DataInRange(100.0, 200.0, grid));
    EXPECT_TRUE(filler.DataInRange(200.0, 100.0, grid));
    EXPECT_FALSE(filler.DataInRange(99.999, 200.0, grid));
    EXPECT_FALSE(filler.DataInRange(100.0, 200.001, grid));
}

TEST_F(FastLevelMapFillerRange, OfAnEmptyGridHoldsNothing)
{
    EXPECT_FALSE(filler.DataInRange(0.0, 0.0, values::ChannelRangeDefinition{}));
}

TEST_F(FastLevelMapFillerRange, MustHoldBothFrequenciesItself)
{
    values::ChannelRangeDefinition two = gridOf(0, 3, 100.0, 25.0);
    two.AddRangeDefinition(3, 3, 140.0, 25.0, QString());
    EXPECT_TRUE(filler.DataInRange(145.0, 150.0, two));
    EXPECT_FALSE(filler.DataInRange(110.0, 160.0, two));
    EXPECT_TRUE(filler.DataInRange(145.0, 190.0, two));
}

TEST_F(FastLevelMapFillerRange, WithoutChannelsHoldsItsStartAlone)
{
    const values::ChannelRangeDefinition none = gridOf(0, 0, 100.0, 25.0);
    EXPECT_TRUE(filler.DataInRange(100.0, 100.0, none));
    EXPECT_FALSE(filler.DataInRange(100.0, 100.1, none));
}

TEST_F(FastLevelMapFillerRange, HoldsNothingWhereALimitIsNotANumber)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(filler.DataInRange(nan, 100.0, grid));
    EXPECT_FALSE(filler.DataInRange(100.0, nan, grid));
    EXPECT_FALSE(filler.DataInRange(100.0, 100.0, gridOf(0, 1, 100.0, infinity)));
    EXPECT_FALSE(filler.DataInRange(100.0, 100.0, gridOf(0, 2, 100.0, nan)));
}

TEST_F(FastLevelMapFillerRange, WithANegativeStepHoldsNothing)
{
    EXPECT_FALSE(filler.DataInRange(100.0, 100.0, gridOf(0, 2, 100.0, -25.0)));
}

class FastLevelMapFillerWithoutMap : public LevelMapFillerTest {};

void callAll(OpenFiller& filler, std::vector<short>& levels)
{
    filler.SetData(100.0, 200.0, 5, levels.data());
    filler.SetData(100.0, 200.0, 25.0, 5, levels.data());
    filler.SetData(0.0, 200.0, 25.0, 5, levels.data());
    filler.EndOfScan();
    filler.SetSingleData(100.0, 1);
    filler.SetSingleData(0.0, 1);
    filler.SetSingleDataNoClear(100.0, 1);
    filler.ClearAll();
    filler.SetRangeDefinition(gridOf(0, 5, 100.0, 25.0), 10);
    filler.CreateValidChannelRangeDefinition(100.0, 200.0, 25.0, false);
    filler.SetPScanMSR(true);
    filler.SetPScanMSRFinish(true);
    filler.SetFirstChannel(3);
}

TEST_F(FastLevelMapFillerWithoutMap, AssertsTwiceForNullAndDoesNothingFromThenOn)
{
    OpenFiller orphan{nullptr, &mirror};
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("assert pMapping != NULL "
                                                     "(devicecontrol/vk410protocol/levelmapfillerimpl:"),
                                           HasSubstr("assert m_pMapping != NULL (")));
    effects();
    callAll(orphan, levels);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(orphan.GetMapping(), nullptr);
    EXPECT_TRUE(orphan.GetRangeDefinition().empty());
    EXPECT_EQ(&orphan.GetRangeDefinition(), &orphan.m_rangeDefinition);
}

TEST_F(FastLevelMapFillerWithoutMap, AssertsOnceForAMapOfAnotherType)
{
    values::BearingMap bearings;
    OpenFiller orphan{&bearings, nullptr};
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("assert m_pMapping != NULL (")));
    effects();
    callAll(orphan, levels);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(bearings.GetScanCount(), 0U);
}

TEST_F(FastLevelMapFillerWithoutMap, TakesAMirrorMapOfAnotherTypeForNone)
{
    values::BearingMap bearings;
    OpenFiller lone{&primary, &bearings};
    EXPECT_THAT(traces.take(), IsEmpty());
    EXPECT_EQ(lone.m_pMirrorMapping, nullptr);
    EXPECT_EQ(lone.GetMapping(), &primary);
}

TEST_F(FastLevelMapFillerWithoutMap, IsSilentWhenAssertionsAreOff)
{
    ErrorHandler::Instance()->EnableAssertions(false);
    const OpenFiller orphan{nullptr, nullptr};
    EXPECT_THAT(traces.take(), IsEmpty());
    EXPECT_EQ(orphan.m_pMapping, nullptr);
}

class FastLevelMapFillerCopy : public LevelMapFillerTest {};

void expectSame(const OpenFiller& copy, const OpenFiller& original)
{
    EXPECT_EQ(copy.m_lastChannel, original.m_lastChannel);
    EXPECT_EQ(copy.m_pMapping, original.m_pMapping);
    EXPECT_EQ(copy.m_pMirrorMapping, original.m_pMirrorMapping);
    EXPECT_EQ(copy.m_rangeDefinition, original.m_rangeDefinition);
    EXPECT_EQ(copy.m_stepWidth, original.m_stepWidth);
    EXPECT_EQ(copy.m_firstChannel, original.m_firstChannel);
    EXPECT_EQ(copy.m_pScanMSR, original.m_pScanMSR);
    EXPECT_EQ(copy.m_pScanMSRFinish, original.m_pScanMSRFinish);
}

TEST_F(FastLevelMapFillerCopy, HasEveryMemberAndWritesIntoTheSameMaps)
{
    withMirror.SetRangeDefinition(grid, 10);
    withMirror.SetData(100.0, 200.0, 5, levels.data());
    withMirror.SetFirstChannel(3);
    withMirror.SetPScanMSR(true);
    withMirror.SetPScanMSRFinish(true);
    OpenFiller copy{withMirror};
    expectSame(copy, withMirror);
    filler = withMirror;
    expectSame(filler, withMirror);
    effects();
    copy.EndOfScan();
    EXPECT_THAT(effects(), ElementsAre("primary EndOfScan", "mirror EndOfScan"));
}

TEST_F(FastLevelMapFillerCopy, OfANewFillerIsNew)
{
    const OpenFiller fresh{&primary, nullptr};
    EXPECT_EQ(fresh.m_lastChannel, 0U);
    EXPECT_TRUE(fresh.m_rangeDefinition.empty());
    EXPECT_EQ(fresh.m_stepWidth, -1);
    EXPECT_EQ(fresh.m_firstChannel, 0);
    EXPECT_FALSE(fresh.m_pScanMSR);
    EXPECT_FALSE(fresh.m_pScanMSRFinish);
}

// A filler of the application's own, which overrides what it must and no more.
struct MinimalFiller : ILevelMapFiller {
    using ILevelMapFiller::m_lastChannel;
    void SetData(double /*start*/, double /*stop*/, double /*step*/, int /*count*/,
                 short* /*levels*/) override
    {}
    void SetData(double /*start*/, double /*stop*/, int /*count*/, short* /*levels*/) override {}
    void EndOfScan() override {}
    void SetSingleData(double /*freq*/, short /*level*/) override {}
    void SetSingleDataNoClear(double /*freq*/, short /*level*/) override {}
    void ClearAll() override {}
    const values::ChannelRangeDefinition& GetRangeDefinition() override { return grid; }
    void SetRangeDefinition(const values::ChannelRangeDefinition& /*def*/, size_t /*param*/) override {}
    values::FastValueMap<short, values::levelHandler>* GetMapping() override { return nullptr; }
    values::ChannelRangeDefinition grid;
};

TEST(ILevelMapFillerInterface, IgnoresThePanoramaScanFlagsAndCopiesTheLastChannel)
{
    MinimalFiller filler;
    EXPECT_EQ(filler.m_lastChannel, 0U);
    filler.SetPScanMSR(true);
    filler.SetPScanMSRFinish(true);
    filler.m_lastChannel = 7;
    const MinimalFiller copy{filler};
    EXPECT_EQ(copy.m_lastChannel, 7U);
    MinimalFiller assigned;
    assigned = filler;
    EXPECT_EQ(assigned.m_lastChannel, 7U);
}

// The order of the virtual slots is relied upon by binaries. The Itanium C++ ABI numbers them: two entries of
// the destructor, then one per operation; a member pointer holds 1 + its offset in bytes.
template <typename Operation>
std::ptrdiff_t slotOf(Operation operation)
{
    std::ptrdiff_t value = 0;
    static_assert(sizeof(operation) >= sizeof(value));
    std::memcpy(&value, &operation, sizeof(value));
    return (value - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) - 1;
}

TEST(ILevelMapFillerInterface, HasItsOperationsInTheirSlots)
{
    using I = ILevelMapFiller;
    EXPECT_EQ(slotOf(static_cast<void (I::*)(double, double, double, int, short*)>(&I::SetData)), 1);
    EXPECT_EQ(slotOf(static_cast<void (I::*)(double, double, int, short*)>(&I::SetData)), 2);
    EXPECT_EQ(slotOf(&I::EndOfScan), 3);
    EXPECT_EQ(slotOf(&I::SetSingleData), 4);
    EXPECT_EQ(slotOf(&I::SetSingleDataNoClear), 5);
    EXPECT_EQ(slotOf(&I::ClearAll), 6);
    EXPECT_EQ(slotOf(&I::GetRangeDefinition), 7);
    EXPECT_EQ(slotOf(&I::SetRangeDefinition), 8);
    EXPECT_EQ(slotOf(&I::GetMapping), 9);
    EXPECT_EQ(slotOf(&I::SetPScanMSR), 10);
    EXPECT_EQ(slotOf(&I::SetPScanMSRFinish), 11);
}

TEST(IPulseMapFillerInterface, TakesPulsesThroughItsBase)
{
    struct Recorder : IPulseMapFiller {
        void SetPulses(double centreFreq, quint64 timeStamp, const short* pulses, int count) override
        {
            frequency = centreFreq;
            stamp = timeStamp;
            seen.assign(pulses, pulses + count);
        }
        double frequency = 0.0;
        quint64 stamp = 0;
        std::vector<short> seen;
    };
    auto recorder = std::make_unique<Recorder>();
    Recorder& seen = *recorder;
    const std::unique_ptr<IPulseMapFiller> filler = std::move(recorder);
    const std::vector<short> pulses{3, -4};
    filler->SetPulses(1e6, 17, pulses.data(), 2);
    EXPECT_EQ(seen.frequency, 1e6);
    EXPECT_EQ(seen.stamp, 17U);
    EXPECT_THAT(seen.seen, ElementsAre(3, -4));
}

} // namespace
