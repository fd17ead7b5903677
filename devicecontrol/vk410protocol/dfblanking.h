// SPDX-License-Identifier: MIT
#pragma once
// What a direction-finding processor knows of the operator's suppress and blanking ranges: the channels that
// they blank, and the live status of each blanking range.
#include "devicecontrol/vk410protocol/blankingranges.h"
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "values/valuecommentedrangemap.h"
#include "values/valueptr.h"
#include <optional>

class DfBlanking {
public:
    /// `observer` is registered with the ranges that `Bind` finds, and is the originator of all that is
    /// written.
    explicit DfBlanking(IObserver* observer);

    /// Binds the ranges and the status list in the value tree.
    void Bind();

    /// Takes over the scan ranges of a job, none of them null.
    void SetScanRanges(const ScanRangeContainer& ranges);

    /// Follows a change of the ranges; other subjects and codes are ignored.
    void Update(const Observable* subject, TChangeCode code);

    /// Blanks the samples of a job that the ranges of one kind blank.
    /// Result: whether a sample was.
    bool BlankBySuppressRanges(int jobId, const blanking::Stretch& stretch);
    bool BlankByBlankingRanges(int jobId, const blanking::Stretch& stretch);

    /// Brings the status of the blanking ranges up to date with a block.
    /// Units: `mapStamp` in microseconds.
    void UpdateStatus(const DfOptHeader& header, quint64 mapStamp, bool blanked);

private:
    using Range = values::CommentedRange;
    using Store = values::ValueCommentedRangeMap;
    using Item = values::BlankingRangeItem;
    using StatusList = values::ValueFrequencyItemMap<Item>;

    // Channels blanked by one kind of range. Computed when they are asked for: who loads ten thousand ranges
    // one by one must not wait for ten thousand computations.
    struct Blanked {
        blanking::JobIntervals channels;
        bool isOutdated = false;
    };

    // Whole hertz.
    struct Extent {
        quint64 start;
        quint64 stop;
    };

    static Extent extentOf(const Range& range);
    static void append(std::vector<blanking::Interval>& intervals, const Store* ranges);
    [[nodiscard]] std::vector<blanking::Interval> suppressRanges() const;
    [[nodiscard]] std::vector<blanking::Interval> blankingRanges() const;
    template <typename Ranges>
    void bringUpToDate(Blanked& blanked, const Ranges& ranges);
    static bool blank(const Blanked& blanked, int jobId, const blanking::Stretch& stretch);

    void assembleBlankingMap();
    void addToBlankingMap(int id, const Extent& extent);
    void removeFromBlankingMap(int id);

    void followStore();
    void apply(const values::RangeChange& change);
    void applyAddedOrChanged(values::RangeId id);
    void resynchronise();
    void catchUp();
    void addStatus(values::RangeId id, const Range& range);

    [[nodiscard]] bool beginsSweep(const DfOptHeader& header);
    void openUnhit(quint64 mapStamp);
    [[nodiscard]] std::optional<Extent> extentOf(const DfOptHeader& header) const;
    [[nodiscard]] bool hit(values::RangeId id, const Extent& block, quint64 mapStamp);
    [[nodiscard]] std::optional<int> blankingRangeBehind(int jobId, int id) const;

    IObserver* m_observer;
    values::ValuePtr<StatusList> m_status;
    values::ValueObservingPtr<Store> m_store;
    values::ValueObservingPtr<Store> m_localSuppress;
    values::ValueObservingPtr<Store> m_globalSuppress;
    ScanRangeContainer m_scanRanges;
    Blanked m_bySuppressRanges;
    Blanked m_byBlankingRanges;
    std::map<int, std::set<int>> m_jobRanges; // ids of the blanking ranges that overlap a job's scan range
    std::vector<int> m_hitInSweep;            // ids, ascending; keeps its memory
    struct FirstBlock {
        int jobId;
        int firstChannel;
        bool operator==(const FirstBlock&) const = default;
    };
    std::optional<FirstBlock> m_firstOfSweep;
    quint64 m_processedChanges = 0; // of the store's change log
    bool m_isBehind = false;        // one of them could not be applied
};
