// SPDX-License-Identifier: MIT
#pragma once
// One out of several entries, each a numeric key with a text.
#include "values/valuebase.h"
#include <vector>

namespace values {

/// A choice between entries. As a number, it is the key of the current one.
class Q_DECL_EXPORT ValueSelection : public ValueBase {
public:
    /// One of the choices.
    struct Entry {
        double key;   // exact for whole numbers
        QString text; // for displays
        bool operator==(const Entry& other) const = default;
    };

    /// The first entry is the current one.
    /// Errors: NQException when a key is not a number, or a key or text comes twice.
    explicit ValueSelection(const QString& name, std::vector<Entry> entries = {});

    /// The choices, in their order.
    [[nodiscard]] const std::vector<Entry>& GetEntries() const { return m_entries; }
    /// Whether an entry has that key, or that text.
    [[nodiscard]] bool HasKey(double key) const;
    [[nodiscard]] bool HasText(const QString& text) const;

    /// Replaces the entries; the current key stays where it is still there, else the first entry is current.
    /// Notifies with 3 when the current key is another, with 7 when only the entries are.
    /// Errors: as the constructor; nothing changes then.
    void SetEntries(std::vector<Entry> entries, IObserver* originator = nullptr);

    /// Key of the current entry; not a number without entries.
    [[nodiscard]] double GetCurrentKey() const;
    [[nodiscard]] double GetValue() const { return GetCurrentKey(); }

    /// Text of the current entry; empty without entries.
    [[nodiscard]] const QString& GetCurrentKeyText() const;

    /// Make another entry the current one and notify with 3; the one that already is: nothing.
    /// Errors: NQException for a key or text that no entry has; nothing changes then.
    void SelectKey(double key, IObserver* originator = nullptr);
    void SelectText(const QString& text, IObserver* originator = nullptr);

    /// Makes the entry current whose key is nearest to `value`, the first one on a tie (all tie at infinity).
    /// Not a number, or no entries: nothing.
    void SelectClosestValue(double value, IObserver* originator = nullptr);

    [[nodiscard]] QString GetTypeName() const override;
    [[nodiscard]] QString ToText() const override { return GetCurrentKeyText(); }
    [[nodiscard]] double ToNumber() const override { return GetCurrentKey(); }

    /// Selects by text, or by key where no entry has that text.
    bool SetText(const QString& text, IObserver* originator = nullptr) override;

private:
    void select(std::size_t index, IObserver* originator);

    std::vector<Entry> m_entries;
    std::size_t m_current = 0;
};

} // namespace values
