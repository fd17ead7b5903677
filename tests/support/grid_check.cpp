// SPDX-License-Identifier: MIT
#include "support/grid_check.h"
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "nqbase/nqexception.h"
#include "support/filler_model.h"
#include "support/recording_map.h"
#include <bit>
#include <cstring>
#include <limits>

namespace support {

namespace {

using values::ChannelRangeDefinition;

// Bytes as choices; when they are used up every choice is the first one.
class Choices {
public:
    explicit Choices(std::span<const std::uint8_t> bytes)
        : m_bytes(bytes)
    {}

    [[nodiscard]] bool done() const { return m_bytes.empty(); }

    std::uint8_t byte()
    {
        if (m_bytes.empty())
            return 0;
        const std::uint8_t value = m_bytes.front();
        m_bytes = m_bytes.subspan(1);
        return value;
    }

    unsigned int below(unsigned int limit) { return byte() % limit; }

    std::uint32_t word()
    {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value = value << 8 | byte();
        return value;
    }

    // Often a channel of the grid or a place beside it, at times any double at all.
    double position(const GridModel& grid)
    {
        const unsigned int kind = below(8);
        if (kind == 0)
            return special();
        if (kind == 1 || grid.ranges.empty())
            return byte() * 0.5;
        const GridModel::Range& range = grid.ranges[below(static_cast<unsigned int>(grid.ranges.size()))];
        const double x = range.position(below(range.count + 1));
        switch (kind) {
        case 2:
            return x + range.step * 0.5;
        case 3:
            return std::nextafter(x, std::numeric_limits<double>::infinity());
        case 4:
            return std::nextafter(x, -std::numeric_limits<double>::infinity());
        default:
            return x;
        }
    }

    double step()
    {
        constexpr double usual[] = {1.0, 0.5, 25.0, 0.1, 3.0, 1.0 / 3.0, 8.33, 12.5};
        const unsigned int kind = below(10);
        if (kind == 0)
            return special();
        const double value = usual[below(8)];
        return kind == 1 ? -value : value;
    }

private:
    double special()
    {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        constexpr double special[] = {0.0,
                                      -0.0,
                                      infinity,
                                      -infinity,
                                      std::numeric_limits<double>::quiet_NaN(),
                                      std::numeric_limits<double>::max(),
                                      std::numeric_limits<double>::lowest(),
                                      std::numeric_limits<double>::denorm_min(),
                                      9007199254740992.0,
                                      4294967296.0};
        const unsigned int kind = below(11);
        if (kind < 10)
            return special[kind];
        const std::uint64_t high = word();
        return std::bit_cast<double>(high << 32 | word());
    }

    std::span<const std::uint8_t> m_bytes;
};

struct Grids {
    ChannelRangeDefinition real;
    GridModel model;
};

class OpenFiller : public FastLevelMapFiller {
public:
    using FastLevelMapFiller::FastLevelMapFiller;
    using FastLevelMapFiller::m_lastChannel;
};

template <typename Call>
bool refused(const Call& call)
{
    try {
        call();
        return false;
    } catch (const NQException&) {
        return true;
    }
}

bool sameNumber(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

class Check {
public:
    explicit Check(std::span<const std::uint8_t> bytes)
        : m_choices(bytes)
    {
        m_primary.SetMemoryLimit(LevelMapModel::maxChannels * sizeof(short));
        m_mirror.SetMemoryLimit(LevelMapModel::maxChannels * sizeof(short));
    }

    std::string run()
    {
        std::string trail;
        for (int call = 0; call < 200 && !m_choices.done() && m_difference.empty(); ++call) {
            const unsigned int which = m_choices.below(16);
            trail += ' ';
            trail += std::to_string(which);
            step(which);
            if (m_difference.empty())
                compareMaps();
        }
        if (!m_difference.empty())
            m_difference.append(" after calls").append(trail);
        return m_difference;
    }

private:
    void step(unsigned int which)
    {
        switch (which) {
        case 0:
            return lookUpIds();
        case 1:
        case 2:
            return lookUpPositions();
        case 3:
            return anyGridAtAll();
        case 4:
            return installOwnGrid();
        case 5:
            return installMirrorGrid();
        case 6:
            return createGrid();
        case 7:
            return settings();
        case 8:
            return endOrClear();
        case 9:
        case 10:
            return singleLevel();
        case 11:
            return extendGrid();
        default:
            return trace();
        }
    }

    GridModel::Range range()
    {
        return {m_choices.below(40), m_choices.below(12), m_choices.position(m_grid.model), m_choices.step()};
    }

    void expect(bool holds, const char* what)
    {
        if (!holds && m_difference.empty())
            m_difference = what;
    }

    // Grows the grid that the next calls are about, or begins a new one.
    void extendGrid()
    {
        if (m_choices.below(8) == 0)
            m_grid = {};
        const unsigned int more = m_choices.below(4) == 0 ? 20 : 1;
        for (unsigned int i = 0; i < more && m_grid.model.ranges.size() < 60; ++i) {
            const GridModel::Range added = range();
            m_grid.model.add(added);
            m_grid.real.AddRangeDefinition(added.first, added.count, added.start, added.step, QString());
        }
        m_realFiller.SetRangeDefinition(m_grid.real, 10);
        m_modelFiller.setGrid(m_grid.model, 10);
    }

    void installOwnGrid()
    {
        m_realFiller.SetRangeDefinition(m_realFiller.GetRangeDefinition(), 12);
        m_modelFiller.setGrid(GridModel{m_modelPrimary.grid}, 12);
    }

    void installMirrorGrid()
    {
        Grids other;
        const GridModel::Range only = range();
        other.model.add(only);
        other.real.AddRangeDefinition(only.first, only.count, only.start, only.step, QString());
        refused([&] { m_mirror.SetChannelRangeDefinition(other.real, 10); });
        m_modelMirror.install(other.model, 10);
    }

    void createGrid()
    {
        const double start = m_choices.position(m_grid.model);
        const double stop = m_choices.position(m_grid.model);
        const double step = m_choices.step();
        const bool keepEmpty = m_choices.below(2) != 0;
        m_realFiller.CreateValidChannelRangeDefinition(start, stop, step, keepEmpty);
        m_modelFiller.createGrid(start, stop, step, keepEmpty);
    }

    void settings()
    {
        const std::uint8_t flags = m_choices.byte();
        m_realFiller.SetPScanMSR(flags & 1);
        m_realFiller.SetPScanMSRFinish(flags & 2);
        m_primary.setKeepScanDataAfterEndOfScan(flags & 4);
        m_mirror.setKeepScanDataAfterEndOfScan(flags & 8);
        m_modelFiller.pScan = flags & 1;
        m_modelFiller.pScanFinish = flags & 2;
        m_modelPrimary.keep = flags & 4;
        m_modelMirror.keep = flags & 8;
    }

    void endOrClear()
    {
        if (m_choices.below(2) == 0) {
            m_realFiller.EndOfScan();
            m_modelFiller.endScan();
        } else {
            m_realFiller.ClearAll();
            m_modelFiller.clearAll();
        }
    }

    void singleLevel()
    {
        const double freq = m_choices.position(m_grid.model);
        const auto level = static_cast<short>(m_choices.byte());
        const bool notifies = m_choices.below(2) != 0;
        if (notifies)
            m_realFiller.SetSingleData(freq, level);
        else
            m_realFiller.SetSingleDataNoClear(freq, level);
        m_modelFiller.setSingle(freq, level, notifies);
    }

    void trace()
    {
        const double start = m_choices.position(m_grid.model);
        int count = static_cast<int>(m_choices.below(20));
        // Mostly a stop that fits the count, so that the trace gets behind the tests of range and step.
        double stop = m_choices.position(m_grid.model);
        if (!m_grid.model.ranges.empty() && m_choices.below(4) != 0)
            stop = start + m_grid.model.ranges.front().step * (count - 1);
        // Exactly as many levels as are announced, so that address checks see one read too many.
        std::vector<short> levels(static_cast<std::size_t>(count));
        for (short& level : levels)
            level = static_cast<short>(m_choices.byte());
        short* const source = m_choices.below(8) == 0 ? nullptr : levels.data();
        if (m_choices.below(16) == 0)
            count = -count;
        if (m_choices.below(2) == 0) {
            m_realFiller.SetData(start, stop, count, source);
            m_modelFiller.setData(start, stop, std::nullopt, count, source);
            return;
        }
        const double step = m_choices.step();
        m_realFiller.SetData(start, stop, step, count, source);
        m_modelFiller.setData(start, stop, step, count, source);
    }

    void lookUpIds()
    {
        const unsigned int id = m_choices.below(60);
        const GridModel::Range* const holder = m_grid.model.holder(id);
        double position = 0.0;
        double step = 0.0;
        const bool unknown = refused([&] {
            position = m_grid.real.ChannelIdToFrequency(id);
            step = m_grid.real.GetFrequencyStepForChannelId(id);
        });
        expect(unknown == (holder == nullptr), "which ids the grid holds");
        if (holder && !unknown) {
            expect(sameNumber(position, holder->position(id - holder->first)), "position of an id");
            expect(sameNumber(step, holder->step), "step of an id");
        }
        expect(m_grid.real.GetMinChannelId() == m_grid.model.minId(), "lowest id");
        expect(m_grid.real.GetMaxChannelId() == m_grid.model.maxId(), "highest id");
        expect(m_grid.real.GetChannelCount() == m_grid.model.count(), "number of channels");
    }

    void lookUpPositions()
    {
        const double x = m_choices.position(m_grid.model);
        const double y = m_choices.position(m_grid.model);
        const double step = m_choices.step();
        expect(m_grid.real.GetClosestChannelIdsForFrequency(x) == m_grid.model.closest(x),
               "closest channels");
        expect(m_grid.real.GetClosestChannelIdsForFrequencyRange(x, y) == m_grid.model.between(x, y),
               "channels between two positions");
        expect(m_grid.real.FindFirstChannel4RangeDefinition(x, step, y) == m_grid.model.findFirst(x, step, y),
               "first channel of a range");
    }

    // Numbers without any limit: too many channels to walk, so only what can be said without walking.
    void anyGridAtAll()
    {
        ChannelRangeDefinition grid;
        GridModel model;
        for (unsigned int i = m_choices.below(4); i > 0; --i) {
            const GridModel::Range any{m_choices.word(), m_choices.word(), m_choices.position(model),
                                       m_choices.step()};
            const bool fits = model.add(any);
            expect(fits != refused([&] {
                       grid.AddRangeDefinition(any.first, any.count, any.start, any.step, {});
                   }),
                   "which ranges are refused");
        }
        expect(grid.GetRanges().size() == model.ranges.size(), "number of ranges");
        const double x = m_choices.position(GridModel{});
        for (const unsigned int id : grid.GetClosestChannelIdsForFrequency(x))
            expect(!refused([&] { static_cast<void>(grid.ChannelIdToFrequency(id)); }),
                   "a closest id that nobody holds");
        refused([&] { static_cast<void>(grid.GetClosestChannelIdsForFrequencyRange(x, x + 1.0)); });
        static_cast<void>(grid.FindFirstChannel4RangeDefinition(x, 1.0, x));
    }

    void compareMaps()
    {
        expect(m_realLog.take() == m_modelLog.take(), "map calls");
        compareMap(m_primary, m_modelPrimary);
        compareMap(m_mirror, m_modelMirror);
        expect(m_realFiller.m_lastChannel == m_modelFiller.lastChannel, "last channel");
    }

    void compareMap(const RecordingLevelMap& real, const LevelMapModel& model)
    {
        expect(std::equal(real.GetValues().begin(), real.GetValues().end(), model.values.begin(),
                          model.values.end()),
               "levels");
        expect(real.GetScanCount() == model.scans, "scans");
        expect(real.GetChannelRangeDefinition().GetRanges().size() == model.grid.ranges.size(),
               "grid of a map");
    }

    Choices m_choices;
    EffectLog m_realLog;
    EffectLog m_modelLog;
    Grids m_grid;
    RecordingLevelMap m_primary{m_realLog, "primary"};
    RecordingLevelMap m_mirror{m_realLog, "mirror"};
    LevelMapModel m_modelPrimary{m_modelLog, "primary"};
    LevelMapModel m_modelMirror{m_modelLog, "mirror"};
    OpenFiller m_realFiller{&m_primary, &m_mirror};
    FillerModel m_modelFiller{m_modelPrimary, &m_modelMirror};
    std::string m_difference;
};

} // namespace

std::string checkGridAndFiller(std::span<const std::uint8_t> bytes)
{
    return Check{bytes}.run();
}

} // namespace support
