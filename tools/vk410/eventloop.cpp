// SPDX-License-Identifier: MIT
#include "tools/vk410/eventloop.h"
#include <QCoreApplication>
#include <QTimer>
#include <algorithm>
#include <chrono>

namespace verbs {

namespace {

constexpr std::chrono::milliseconds tickInterval{500};
constexpr double longestSeconds = 2e6; // of a timer, which counts milliseconds in 31 bits

} // namespace

void EventLoop::run(double seconds, const std::function<void()>& tick)
{
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, tick);
    ticker.start(tickInterval);
    QTimer end;
    if (seconds > 0) {
        end.setSingleShot(true);
        QObject::connect(&end, &QTimer::timeout, [] { QCoreApplication::quit(); });
        end.start(static_cast<int>(std::min(seconds, longestSeconds) * 1e3));
    }
    QCoreApplication::exec();
}

} // namespace verbs
