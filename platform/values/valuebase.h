// SPDX-License-Identifier: MIT
#pragma once
// What all values of the tree have in common: a name, a path, a text for displays, observers.
#include "nqbase/observable.h"
#include <QString>
#include <QtGlobal>
#include <optional>

namespace values {

/// The limits of a numeric value, for displays.
struct Limits {
    double minimum; // lowest value
    double maximum; // highest value
    double step;    // that a display offers; rounds nothing
};

/// A named, observable value.
/// Owner: shared; tree and handles keep it alive. Maps may also live on the stack, outside the tree.
/// Thread: one value belongs to one thread.
class Q_DECL_EXPORT ValueBase : public Observable {
public:
    /// A value of that name, in no tree yet.
    explicit ValueBase(const QString& name);
    // A value is one thing at one place.
    ValueBase(const ValueBase&) = delete;
    ValueBase& operator=(const ValueBase&) = delete;
    ~ValueBase() override;

    /// The last part of its path.
    [[nodiscard]] const QString& GetName() const { return m_name; }

    /// Where the value stands in the tree, with a leading "/"; empty while it is in none.
    [[nodiscard]] const QString& GetPathName() const { return m_path; }

    /// The kind of value, in one word: "bool", "number", "selection", …
    [[nodiscard]] virtual QString GetTypeName() const = 0;

    /// The present value, as a display shows it.
    [[nodiscard]] virtual QString ToText() const = 0;

    /// The present value as a number; not a number where there is none.
    [[nodiscard]] virtual double ToNumber() const;

    /// Limits of numbers; nothing for other kinds.
    [[nodiscard]] virtual std::optional<Limits> GetLimits() const;

    /// Sets the value from what `ToText` writes. False, and nothing changes, when the text is not understood
    /// or the kind of value cannot be set by text.
    virtual bool SetText(const QString& text, IObserver* originator = nullptr);

    /// The unit that a display writes behind the value; empty at first.
    [[nodiscard]] const QString& GetUnit() const { return m_unit; }
    void SetUnit(const QString& unit) { m_unit = unit; }

private:
    friend class Tree;
    QString m_name;
    QString m_path;
    QString m_unit;
};

} // namespace values
