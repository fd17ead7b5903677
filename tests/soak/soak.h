// SPDX-License-Identifier: MIT
#pragma once
// Hours in minutes: one session, everything that can go wrong around it, and what must be true afterwards.
#include <string>

namespace soak {

struct Options {
    bool isTcp = false;
    double seconds = 600;
    std::string program; // which runs the peers
};

/// Result: an exit code; 1: something does not hold, and standard error says what.
int run(const Options& options);

} // namespace soak
