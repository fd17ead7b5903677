// SPDX-License-Identifier: MIT
#pragma once
// An ordered list of numbers.
#include "values/formats.h"
#include "values/valuebase.h"
#include <QStringList>
#include <algorithm>
#include <vector>

namespace values {

/// A list of numbers, set as a whole.
template <typename T>
class Q_DECL_EXPORT ValueList : public ValueBase {
public:
    /// An empty list.
    explicit ValueList(const QString& name)
        : ValueBase(name)
    {}

    /// The numbers.
    [[nodiscard]] const std::vector<T>& GetList() const { return m_list; }

    /// Takes the numbers of any container over and notifies with 7; the list that it already has: nothing.
    template <typename Range>
    void SetList(const Range& numbers, IObserver* originator = nullptr)
    {
        if (std::equal(std::begin(numbers), std::end(numbers), m_list.begin(), m_list.end()))
            return;
        m_list.assign(std::begin(numbers), std::end(numbers));
        HasChanged(changecode::entriesChanged, originator);
    }

    [[nodiscard]] QString GetTypeName() const override { return QStringLiteral("list"); }
    [[nodiscard]] QString ToText() const override
    {
        QStringList texts;
        for (const T number : m_list)
            texts += DefaultFormat<T>::toText(number);
        return texts.join(QStringLiteral(", "));
    }

private:
    std::vector<T> m_list;
};

} // namespace values
