// SPDX-License-Identifier: MIT
#pragma once
// The numbers of optional headers as text, by the table of their fields.
#include "wire/optheader.h"
#include <optional>
#include <string>

namespace inspection {

/// The byte order of an optional header that the reader leaves as it came.
[[nodiscard]] wire::ByteOrder optHeaderOrder(std::uint32_t selectors);

/// The number of a field; nothing for bytes that nobody interprets, or that the header does not hold whole.
[[nodiscard]] std::optional<std::string> numberText(const wire::NamedField& field, wire::View header,
                                                    wire::ByteOrder order);

/// What the number says, to stand behind it: ": valid, method 1". Empty where it speaks for itself.
[[nodiscard]] std::string meaningText(const wire::NamedField& field, wire::View header,
                                      wire::ByteOrder order);

} // namespace inspection
