// SPDX-License-Identifier: MIT
#pragma once
// The options of direction finding that monitor and demo share.
#include "toolkit/receiver/session.h"
#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace verbs {

/// As the command line has them.
class DfOptions {
public:
    /// Adds the options to `verb`, which must not outlive this object.
    void addTo(CLI::App& verb);

    /// Brings them into a session's options.
    /// Errors: receiver::BadRange.
    void apply(receiver::SessionOptions& session) const;

private:
    std::string m_processor = "scan";
    std::vector<std::string> m_scanRanges;
    std::vector<std::string> m_excluded;
};

} // namespace verbs
