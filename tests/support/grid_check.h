// SPDX-License-Identifier: MIT
#pragma once
// Turns any bytes into calls of channel grids and level map fillers, and compares with the models.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace support {

/// What differed from the models first, with the call that made it so; empty when nothing did.
std::string checkGridAndFiller(std::span<const std::uint8_t> bytes);

} // namespace support
