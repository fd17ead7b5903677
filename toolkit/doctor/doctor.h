// SPDX-License-Identifier: MIT
#pragma once
// Checks of what arrives, by the ledger of a session that has listened for a while.
#include "toolkit/doctor/finding.h"
#include "toolkit/receiver/session.h"
#include <vector>

namespace doctor {

/// Whether datagrams came, were datagrams, came all, and reached a map.
/// `seconds`: how long the session has listened. `source`: as the user wrote it, for the commands that help.
[[nodiscard]] std::vector<Finding> checkArrivals(receiver::Session& session, const receiver::SourceSpec& spec,
                                                 const std::string& source, double seconds);

} // namespace doctor
