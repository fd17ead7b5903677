// SPDX-License-Identifier: MIT
#pragma once
// The texts that viewers and clients get, as docs/stream-api.md describes them.
#include "toolkit/pageserver/emitters.h"
#include "toolkit/pageserver/state.h"
#include "toolkit/pageserver/streams.h"
#include <QByteArray>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace pageserver::messages {

using Json = nlohmann::ordered_json;

/// A message's bytes; what is not UTF-8 in texts from elsewhere is replaced.
[[nodiscard]] QByteArray bytes(const Json& message);

[[nodiscard]] Json hello(const About& about, const StatusState& status);

/// Without what differs from viewer to viewer.
[[nodiscard]] Json status(const StatusState& status, const Streams& streams);

[[nodiscard]] Json values(const std::vector<ValueText>& values);
[[nodiscard]] Json ranges(const Ranges& ranges);
[[nodiscard]] Json emitters(const std::vector<Emitter>& emitters);
[[nodiscard]] Json error(const std::string& command, const std::string& text);

/// The answers of /api/ledger and /api/grids.
[[nodiscard]] Json ledgerLines(const StatusState& status);
[[nodiscard]] Json grids(const Streams& streams);

} // namespace pageserver::messages
