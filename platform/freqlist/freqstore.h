// SPDX-License-Identifier: MIT
#pragma once
// The frequency lists of the application: ranges that an operator does not want to see.
#include "values/tree.h"
#include "values/valuecommentedrangemap.h"
#include <memory>

/// Owns the suppress ranges and shows them in a value tree.
/// Thread: the tree's.
class Q_DECL_EXPORT FreqStore {
public:
    /// A map of ranges, shared with the tree.
    using RangeMap = std::shared_ptr<values::ValueCommentedRangeMap>;

    /// The store in use; never null. The one that stands for itself is built on first use, in the tree that
    /// is installed then.
    static FreqStore* Instance();

    /// Puts `store` in place of the one in use; null stands for a new one that is built on next use. Returns
    /// the one that was in use, if any.
    static std::shared_ptr<FreqStore> Install(std::shared_ptr<FreqStore> store);

    /// Makes "/FREQSTORE/LOCALSUPPRESS" and "/FREQSTORE/GLOBALSUPPRESS" in `tree`; range maps that are there
    /// already are taken over.
    /// Errors: NQException when values of another type have those names.
    explicit FreqStore(values::Tree& tree = *values::Tree::Instance());

    /// Suppress ranges of this device, and of all devices; never null.
    [[nodiscard]] const RangeMap& GetLocalSuppressRange() const { return m_local; }
    [[nodiscard]] const RangeMap& GetGlobalSuppressRange() const { return m_global; }

private:
    RangeMap m_local;
    RangeMap m_global;
};
