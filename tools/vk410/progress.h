// SPDX-License-Identifier: MIT
#pragma once
// One line on a terminal that says how far long work is.
#include <QElapsedTimer>
#include <cstdint>
#include <string>

namespace verbs {

/// How much of some work is done; a total of 0: nobody knows.
struct Share {
    double done = 0;
    double total = 0;
};

/// "34 %, 0:12 left" after `seconds` of work at an even pace; empty where nobody knows.
[[nodiscard]] std::string shareText(const Share& share, double seconds);

/// "12.50 MB/s".
[[nodiscard]] std::string rateText(std::uint64_t bytes, double seconds);

/// Talk on stderr that is written over again; silent where stderr is no terminal.
class Progress {
public:
    Progress() { m_sinceStart.start(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { end(); }

    /// Whether the next line is wanted now: twice a second on a terminal, after a tenth of a second. Cheap
    /// enough for every datagram.
    [[nodiscard]] bool isDue();
    void show(const std::string& text);

    /// Takes the line away again, in front of whatever else is said.
    void end();

    /// Since the start; never 0, so that rates can be asked for.
    [[nodiscard]] double seconds() const;

private:
    static bool isTerminal();

    QElapsedTimer m_sinceStart;
    double m_nextShown = 0.1;
    unsigned m_calls = 0;
    bool m_isTerminal = isTerminal();
    bool m_isShown = false;
};

} // namespace verbs
