// SPDX-License-Identifier: MIT
#pragma once
// The words for what the library drops without any: the outcome is the library's, these say what led to it.
#include "toolkit/inspection/inspection.h"

namespace inspection {

inline constexpr char reasonTruncated[] = "Truncated";
inline constexpr char reasonNotWalked[] = "Not Walked";

[[nodiscard]] std::size_t headerSizeOf(std::uint16_t tag);

/// "selector bit 22 at byte 24", for a selector word that the library refused.
[[nodiscard]] std::string whyRefused(const AttributeHeader& attribute);

/// "field selBit1 needs 9004 bytes at byte 30, 212 remain", for an attribute that leaves its datagram.
[[nodiscard]] std::string whyTruncated(const AttributeHeader& attribute);

/// Why the walk ended before the datagram did; `last` is the last attribute that it met.
[[nodiscard]] std::string whyNotWalked(const std::optional<AttributeHeader>& last, wire::View converted);

/// "the reader steps 34 times the 60 bytes of the extended attribute at byte 16".
[[nodiscard]] std::string farStep(const AttributeHeader& extended);

} // namespace inspection
