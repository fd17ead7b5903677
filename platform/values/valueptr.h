// SPDX-License-Identifier: MIT
#pragma once
// Handles to values of the tree, bound by path.
#include "values/tree.h"
#include <memory>
#include <utility>

namespace values {

/// A handle to a value of type `T`, empty until it is bound.
/// Owner: a bound handle keeps its value alive, also after the value left the tree.
/// Thread: binding notifies nobody.
template <typename T>
class ValuePtr {
public:
    ValuePtr() = default;

    /// Bound to the value at `path`.
    explicit ValuePtr(const QString& path) { Bind(path); }

    /// Binds to the value at `path`; empty, and false, when there is none or it is of another type.
    bool Bind(const QString& path) { return Bind(Tree::Instance()->Find<T>(path)); }

    /// Binds to `value`, which need not be in the tree; null empties the handle.
    bool Bind(std::shared_ptr<T> value)
    {
        m_value = std::move(value);
        return m_value != nullptr;
    }

    /// Empties the handle.
    void Reset() { m_value.reset(); }

    /// The value, or null.
    [[nodiscard]] T* get() const { return m_value.get(); }
    [[nodiscard]] const std::shared_ptr<T>& share() const { return m_value; }
    /// As a pointer; ask first whether it is bound.
    T* operator->() const { return m_value.get(); }
    T& operator*() const { return *m_value; }
    explicit operator bool() const { return m_value != nullptr; }

private:
    std::shared_ptr<T> m_value;
};

/// A handle that also registers an observer with its value, for exactly as long as it is bound.
/// Owner: the observer lives at least as long as the handle; a member of the observer's class does.
template <typename T>
class ValueObservingPtr {
public:
    /// Empty, or bound to the value at `path`; `observer` is registered as long as it is bound.
    explicit ValueObservingPtr(IObserver* observer)
        : m_observer(observer)
    {}
    ValueObservingPtr(IObserver* observer, const QString& path)
        : m_observer(observer)
    {
        Bind(path);
    }
    /// Copies are bound to the same value and register the same observer once more.
    ValueObservingPtr(const ValueObservingPtr& other)
        : m_observer(other.m_observer)
    {
        Bind(other.m_value.share());
    }
    ValueObservingPtr& operator=(const ValueObservingPtr& other)
    {
        if (this == &other)
            return *this;
        Reset();
        m_observer = other.m_observer;
        Bind(other.m_value.share());
        return *this;
    }
    ~ValueObservingPtr() { Reset(); }

    /// As `ValuePtr::Bind`. A value that is bound already stays bound, and its observer keeps its place in
    /// the order; otherwise the observer leaves the old value and is registered behind those of the new one.
    bool Bind(const QString& path) { return Bind(Tree::Instance()->Find<T>(path)); }
    bool Bind(std::shared_ptr<T> value)
    {
        if (value == m_value.share())
            return value != nullptr;
        Reset();
        if (!m_value.Bind(std::move(value)))
            return false;
        m_value->AddObserver(m_observer);
        return true;
    }

    /// Empties the handle and takes the observer away.
    void Reset()
    {
        if (m_value)
            m_value->RemoveObserver(m_observer);
        m_value.Reset();
    }

    /// The value, or null.
    [[nodiscard]] T* get() const { return m_value.get(); }
    [[nodiscard]] const std::shared_ptr<T>& share() const { return m_value.share(); }
    /// As a pointer; ask first whether it is bound.
    T* operator->() const { return m_value.get(); }
    T& operator*() const { return *m_value; }
    explicit operator bool() const { return static_cast<bool>(m_value); }

private:
    IObserver* m_observer;
    ValuePtr<T> m_value;
};

} // namespace values
