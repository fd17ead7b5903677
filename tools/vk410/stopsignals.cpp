// SPDX-License-Identifier: MIT
#include "tools/vk410/stopsignals.h"
#include <QCoreApplication>
#include <array>
#include <csignal>
#include <unistd.h>

namespace verbs {

namespace {

// A signal handler may only write; the event loop does the rest.
std::array<int, 2> signalPipe{-1, -1};

void onSignal(int number)
{
    const char byte = 1;
    (void)!::write(signalPipe[1], &byte, 1);
    (void)std::signal(number, SIG_DFL);
}

} // namespace

StopSignals::StopSignals()
{
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
    (void)std::signal(SIGINT, SIG_DFL);
    (void)std::signal(SIGTERM, SIG_DFL);
    m_notifier.reset();
    for (int& end : signalPipe) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}

} // namespace verbs
