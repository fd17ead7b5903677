// SPDX-License-Identifier: MIT
#include "values/valueselection.h"
#include "nqbase/nqexception.h"
#include "values/formats.h"
#include <algorithm>
#include <cmath>
#include <limits>

namespace values {

namespace {

[[noreturn]] void fail(const QString& reason, const char* method, int line)
{
    throw NQException(reason, QStringLiteral("values::ValueSelection"),
                      QStringLiteral("values/valueselection"), QString::fromLatin1(method), line);
}

void check(const std::vector<ValueSelection::Entry>& entries)
{
    std::vector<double> keys;
    std::vector<QString> texts;
    for (const ValueSelection::Entry& entry : entries) {
        if (std::isnan(entry.key))
            fail(QStringLiteral("The key of entry \"%1\" is not a number").arg(entry.text), "SetEntries",
                 __LINE__);
        keys.push_back(entry.key);
        texts.push_back(entry.text);
    }
    std::sort(keys.begin(), keys.end());
    std::sort(texts.begin(), texts.end());
    const auto key = std::adjacent_find(keys.begin(), keys.end());
    if (key != keys.end())
        fail(QStringLiteral("Two entries have the key %1").arg(*key), "SetEntries", __LINE__);
    const auto text = std::adjacent_find(texts.begin(), texts.end());
    if (text != texts.end())
        fail(QStringLiteral("Two entries have the text \"%1\"").arg(*text), "SetEntries", __LINE__);
}

} // namespace

ValueSelection::ValueSelection(const QString& name, std::vector<Entry> entries)
    : ValueBase(name)
{
    check(entries);
    m_entries = std::move(entries);
}

bool ValueSelection::HasKey(double key) const
{
    return std::any_of(m_entries.begin(), m_entries.end(), [key](const Entry& e) { return e.key == key; });
}

bool ValueSelection::HasText(const QString& text) const
{
    return std::any_of(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return e.text == text; });
}

void ValueSelection::SetEntries(std::vector<Entry> entries, IObserver* originator)
{
    check(entries);
    if (entries == m_entries)
        return;
    const double oldKey = GetCurrentKey();
    const auto same =
        std::find_if(entries.begin(), entries.end(), [oldKey](const Entry& e) { return e.key == oldKey; });
    m_current = same == entries.end() ? 0 : static_cast<std::size_t>(same - entries.begin());
    m_entries = std::move(entries);
    const double newKey = GetCurrentKey();
    const bool keyChanged = newKey != oldKey && !(std::isnan(newKey) && std::isnan(oldKey));
    HasChanged(changecode::entriesChanged, originator);
    if (keyChanged)
        HasChanged(changecode::valueChanged, originator);
}

double ValueSelection::GetCurrentKey() const
{
    return m_entries.empty() ? std::numeric_limits<double>::quiet_NaN() : m_entries[m_current].key;
}

const QString& ValueSelection::GetCurrentKeyText() const
{
    static const QString none;
    return m_entries.empty() ? none : m_entries[m_current].text;
}

void ValueSelection::SelectKey(double key, IObserver* originator)
{
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [key](const Entry& e) { return e.key == key; });
    if (found == m_entries.end())
        fail(QStringLiteral("%1 has no entry with the key %2").arg(GetName()).arg(key), "SelectKey",
             __LINE__);
    select(static_cast<std::size_t>(found - m_entries.begin()), originator);
}

void ValueSelection::SelectText(const QString& text, IObserver* originator)
{
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return e.text == text; });
    if (found == m_entries.end())
        fail(QStringLiteral("%1 has no entry \"%2\"").arg(GetName(), text), "SelectText", __LINE__);
    select(static_cast<std::size_t>(found - m_entries.begin()), originator);
}

void ValueSelection::SelectClosestValue(double value, IObserver* originator)
{
    if (std::isnan(value) || m_entries.empty())
        return;
    const auto nearer = [value](const Entry& a, const Entry& b) {
        return std::abs(a.key - value) < std::abs(b.key - value);
    };
    const auto closest = std::min_element(m_entries.begin(), m_entries.end(), nearer);
    select(static_cast<std::size_t>(closest - m_entries.begin()), originator);
}

QString ValueSelection::GetTypeName() const
{
    return QStringLiteral("selection");
}

bool ValueSelection::SetText(const QString& text, IObserver* originator)
{
    if (HasText(text)) {
        SelectText(text, originator);
        return true;
    }
    const std::optional<double> key = StreamFormat<double>::read(text);
    if (!key || !HasKey(*key))
        return false;
    SelectKey(*key, originator);
    return true;
}

void ValueSelection::select(std::size_t index, IObserver* originator)
{
    if (index == m_current)
        return;
    m_current = index;
    HasChanged(changecode::valueChanged, originator);
}

} // namespace values
