// SPDX-License-Identifier: MIT
#include "tools/vk410/stopsignals.h"
#include <QCoreApplication>
#include <array>
#include <csignal>
#include <ctime>
#include <unistd.h>

namespace verbs {

namespace {

// A signal handler may only write; the event loop does the rest.
std::array<int, 2> signalPipe{-1, -1};

volatile std::sig_atomic_t isStopping = 0;
timespec firstSignal{};

// Some senders signal the process and its group, so that one wish arrives twice.
bool isEcho()
{
    timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &now);
    const double seconds = static_cast<double>(now.tv_sec - firstSignal.tv_sec) +
                           static_cast<double>(now.tv_nsec - firstSignal.tv_nsec) * 1e-9;
    return seconds < 0.3;
}

void onSignal(int number)
{
    if (isStopping == 0) {
        isStopping = 1;
        (void)::clock_gettime(CLOCK_MONOTONIC, &firstSignal);
        const char byte = 1;
        (void)!::write(signalPipe[1], &byte, 1);
    } else if (!isEcho()) {
        (void)std::signal(number, SIG_DFL);
        (void)std::raise(number);
    }
}

} // namespace

StopSignals::StopSignals()
{
    isStopping = 0;
    if (::pipe(signalPipe.data()) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] {
        m_notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    (void)std::signal(SIGINT, onSignal);
    (void)std::signal(SIGTERM, onSignal);
}

StopSignals::~StopSignals()
{
    // The echo of a stop may come when what was stopped is over already.
    if (isStopping == 0) {
        (void)std::signal(SIGINT, SIG_DFL);
        (void)std::signal(SIGTERM, SIG_DFL);
    }
    m_notifier.reset();
    for (int& end : signalPipe) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}

} // namespace verbs
