// SPDX-License-Identifier: MIT
#pragma once
// A second decoder of the format, written as plainly as possible and sharing nothing with the first.
#include "support/delivered.h"

namespace support {

/// What a dispatcher with a processor on every known tag delivers of `bytes`, and how the walk ends.
struct PlainResult {
    std::vector<Delivered> delivered;
    std::string error; // reason of a selector error, empty if there is none
};
PlainResult plainDecode(wire::Bytes bytes);

} // namespace support
