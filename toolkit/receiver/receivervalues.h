// SPDX-License-Identifier: MIT
#pragma once
// The value tree of a receiver: every value that the processors read or write, with sensible entries, limits
// and units.
#include "toolkit/receiver/countedmap.h"
#include "values/blankingrangeitem.h"
#include "values/tree.h"
#include "values/valuecommentedrangemap.h"
#include "values/valuefrequencyitemmap.h"
#include "values/valuenumeric.h"
#include "values/valueselection.h"
#include <QString>
#include <memory>

namespace receiver {

/// Path of the receiver in the tree, and of the selection that says whether its values follow the traces.
inline constexpr char devicePath[] = "/VK410";
inline constexpr char followPath[] = "/VK410/FOLLOW";

/// A tree with the receiver's values and maps; while it lives, it is the tree of the process.
class ReceiverValues {
public:
    explicit ReceiverValues(ledger::Ledger& ledger);
    ReceiverValues(const ReceiverValues&) = delete;
    ReceiverValues& operator=(const ReceiverValues&) = delete;
    ~ReceiverValues();

    std::shared_ptr<CountedLevelMap> ifPanorama; // /VK410/IFPANMAPPING
    std::shared_ptr<CountedLevelMap> zeroSpan;   // /VK410/ZeroSpan/LEVELMAPPING
    std::shared_ptr<CountedLevelMap> zeroSpan2;  // /VK410/ZeroSpan/SECONDMAPPING, thousandths of full scale
    std::shared_ptr<CountedBearingMap> bearings; // /VK410/RXBEARINGMAPPING
    std::shared_ptr<CountedDFSpectrumMap> dfSpectrum; // /VK410/KRT/RXBEARINGMAPPING
    std::shared_ptr<values::ValueNumericWithOffset> frequency;
    std::shared_ptr<values::ValueSelection> span;
    std::shared_ptr<values::ValueSelection> commands;
    // What the operator excludes from direction finding; ranges of frequencies in Hz.
    std::shared_ptr<values::ValueCommentedRangeMap> localSuppressRanges;
    std::shared_ptr<values::ValueCommentedRangeMap> globalSuppressRanges;
    std::shared_ptr<values::ValueCommentedRangeMap> blankingRanges; // where the receiver reports blanking
    std::shared_ptr<values::ValueFrequencyItemMap<values::BlankingRangeItem>> blankingStatus; // of those

private:
    void addMaps(ledger::Ledger& ledger);
    void addReceiver();
    void addDirectionFinder();
    void addCompass();

    std::shared_ptr<values::Tree> m_tree;
    std::shared_ptr<values::Tree> m_oldTree;
};

} // namespace receiver
