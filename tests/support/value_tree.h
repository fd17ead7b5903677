// SPDX-License-Identifier: MIT
#pragma once
// A value tree and frequency lists of a test's own.
#include "freqlist/freqstore.h"
#include "values/tree.h"
#include <memory>
#include <utility>

namespace support {

/// While it lives, `values::Tree::Instance()` and `FreqStore::Instance()` are new and empty; then the old
/// ones are back.
class FreshValueTree {
public:
    FreshValueTree()
        : m_oldTree(values::Tree::Install(std::make_shared<values::Tree>()))
        , m_oldStore(FreqStore::Install(nullptr))
    {}
    FreshValueTree(const FreshValueTree&) = delete;
    FreshValueTree& operator=(const FreshValueTree&) = delete;
    ~FreshValueTree()
    {
        FreqStore::Install(std::move(m_oldStore));
        values::Tree::Install(std::move(m_oldTree));
    }

    values::Tree* operator->() const { return values::Tree::Instance(); }
    values::Tree& operator*() const { return *values::Tree::Instance(); }

private:
    std::shared_ptr<values::Tree> m_oldTree;
    std::shared_ptr<FreqStore> m_oldStore;
};

} // namespace support
