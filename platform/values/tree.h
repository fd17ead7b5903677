// SPDX-License-Identifier: MIT
#pragma once
// The tree of named values: where processors find settings and maps, and displays find what there is.
#include "values/valuebase.h"
#include <QHash>
#include <QString>
#include <memory>
#include <vector>

namespace values {

/// Values by path. "/" stands between names, names are case-sensitive, and a path without a leading "/"
/// counts from the root. A name may be a value and a group of values at once.
/// Owner:  values are shared between the tree and all handles.
/// Thread: one; displays in other threads get copies of what they show.
class Q_DECL_EXPORT Tree : public Observable {
public:
    /// A value and where it stands.
    struct Entry {
        QString path;                     // with a leading "/"
        std::shared_ptr<ValueBase> value; // never null
    };

    /// The tree in use; never null. The pointer holds until another one is installed.
    static Tree* Instance();

    /// Puts `tree` in place of the one in use; null stands for a new, empty one. Returns the one that was in
    /// use.
    static std::shared_ptr<Tree> Install(std::shared_ptr<Tree> tree);

    /// A tree without values, in use once it is installed.
    Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree() override;

    /// Puts `value` under its name into the group `parentPath` (with or without a "/" at its end, created as
    /// needed), and notifies with 7. A null value: an assertion, and nothing changes.
    /// Errors: NQException when a name is empty, or a value of that name is there already; nothing changes.
    void Add(const QString& parentPath, std::shared_ptr<ValueBase> value);

    /// Makes a value of type `T` from a name and `arguments`, adds it, and returns it.
    template <typename T, typename... Arguments>
    std::shared_ptr<T> Create(const QString& parentPath, const QString& name, Arguments&&... arguments)
    {
        auto value = std::make_shared<T>(name, std::forward<Arguments>(arguments)...);
        Add(parentPath, value);
        return value;
    }

    /// Takes the value at `path` and all below it out of the tree, and notifies with 7. False when nothing is
    /// there.
    bool Remove(const QString& path);

    /// The value at `path`, or null.
    [[nodiscard]] std::shared_ptr<ValueBase> Find(const QString& path) const;

    /// The same, null also when the value is not a `T`.
    template <typename T>
    [[nodiscard]] std::shared_ptr<T> Find(const QString& path) const
    {
        return std::dynamic_pointer_cast<T>(Find(path));
    }

    /// All values at and below `path` in the order of their paths; all of the tree for "/" or nothing.
    [[nodiscard]] std::vector<Entry> List(const QString& path = {}) const;

    /// Number of values.
    [[nodiscard]] std::size_t GetCount() const { return static_cast<std::size_t>(m_values.size()); }

private:
    // By whole path: a look-up is one hash, whatever the depth.
    QHash<QString, std::shared_ptr<ValueBase>> m_values;
};

} // namespace values
