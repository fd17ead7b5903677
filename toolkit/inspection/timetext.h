// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <string>

namespace inspection {

/// "2024-05-01T12:00:00.123456789Z" for ns since 1970, UTC.
[[nodiscard]] std::string timeText(std::int64_t ns);

} // namespace inspection
