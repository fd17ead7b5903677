// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

using numbers::quotient;
using numbers::saturated;
using numbers::truncated;
using values::ChannelRange;
using values::ChannelRangeDefinition;

namespace {

constexpr const char* sourceFile = "devicecontrol/vk410protocol/levelmapfillerimpl";

void traceError(const QString& message, int line)
{
    if (ErrorHandler::Instance()->GetTraceMask() & tracemask::error)
        _Q_Trace(message, sourceFile, line);
}

template <typename Call>
void traceFailure(const Call& call)
{
    try {
        call();
    } catch (const NQException& exception) {
        traceError(QStringLiteral("LevelFillerMap: %1").arg(exception.GetErrorReason()), __LINE__);
    }
}

// Steps are compared in whole units and in their low 32 bits: a fraction of a unit may differ. A step that no
// integer holds equals nothing.
bool sameStep(double a, double b)
{
    const std::optional<qint64> wholeA = truncated<qint64>(a);
    const std::optional<qint64> wholeB = truncated<qint64>(b);
    return wholeA && wholeB && static_cast<quint32>(*wholeA) == static_cast<quint32>(*wholeB);
}

double traceStep(double startFreq, double stopFreq, long count)
{
    return quotient(stopFreq - startFreq, static_cast<double>(count - 1));
}

// Id of the channel nearest to the start of a trace; nothing where the grid has none, or too many to list.
std::optional<unsigned int> startChannel(double startFreq, const ChannelRangeDefinition& def)
{
    std::optional<unsigned int> first;
    traceFailure([&] {
        const std::vector<unsigned int> ids =
            def.GetClosestChannelIdsForFrequencyRange(startFreq, startFreq + 1.0);
        if (!ids.empty())
            first = ids.front();
    });
    return first;
}

} // namespace

ILevelMapFiller::~ILevelMapFiller() = default;

void ILevelMapFiller::SetPScanMSR(bool /*running*/) {}

void ILevelMapFiller::SetPScanMSRFinish(bool /*finish*/) {}

IPulseMapFiller::~IPulseMapFiller() = default;

FastLevelMapFiller::FastLevelMapFiller(values::MappingBase* pMapping, values::MappingBase* pMirror)
    : m_pMapping(dynamic_cast<LevelMap*>(pMapping))
    , m_pMirrorMapping(dynamic_cast<LevelMap*>(pMirror))
{
    _Q_assert(pMapping != nullptr, "pMapping != NULL", sourceFile, __LINE__);
    _Q_assert(m_pMapping != nullptr, "m_pMapping != NULL", sourceFile, __LINE__);
}

FastLevelMapFiller::~FastLevelMapFiller() = default;

void FastLevelMapFiller::SetData(double startFreq, double stopFreq, double step, int count, short* levels)
{
    if (!m_pMapping)
        return;
    if (startFreq == 0.0) {
        FastLevelMapFiller::EndOfScan();
        notifyBoth();
        return;
    }
    if (count < 0)
        return;
    // A copy: observers that are notified on the way may install another grid.
    const ChannelRangeDefinition def = m_pMapping->GetChannelRangeDefinition();
    if (!DataInRange(startFreq, stopFreq, def) || !StepWidthOk(startFreq, stopFreq, step, count, def))
        dropTrace(def);
    else
        writeTrace(startFreq, stopFreq, count, levels, def, SweepRule::EndScan);
}

void FastLevelMapFiller::SetData(double startFreq, double stopFreq, int count, short* levels)
{
    if (!m_pMapping || count < 0)
        return;
    const ChannelRangeDefinition def = m_pMapping->GetChannelRangeDefinition(); // a copy, as above
    if (!DataInRange(startFreq, stopFreq, def) || !StepWidthOk(startFreq, stopFreq, count, def))
        dropTrace(def);
    else
        writeTrace(startFreq, stopFreq, count, levels, def, SweepRule::Notify);
}

void FastLevelMapFiller::EndOfScan()
{
    if (!m_pMapping)
        return;
    endScan(*m_pMapping);
    m_lastChannel = 0;
    if (m_pMirrorMapping)
        endScan(*m_pMirrorMapping);
}

void FastLevelMapFiller::SetSingleData(double freq, short level)
{
    if (!m_pMapping)
        return;
    if (writeSingle(freq, level, "ERROR: Irregular amount of Channels for this Frequency available"))
        notify(*m_pMapping);
}

void FastLevelMapFiller::SetSingleDataNoClear(double freq, short level)
{
    // It does clear a grid that the frequency lies outside of, whatever its name says; what it never does is
    // notify. Pinned by FastLevelMapFillerSingleNoClear.ClearsTheGridForAFrequencyOutsideIt.
    if (m_pMapping)
        writeSingle(freq, level, "ERROR: Multiple Channels for this Frequency available");
}

void FastLevelMapFiller::ClearAll()
{
    constexpr long allFirst = -1;
    constexpr unsigned int allLast = 0xFFFFFFFFU;
    if (!m_pMapping || m_pMapping->GetChannelRangeDefinition().empty())
        return;
    clear(*m_pMapping, allFirst, allLast);
    notify(*m_pMapping);
    if (!m_pMirrorMapping)
        return;
    clear(*m_pMirrorMapping, allFirst, allLast);
    notify(*m_pMirrorMapping);
}

const ChannelRangeDefinition& FastLevelMapFiller::GetRangeDefinition()
{
    return m_pMapping ? m_pMapping->GetChannelRangeDefinition() : m_rangeDefinition;
}

void FastLevelMapFiller::SetRangeDefinition(const ChannelRangeDefinition& def, size_t param)
{
    if (!m_pMapping)
        return;
    installInBoth(def, param);
    m_rangeDefinition = m_pMapping->GetChannelRangeDefinition();
    m_lastChannel = 0;
}

values::FastValueMap<short, values::levelHandler>* FastLevelMapFiller::GetMapping()
{
    return m_pMapping;
}

void FastLevelMapFiller::SetPScanMSR(bool running)
{
    m_pScanMSR = running;
}

void FastLevelMapFiller::SetPScanMSRFinish(bool finish)
{
    m_pScanMSRFinish = finish;
}

void FastLevelMapFiller::CreateValidChannelRangeDefinition(double startFreq, double stopFreq, double step,
                                                           bool keepEmpty)
{
    const std::optional<qint32> count = truncated<qint32>(quotient(stopFreq - startFreq, step) + 1.0);
    // A grid that is there is always replaced, also by an equal one; do not reverse this test. That an empty
    // grid is in range of nothing makes any further look at it needless. Pinned by
    // FastLevelMapFillerGrid.IsAlwaysReplacedWhereThereIsOne.
    if (GetRangeDefinition().empty() && keepEmpty)
        return;
    if (count && *count >= 0)
        CreateAndSetChannelRangeDefinition(startFreq, step, *count);
}

bool FastLevelMapFiller::DataInRange(double f1, double f2, const ChannelRangeDefinition& def)
{
    const std::vector<ChannelRange>& ranges = def.GetRanges();
    return std::any_of(ranges.begin(), ranges.end(), [f1, f2](const ChannelRange& range) {
        const double low = range.start;
        const double high = range.count == 0 ? low : range.position(range.count - 1);
        return low <= f1 && f1 <= high && low <= f2 && f2 <= high;
    });
}

bool FastLevelMapFiller::StepWidthOk(double startFreq, double stopFreq, long count,
                                     const ChannelRangeDefinition& def)
{
    if (count == 1)
        return true;
    if (def.GetChannelCount() == 0)
        return false;
    // Divided by count - 1, where SetData divides by count. Both are relied upon; do not unify.
    // Pinned by FastLevelMapFillerStep.DividesTheRangeByTheCountForItsRecord.
    return sameStep(def.GetFrequencyStepForChannelId(def.GetMinChannelId()),
                    traceStep(startFreq, stopFreq, count));
}

bool FastLevelMapFiller::StepWidthOk(double startFreq, double stopFreq, double step, long count,
                                     const ChannelRangeDefinition& def)
{
    if (count == 1)
        return true;
    if (def.GetChannelCount() == 0)
        return false;
    // The given step only chooses the range; it is not compared itself.
    const unsigned int channel = def.FindFirstChannel4RangeDefinition(startFreq, step, stopFreq);
    return sameStep(def.GetFrequencyStepForChannelId(channel), traceStep(startFreq, stopFreq, count));
}

bool FastLevelMapFiller::StartChannelOk(double first, const ChannelRangeDefinition& def)
{
    if (first <= def.GetMaxChannelId())
        return true;
    traceError(QStringLiteral("LevelFillerMap: StartChannel calculation went wrong -> StartChannel too big!"),
               __LINE__);
    return false;
}

void FastLevelMapFiller::CreateAndSetChannelRangeDefinition(double startFreq, double step, long count)
{
    ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, static_cast<unsigned int>(count), startFreq, step, QString());
    SetRangeDefinition(grid, changecode::mapChanged);
}

void FastLevelMapFiller::writeTrace(double startFreq, double stopFreq, int count, short* levels,
                                    const ChannelRangeDefinition& def, SweepRule rule)
{
    const std::optional<unsigned int> channel = startChannel(startFreq, def);
    if (!channel) {
        dropTrace(def);
        return;
    }
    const double first = *channel;
    if (!StartChannelOk(first, def))
        return;
    beginSweepIfNeeded(first, rule);
    const auto valueCount = static_cast<unsigned int>(count);
    if (levels)
        write(*m_pMapping, *channel, valueCount, levels);
    const double stepWidth = quotient(stopFreq - startFreq, count);
    if (m_stepWidth != stepWidth)
        m_stepWidth = saturated<qint32>(stepWidth);
    // The mirror map gets null levels, too: what it does with them is its own matter. Pinned by
    // FastLevelMapFillerMirror.ReceivesNullLevels.
    if (m_pMirrorMapping)
        write(*m_pMirrorMapping, *channel, valueCount, levels);
    m_lastChannel = saturated<quint32>(count + first - 1.0);
    notifyBoth();
}

void FastLevelMapFiller::beginSweepIfNeeded(double first, SweepRule rule)
{
    const bool wentBack = m_lastChannel > first;
    if (rule == SweepRule::Notify) {
        if (!wentBack)
            return;
        m_lastChannel = 0;
        notify(*m_pMapping);
        return;
    }
    // During a panorama scan of the receiver only the owner's flag ends sweeps. The mirror map never gets an
    // end of scan here. Pinned by FastLevelMapFillerSweep.
    if (m_pScanMSR ? !m_pScanMSRFinish : !wentBack)
        return;
    m_lastChannel = 0;
    endScan(*m_pMapping);
}

void FastLevelMapFiller::dropTrace(const ChannelRangeDefinition& def)
{
    clear(*m_pMapping, def.GetMinChannelId(), def.GetMaxChannelId());
    if (m_pMirrorMapping)
        clear(*m_pMirrorMapping, def.GetMinChannelId(), def.GetMaxChannelId());
    notifyBoth();
}

// Whether there is something to notify about.
bool FastLevelMapFiller::writeSingle(double freq, short level, const char* irregular)
{
    if (freq == 0.0) { // neither the mirror map nor m_lastChannel takes part; that is meant
        endScan(*m_pMapping);
        return true;
    }
    const ChannelRangeDefinition def = m_pMapping->GetChannelRangeDefinition();
    if (def.empty())
        return false;
    if (!DataInRange(freq, freq, def)) {
        clear(*m_pMapping, def.GetMinChannelId(), def.GetMaxChannelId());
        return true;
    }
    const std::vector<unsigned int> ids = def.GetClosestChannelIdsForFrequency(freq);
    if (ids.size() == 1) {
        write(*m_pMapping, ids.front(), 1, &level);
        m_lastChannel = ids.front();
    } else {
        traceError(QString::fromLatin1(irregular), __LINE__);
    }
    return true;
}

void FastLevelMapFiller::notifyBoth()
{
    notify(*m_pMapping);
    if (m_pMirrorMapping)
        notify(*m_pMirrorMapping);
}

// By value: it may be the primary map's own, which its observers may change before the mirror map gets it.
void FastLevelMapFiller::installInBoth(ChannelRangeDefinition grid, size_t param)
{
    installGrid(*m_pMapping, grid, param);
    if (m_pMirrorMapping)
        installGrid(*m_pMirrorMapping, grid, param);
}

void FastLevelMapFiller::endScan(LevelMap& map)
{
    traceFailure([&map] { map.EndOfScan(); });
}

void FastLevelMapFiller::notify(LevelMap& map)
{
    traceFailure([&map] { map.HasChanged(changecode::mapChanged, nullptr); });
}

void FastLevelMapFiller::clear(LevelMap& map, long first, unsigned int last)
{
    traceFailure([&map, first, last] { map.ClearChannelRange(first, last); });
}

void FastLevelMapFiller::write(LevelMap& map, long first, unsigned int count, short* levels)
{
    traceFailure([&map, first, count, levels] { map.SetChannelValues(first, count, levels); });
}

void FastLevelMapFiller::installGrid(LevelMap& map, const ChannelRangeDefinition& def, size_t param)
{
    traceFailure([&map, &def, param] { map.SetChannelRangeDefinition(def, param); });
}
