// SPDX-License-Identifier: MIT
#pragma once
// What the tests of the level map filler share.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "support/effect_log.h"
#include "support/recording_map.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <string>
#include <vector>

constexpr short none = values::noLevel;

/// The filler with its inner parts in reach.
class OpenFiller : public FastLevelMapFiller {
public:
    using FastLevelMapFiller::DataInRange;
    using FastLevelMapFiller::FastLevelMapFiller;
    using FastLevelMapFiller::m_firstChannel;
    using FastLevelMapFiller::m_lastChannel;
    using FastLevelMapFiller::m_pMapping;
    using FastLevelMapFiller::m_pMirrorMapping;
    using FastLevelMapFiller::m_pScanMSR;
    using FastLevelMapFiller::m_pScanMSRFinish;
    using FastLevelMapFiller::m_rangeDefinition;
    using FastLevelMapFiller::m_stepWidth;
    using FastLevelMapFiller::StartChannelOk;
    using FastLevelMapFiller::StepWidthOk;
};

inline values::ChannelRangeDefinition gridOf(unsigned int firstChannel, unsigned int count, double start,
                                             double step)
{
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(firstChannel, count, start, step, QString());
    return grid;
}

inline std::vector<short> levelsOf(const values::LevelMap& map)
{
    return {map.GetValues().begin(), map.GetValues().end()};
}

/// A primary and a mirror map of five channels from 100 in steps of 25, all cleared, and an empty log.
class LevelMapFillerTest : public testing::Test {
protected:
    LevelMapFillerTest()
    {
        primary.SetChannelRangeDefinition(grid, 10);
        mirror.SetChannelRangeDefinition(grid, 10);
        log.clear();
    }

    std::vector<std::string> effects() { return log.take(); }

    const values::ChannelRangeDefinition grid = gridOf(0, 5, 100.0, 25.0);
    support::EffectLog log;
    support::TraceCapture traces{tracemask::error, &log};
    support::RecordingLevelMap primary{log, "primary"};
    support::RecordingLevelMap mirror{log, "mirror"};
    OpenFiller filler{&primary, nullptr};
    OpenFiller withMirror{&primary, &mirror};
    std::vector<short> levels{11, 12, 13, 14, 15};
};
