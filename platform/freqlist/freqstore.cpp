// SPDX-License-Identifier: MIT
#include "freqlist/freqstore.h"
#include <mutex>
#include <utility>

namespace {

struct StoreHolder {
    std::mutex mutex;
    std::shared_ptr<FreqStore> store;
};

StoreHolder& storeHolder()
{
    static StoreHolder holder;
    return holder;
}

FreqStore::RangeMap suppressRanges(values::Tree& tree, const QString& name)
{
    const QString group = QStringLiteral("/FREQSTORE/");
    FreqStore::RangeMap map = tree.Find<values::ValueCommentedRangeMap>(group + name);
    return map ? map : tree.Create<values::ValueCommentedRangeMap>(group, name);
}

} // namespace

FreqStore* FreqStore::Instance()
{
    StoreHolder& holder = storeHolder();
    const std::lock_guard lock{holder.mutex};
    if (!holder.store)
        holder.store = std::make_shared<FreqStore>();
    return holder.store.get();
}

std::shared_ptr<FreqStore> FreqStore::Install(std::shared_ptr<FreqStore> store)
{
    StoreHolder& holder = storeHolder();
    const std::lock_guard lock{holder.mutex};
    return std::exchange(holder.store, std::move(store));
}

FreqStore::FreqStore(values::Tree& tree)
    : m_local(suppressRanges(tree, QStringLiteral("LOCALSUPPRESS")))
    , m_global(suppressRanges(tree, QStringLiteral("GLOBALSUPPRESS")))
{}
