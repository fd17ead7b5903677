// SPDX-License-Identifier: MIT
#pragma once
// A clock that stands still.
#include "nqbase/tavoos.h"
#include <memory>
#include <utility>

namespace support {

/// While it lives, the operating-system layer's clock answers `now`.
class FixedClock {
public:
    explicit FixedClock(quint64 now)
        : m_old(TavoOS::Install(std::make_shared<Layer>(now)))
    {}
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    ~FixedClock() { TavoOS::Install(std::move(m_old)); }

private:
    class Layer final : public ITavoOS {
    public:
        explicit Layer(quint64 now)
            : m_now(now)
        {}
        [[nodiscard]] quint64 GetCurrentTimeStamp() const override { return m_now; }

    private:
        quint64 m_now;
    };
    std::shared_ptr<ITavoOS> m_old;
};

} // namespace support
