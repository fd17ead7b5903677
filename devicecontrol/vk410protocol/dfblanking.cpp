// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/dfblanking.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "freqlist/freqstore.h"
#include "nqbase/errorhandler.h"
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/mdpdfpscan";

// The entry behind `id`: observers of a value may add and remove entries while somebody walks them.
template <typename Entry>
const std::pair<const values::RangeId, Entry>* entryBehind(const std::map<values::RangeId, Entry>& entries,
                                                           std::optional<values::RangeId> id)
{
    const auto next = id ? entries.upper_bound(*id) : entries.begin();
    return next == entries.end() ? nullptr : &*next;
}

} // namespace

DfBlanking::DfBlanking(IObserver* observer)
    : m_observer(observer)
    , m_store(observer)
    , m_localSuppress(observer)
    , m_globalSuppress(observer)
{}

void DfBlanking::Bind()
{
    m_status.Bind(QStringLiteral("/INTERFACES/Blanking/Ranges/List"));
    const std::shared_ptr<Store> before = m_store.share();
    m_store.Bind(QStringLiteral("/INTERFACES/Blanking/BlankingRangesFrequencyStore"));
    if (m_store.share() != before)
        m_processedChanges = 0; // another store has a log of its own
    m_localSuppress.Bind(FreqStore::Instance()->GetLocalSuppressRange()->GetPathName());
    m_globalSuppress.Bind(FreqStore::Instance()->GetGlobalSuppressRange()->GetPathName());
}

void DfBlanking::SetScanRanges(const ScanRangeContainer& ranges)
{
    m_scanRanges = ranges;
    m_bySuppressRanges.isOutdated = true;
    m_byBlankingRanges.isOutdated = true;
    assembleBlankingMap();
}

void DfBlanking::Update(const Observable* subject, TChangeCode code)
{
    if (!subject || (code != changecode::valueChanged && code != changecode::entriesChanged))
        return;
    if (subject == m_globalSuppress.get() || subject == m_localSuppress.get()) {
        m_bySuppressRanges.isOutdated = true;
    } else if (subject == m_store.get()) {
        m_byBlankingRanges.isOutdated = true;
        followStore();
    }
}

bool DfBlanking::BlankBySuppressRanges(int jobId, const blanking::Stretch& stretch)
{
    bringUpToDate(m_bySuppressRanges, [this] { return suppressRanges(); });
    return blank(m_bySuppressRanges, jobId, stretch);
}

bool DfBlanking::BlankByBlankingRanges(int jobId, const blanking::Stretch& stretch)
{
    bringUpToDate(m_byBlankingRanges, [this] { return blankingRanges(); });
    return blank(m_byBlankingRanges, jobId, stretch);
}

// Outdated until it is done: there may be no memory now, and some with the next block.
template <typename Ranges>
void DfBlanking::bringUpToDate(Blanked& blanked, const Ranges& ranges)
{
    if (!blanked.isOutdated)
        return;
    blanked.channels = blanking::blankedChannels(m_scanRanges, ranges());
    blanked.isOutdated = false;
}

bool DfBlanking::blank(const Blanked& blanked, int jobId, const blanking::Stretch& stretch)
{
    const auto channels = blanked.channels.find(jobId);
    return channels != blanked.channels.end() && blanking::blank(stretch, channels->second);
}

DfBlanking::Extent DfBlanking::extentOf(const Range& range)
{
    return {numbers::saturated<quint64>(range.GetRangeStart()),
            numbers::saturated<quint64>(range.GetRangeStop())};
}

void DfBlanking::append(std::vector<blanking::Interval>& intervals, const Store* ranges)
{
    if (!ranges)
        return;
    for (const auto& [id, range] : ranges->GetRanges()) {
        const Extent extent = extentOf(range);
        intervals.push_back(blanking::Interval::closed(extent.start, extent.stop));
    }
}

std::vector<blanking::Interval> DfBlanking::suppressRanges() const
{
    std::vector<blanking::Interval> intervals;
    append(intervals, m_localSuppress.get());
    append(intervals, m_globalSuppress.get());
    return intervals;
}

std::vector<blanking::Interval> DfBlanking::blankingRanges() const
{
    std::vector<blanking::Interval> intervals;
    append(intervals, m_store.get());
    return intervals;
}

void DfBlanking::assembleBlankingMap()
{
    m_firstOfSweep.reset();
    m_jobRanges.clear();
    std::vector<std::pair<int, Extent>> stored;
    if (m_store) {
        for (const auto& [id, range] : m_store->GetRanges())
            stored.emplace_back(static_cast<int>(id), extentOf(range));
    }
    for (const std::shared_ptr<ScanRange>& scanRange : m_scanRanges) {
        std::set<int> ids;
        for (const auto& [id, extent] : stored) {
            if (blanking::isOverlapping(scanRange->startFrequency, scanRange->stopFrequency, extent.start,
                                        extent.stop))
                ids.insert(ids.end(), id);
        }
        m_jobRanges[static_cast<int>(scanRange->jobId)] = std::move(ids);
    }
}

void DfBlanking::addToBlankingMap(int id, const Extent& extent)
{
    for (const std::shared_ptr<ScanRange>& scanRange : m_scanRanges) {
        if (blanking::isOverlapping(scanRange->startFrequency, scanRange->stopFrequency, extent.start,
                                    extent.stop))
            m_jobRanges[static_cast<int>(scanRange->jobId)].insert(id);
    }
}

void DfBlanking::removeFromBlankingMap(int id)
{
    for (auto& [job, ids] : m_jobRanges)
        ids.erase(id);
}

// Observers of the status list may change the store meanwhile: each change is counted before it is applied.
void DfBlanking::followStore()
{
    const std::shared_ptr<Store> store = m_store.share();
    const values::RangeChangeLog& log = store->GetChangeLog();
    while (m_store.share() == store && !log.empty() && m_processedChanges < log.GetTotalCount()) {
        if (m_processedChanges < log.GetOldestIndex())
            return resynchronise();
        const values::RangeChange change = log.GetChange(m_processedChanges);
        ++m_processedChanges;
        try {
            apply(change);
        } catch (const std::bad_alloc&) {
            m_isBehind = true;
            throw;
        }
    }
}

// After a change for which there was no memory.
void DfBlanking::catchUp()
{
    assembleBlankingMap();
    if (m_store)
        resynchronise();
    m_isBehind = false;
}

void DfBlanking::apply(const values::RangeChange& change)
{
    switch (change.kind) {
    case values::RangeChange::addedOrChanged:
        return applyAddedOrChanged(change.id);
    case values::RangeChange::removed:
        if (m_status)
            m_status->RemoveItem(change.id, m_observer);
        return removeFromBlankingMap(static_cast<int>(change.id));
    case values::RangeChange::cleared:
        m_jobRanges.clear();
        if (m_status)
            m_status->Clear(m_observer);
        return;
    default:
        if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
            _Q_Trace(
                QStringLiteral("MdpDFPScan::Update() -> JOBXMLMAP unhandeled change id %1").arg(change.kind),
                sourceFile, 603);
    }
}

void DfBlanking::applyAddedOrChanged(values::RangeId id)
{
    const Range* const found = m_store->FindRange(id);
    if (!found)
        return;
    const Range range = *found;
    const Extent extent = extentOf(range);
    if (extent.stop == 0)
        return;
    addStatus(id, range);
    removeFromBlankingMap(static_cast<int>(id));
    addToBlankingMap(static_cast<int>(id), extent);
}

// The list only: which ranges overlap which job is not looked at again. That is meant.
// Pinned by MdpDFPScanBlankingStore.RebuildsTheListOnlyWhenTheLogHasForgottenChanges.
void DfBlanking::resynchronise()
{
    m_processedChanges = m_store->GetChangeLog().GetTotalCount();
    if (!m_status)
        return;
    m_status->Clear(m_observer);
    std::optional<values::RangeId> last;
    const std::shared_ptr<Store> store = m_store.share();
    while (const auto* const entry = entryBehind(store->GetRanges(), last)) {
        last = entry->first;
        const Range range = entry->second;
        addStatus(*last, range);
    }
}

void DfBlanking::addStatus(values::RangeId id, const Range& range)
{
    const Extent extent = extentOf(range);
    if (m_status)
        m_status->SetItem(id, Item{extent.start, extent.stop, 0, false}, m_observer);
}

void DfBlanking::UpdateStatus(const DfOptHeader& header, quint64 mapStamp, bool blanked)
{
    if (m_isBehind)
        catchUp();
    if (m_jobRanges.find(header.jobId) == m_jobRanges.end())
        return;
    if (beginsSweep(header)) {
        openUnhit(mapStamp);
        m_hitInSweep.clear();
    }
    if (!blanked)
        return;
    const std::optional<Extent> block = extentOf(header);
    if (!block)
        return;
    std::optional<int> id = -1; // ids are not negative
    while ((id = blankingRangeBehind(header.jobId, *id))) {
        if (!hit(static_cast<values::RangeId>(*id), *block, mapStamp))
            continue;
        const auto place = std::lower_bound(m_hitInSweep.begin(), m_hitInSweep.end(), *id);
        if (place == m_hitInSweep.end() || *place != *id)
            m_hitInSweep.insert(place, *id);
    }
}

std::optional<int> DfBlanking::blankingRangeBehind(int jobId, int id) const
{
    const auto job = m_jobRanges.find(jobId);
    if (job == m_jobRanges.end())
        return std::nullopt;
    const auto next = job->second.upper_bound(id);
    return next == job->second.end() ? std::nullopt : std::optional<int>{*next};
}

bool DfBlanking::beginsSweep(const DfOptHeader& header)
{
    const FirstBlock block{header.jobId, header.firstChannel};
    if (!m_firstOfSweep)
        m_firstOfSweep = block;
    else if (*m_firstOfSweep == block)
        return true;
    return false;
}

void DfBlanking::openUnhit(quint64 mapStamp)
{
    std::optional<values::RangeId> last;
    while (const auto* const entry = m_status ? entryBehind(m_status->GetItems(), last) : nullptr) {
        last = entry->first;
        const Item item = entry->second;
        if (item.IsBlanked() &&
            !std::binary_search(m_hitInSweep.begin(), m_hitInSweep.end(), static_cast<int>(*last)))
            m_status->SetItem(*last, Item{item.GetBegin(), item.GetEnd(), mapStamp, false}, m_observer);
    }
}

std::optional<DfBlanking::Extent> DfBlanking::extentOf(const DfOptHeader& header) const
{
    const double low = header.firstFrequencyHz();
    double high = low + header.spanHz;
    if (std::isnan(low) || std::isnan(high))
        return std::nullopt;
    // Not for the first block, which may reach beyond its scan range. That is meant.
    // Pinned by MdpDFPScanBlankingStatus.CutsABlockAtTheStopFrequencyUnlessItIsTheFirst.
    if (header.firstChannel != 0) {
        if (const std::shared_ptr<ScanRange> range = blanking::scanRangeOf(m_scanRanges, header.jobId))
            high = std::min(high, static_cast<double>(range->stopFrequency));
    }
    return Extent{numbers::saturated<quint64>(low), numbers::saturated<quint64>(high)};
}

// Whether a blanking range was reported as blanked in this sweep: before, or with this block.
bool DfBlanking::hit(values::RangeId id, const Extent& block, quint64 mapStamp)
{
    const Item* const found = m_status ? m_status->FindItem(id) : nullptr;
    if (!found)
        return false;
    const Item item = *found;
    if (item.IsBlanked())
        return true;
    if (!blanking::isOverlapping(item.GetBegin(), item.GetEnd(), block.start, block.stop))
        return false;
    m_status->SetItem(id, Item{item.GetBegin(), item.GetEnd(), mapStamp, true}, m_observer);
    return true;
}
