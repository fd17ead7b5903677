// SPDX-License-Identifier: MIT
#pragma once
// A clock that may be asked for each datagram.
#include <QtGlobal>
#include <ctime>

/// The time since it was made, to within a tick of the system, which is 10 ms at most. It costs a fraction of
/// an exact clock, which counts beside a small datagram.
/// Thread: any one.
class CoarseTimer {
public:
    CoarseTimer()
        : m_begin(now())
    {}

    /// Whether more than so many milliseconds have gone by.
    [[nodiscard]] bool hasExpired(qint64 milliseconds) const { return now() - m_begin > milliseconds; }

private:
    static qint64 now()
    {
        timespec time{};
        ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time); // cannot fail: the system has this clock
        return qint64{time.tv_sec} * 1'000 + time.tv_nsec / 1'000'000;
    }

    qint64 m_begin;
};
