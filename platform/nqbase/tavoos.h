// SPDX-License-Identifier: MIT
#pragma once
// The operating-system layer of the application suite: the clock.
#include <QtGlobal>
#include <memory>

/// The operating system as the application sees it.
class Q_DECL_EXPORT ITavoOS {
public:
    ITavoOS() = default;
    ITavoOS(const ITavoOS&) = default;
    ITavoOS& operator=(const ITavoOS&) = default;
    virtual ~ITavoOS();

    /// The current time.
    /// Units: microseconds since 1970-01-01 UTC. Device stamps are nanoseconds: divided by 1000 they have
    /// this unit.
    [[nodiscard]] virtual quint64 GetCurrentTimeStamp() const = 0;
};

/// The door to the operating-system layer.
/// Thread: any.
class Q_DECL_EXPORT TavoOS {
public:
    /// The layer in use; never null, never allocates.
    static std::shared_ptr<ITavoOS> Create();

    /// Puts `layer` in place of the one in use, for tests and for replay with a recording's clock; null
    /// brings back the system's own. Returns the one that was in use.
    static std::shared_ptr<ITavoOS> Install(std::shared_ptr<ITavoOS> layer);
};
