// SPDX-License-Identifier: MIT
#pragma once
// Checks JSON against a schema, as far as the schemas of this project go.
#include <nlohmann/json.hpp>
#include <string>

namespace support {

/// Result: empty when `value` is as `schema` says; otherwise where and why it is not.
/// Errors: std::logic_error for a keyword that is not understood: a rule that is not checked is no rule.
[[nodiscard]] std::string schemaError(const nlohmann::json& value, const nlohmann::json& schema);

} // namespace support
