// SPDX-License-Identifier: MIT
#pragma once
// Framing of the mass-data stream: where one datagram ends and the next begins.
// Free of sockets, so that tests and fuzzers can feed it any bytes in any pieces.
#include "wire/view.h"
#include <stdexcept>
#include <string>

namespace wire {

struct BadDatagramSize : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Size of the datagram whose first bytes are `prefix`.
/// Shape:  any prefix, from empty to whole; only the 16-byte header is read, nothing is consumed.
/// Units:  bytes, header included.
/// Result: nothing while the header is incomplete; ask again when more bytes are there.
/// Errors: BadDatagramSize when the header claims less than itself or more than `maxSize`.
/// Source: `datagram::totalLength` in wire/layout.h.
/// Thread: pure; any.
[[nodiscard]] inline std::optional<std::uint32_t>
datagramSize(View prefix, std::uint32_t maxSize = datagram::defaultMaxSize)
{
    if (prefix.size() < datagram::headerSize)
        return std::nullopt;
    const std::uint32_t size = *prefix.get(datagram::totalLength);
    if (size >= datagram::headerSize && size <= maxSize)
        return size;
    throw BadDatagramSize{"datagram length at byte 12: expected " + std::to_string(datagram::headerSize) +
                          " to " + std::to_string(maxSize) + ", found " + std::to_string(size)};
}

} // namespace wire
