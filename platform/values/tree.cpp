// SPDX-License-Identifier: MIT
#include "values/tree.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include <algorithm>
#include <mutex>
#include <utility>

namespace values {

namespace {

const QChar separator = QLatin1Char('/');

struct TreeHolder {
    std::mutex mutex;
    std::shared_ptr<Tree> tree = std::make_shared<Tree>();
};

TreeHolder& treeHolder()
{
    static TreeHolder holder;
    return holder;
}

QString fromRoot(const QString& path)
{
    return path.startsWith(separator) ? path : separator + path;
}

bool isBelow(const QString& path, const QString& group)
{
    return path.size() > group.size() && path.startsWith(group) && path[group.size()] == separator;
}

// The path of a group, without a "/" at its end: the root is empty.
QString groupPath(const QString& path)
{
    QString group = fromRoot(path);
    if (group.endsWith(separator))
        group.chop(1);
    return group;
}

[[noreturn]] void fail(const QString& reason, int line)
{
    throw NQException(reason, QStringLiteral("values::Tree"), QStringLiteral("values/tree"),
                      QStringLiteral("Add"), line);
}

} // namespace

Tree* Tree::Instance()
{
    TreeHolder& holder = treeHolder();
    const std::lock_guard lock{holder.mutex};
    return holder.tree.get();
}

std::shared_ptr<Tree> Tree::Install(std::shared_ptr<Tree> tree)
{
    if (!tree)
        tree = std::make_shared<Tree>();
    TreeHolder& holder = treeHolder();
    const std::lock_guard lock{holder.mutex};
    return std::exchange(holder.tree, std::move(tree));
}

Tree::Tree() = default;

Tree::~Tree()
{
    for (const std::shared_ptr<ValueBase>& value : std::as_const(m_values))
        value->m_path.clear();
}

void Tree::Add(const QString& parentPath, std::shared_ptr<ValueBase> value)
{
    _Q_assert(value != nullptr, "value != NULL", "values/tree", __LINE__);
    if (!value)
        return;
    const QString path = groupPath(parentPath) + separator + value->GetName();
    if (path.endsWith(separator) || path.contains(QLatin1String("//")))
        fail(QStringLiteral("\"%1\" has an empty name").arg(path), __LINE__);
    if (m_values.contains(path))
        fail(QStringLiteral("\"%1\" exists already").arg(path), __LINE__);
    m_values.insert(path, value);
    value->m_path = path;
    HasChanged(changecode::entriesChanged);
}

bool Tree::Remove(const QString& path)
{
    const std::vector<Entry> entries = List(path);
    for (const Entry& entry : entries) {
        m_values.remove(entry.path);
        entry.value->m_path.clear();
    }
    if (!entries.empty())
        HasChanged(changecode::entriesChanged);
    return !entries.empty();
}

std::shared_ptr<ValueBase> Tree::Find(const QString& path) const
{
    return m_values.value(fromRoot(path));
}

std::vector<Tree::Entry> Tree::List(const QString& path) const
{
    const QString group = groupPath(path);
    std::vector<Entry> entries;
    for (auto it = m_values.begin(); it != m_values.end(); ++it) {
        if (it.key() == group || isBelow(it.key(), group))
            entries.push_back({it.key(), it.value()});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
    return entries;
}

} // namespace values
