// SPDX-License-Identifier: MIT
#include "tools/vk410/progress.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

namespace verbs {

namespace {

constexpr double secondsBetweenLines = 0.5;
constexpr unsigned callsBetweenClocks = 64;
constexpr double longestTold = 360'000; // seconds; a hundred hours say enough

} // namespace

std::string shareText(const Share& share, double seconds)
{
    if (share.total <= 0)
        return {};
    const double part = std::clamp(share.done / share.total, 0.0, 1.0);
    std::string text = fmt::format("{:.0f} %", std::floor(part * 100));
    if (part <= 0)
        return text;
    const auto left = static_cast<long>(std::ceil(std::min(seconds * (1 - part) / part, longestTold)));
    if (left >= 3600)
        return text + fmt::format(", {}:{:02}:{:02} left", left / 3600, left / 60 % 60, left % 60);
    return text + fmt::format(", {}:{:02} left", left / 60, left % 60);
}

std::string rateText(std::uint64_t bytes, double seconds)
{
    return fmt::format("{:.2f} MB/s", static_cast<double>(bytes) / 1e6 / seconds);
}

bool Progress::isTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

bool Progress::isDue()
{
    return m_isTerminal && ++m_calls % callsBetweenClocks == 0 && seconds() >= m_nextShown;
}

void Progress::show(const std::string& text)
{
    if (!m_isTerminal)
        return;
    m_nextShown = seconds() + secondsBetweenLines;
    fmt::print(stderr, "\r\x1b[K{}", text);
    std::fflush(stderr);
    m_isShown = true;
}

void Progress::end()
{
    if (m_isShown)
        fmt::print(stderr, "\r\x1b[K");
    m_isShown = false;
}

double Progress::seconds() const
{
    return std::max(static_cast<double>(m_sinceStart.elapsed()) / 1e3, 0.001);
}

} // namespace verbs
