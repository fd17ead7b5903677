// SPDX-License-Identifier: MIT
#pragma once
// A level map filler that tells what it was asked to do.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "support/effect_log.h"
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace support {

/// Keeps a grid, writes every call into the log, and has a mapping when it is given one.
class RecordingFiller : public ILevelMapFiller {
public:
    explicit RecordingFiller(EffectLog& log, values::LevelMap* mapping = nullptr, std::string name = "filler")
        : m_log(log)
        , m_mapping(mapping)
        , m_name(std::move(name))
    {}

    void SetData(double, double, double, int, short*) override { tell("SetData with step"); }
    void SetData(double startFreq, double stopFreq, int count, short* values) override
    {
        std::ostringstream line;
        line.precision(17);
        line << "SetData " << startFreq << ".." << stopFreq << " x" << count;
        if (!values) {
            line << " null";
        } else {
            levels.resize(static_cast<std::size_t>(count));
            std::memcpy(levels.data(), values, levels.size() * sizeof(short));
        }
        tell(line.str());
    }
    void EndOfScan() override { tell("EndOfScan"); }
    void SetSingleData(double freq, short level) override
    {
        std::ostringstream line;
        line.precision(17);
        line << "SetSingleData " << freq << " " << level;
        tell(line.str());
    }
    void SetSingleDataNoClear(double, short) override { tell("SetSingleDataNoClear"); }
    void ClearAll() override { tell("ClearAll"); }
    const values::ChannelRangeDefinition& GetRangeDefinition() override { return grid; }
    void SetRangeDefinition(const values::ChannelRangeDefinition& def, size_t param) override
    {
        std::ostringstream line;
        line.precision(17);
        line << "SetRangeDefinition";
        for (const values::ChannelRange& range : def.GetRanges())
            line << " " << range.firstChannel << "+" << range.count << " at " << range.start << " by "
                 << range.step;
        line << " " << param;
        tell(line.str());
        if (takesGrids)
            grid = def;
    }
    values::LevelMap* GetMapping() override { return m_mapping; }

    values::ChannelRangeDefinition grid;
    bool takesGrids = true;
    std::vector<short> levels; // of the last SetData

private:
    void tell(const std::string& call) { m_log.add(m_name + " " + call); }

    EffectLog& m_log;
    values::LevelMap* m_mapping;
    std::string m_name;
};

} // namespace support
