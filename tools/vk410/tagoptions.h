// SPDX-License-Identifier: MIT
#pragma once
// The option that says which tags a receiver's traces have.
#include "toolkit/receiver/session.h"
#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace verbs {

/// As the command line has them.
class TagOptions {
public:
    /// Adds the option to `verb`, which must not outlive this object.
    void addTo(CLI::App& verb);

    /// Brings them into a session's options.
    /// Errors: receiver::BadSource.
    void apply(receiver::SessionOptions& session) const;

private:
    std::vector<std::string> m_tags;
};

} // namespace verbs
