// SPDX-License-Identifier: MIT
#pragma once
// Items that belong to frequency ranges, by the range's id.
#include "nqbase/nqexception.h"
#include "values/blankingrangeitem.h"
#include "values/rangechangelog.h"
#include "values/valuebase.h"
#include <QStringList>
#include <map>
#include <utility>

namespace values {

/// Items by id, in the order of their ids, with a log of their changes.
/// `Item` is copyable, comparable, and has `ToText`.
template <typename Item>
class Q_DECL_EXPORT ValueFrequencyItemMap : public ValueBase {
public:
    /// The largest id. Users keep ids in `int` and let -1 stand for "none".
    static constexpr RangeId maxId = 0x7FFFFFFF;

    /// A map without items.
    explicit ValueFrequencyItemMap(const QString& name)
        : ValueBase(name)
    {}

    /// All items.
    [[nodiscard]] const std::map<RangeId, Item>& GetItems() const { return m_items; }
    /// How many there are, and whether that one is there.
    [[nodiscard]] std::size_t GetCount() const { return m_items.size(); }
    [[nodiscard]] bool Contains(RangeId id) const { return m_items.count(id) != 0; }

    /// The item, or null. The pointer holds until this item is removed.
    [[nodiscard]] const Item* FindItem(RangeId id) const
    {
        const auto found = m_items.find(id);
        return found == m_items.end() ? nullptr : &found->second;
    }

    /// Stores `item` under `id`, logs kind 1, and notifies with 7; the item that is there already: nothing.
    /// Returns the id.
    /// Errors: NQException for an id above `maxId`; nothing changes then.
    int SetItem(RangeId id, const Item& item, IObserver* originator = nullptr)
    {
        if (id > maxId)
            throw NQException(QStringLiteral("The id %1 is too large").arg(id),
                              QStringLiteral("values::ValueFrequencyItemMap"),
                              QStringLiteral("values/valuefrequencyitemmap"), QStringLiteral("SetItem"),
                              __LINE__);
        const auto [position, isNew] = m_items.try_emplace(id, item);
        if (!isNew && position->second == item)
            return static_cast<int>(id);
        try {
            m_log.Append({RangeChange::addedOrChanged, id});
        } catch (...) { // no memory: nothing has changed
            if (isNew)
                m_items.erase(position);
            throw;
        }
        position->second = item;
        HasChanged(changecode::entriesChanged, originator);
        return static_cast<int>(id);
    }

    /// Removes the item, logs kind 2, and notifies with 7. False when there is none.
    bool RemoveItem(RangeId id, IObserver* originator = nullptr)
    {
        const auto found = m_items.find(id);
        if (found == m_items.end())
            return false;
        m_log.Append({RangeChange::removed, id});
        m_items.erase(found);
        HasChanged(changecode::entriesChanged, originator);
        return true;
    }

    /// Removes all items, logs kind 3, and notifies with 7; without items: nothing.
    void Clear(IObserver* originator = nullptr)
    {
        if (m_items.empty())
            return;
        m_log.Append({RangeChange::cleared, 0});
        m_items.clear();
        HasChanged(changecode::entriesChanged, originator);
    }

    /// The newest changes.
    [[nodiscard]] const RangeChangeLog& GetChangeLog() const { return m_log; }

    /// How many changes the log keeps, 1000 at first.
    void SetChangeLogLength(std::size_t length) { m_log.SetLength(length); }

    /// Logs a change of a kind of the caller's own, and notifies with 7.
    void AppendChange(const RangeChange& change, IObserver* originator = nullptr)
    {
        m_log.Append(change);
        HasChanged(changecode::entriesChanged, originator);
    }

    /// "ranges", and all items, each behind its id.
    [[nodiscard]] QString GetTypeName() const override { return QStringLiteral("ranges"); }
    [[nodiscard]] QString ToText() const override
    {
        QStringList texts;
        for (const auto& [id, item] : m_items)
            texts += QStringLiteral("%1: %2").arg(QString::number(id), item.ToText());
        return texts.join(QStringLiteral("; "));
    }

private:
    std::map<RangeId, Item> m_items;
    RangeChangeLog m_log;
};

} // namespace values
