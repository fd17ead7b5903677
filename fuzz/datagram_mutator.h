// SPDX-License-Identifier: MIT
#pragma once
// Changes datagrams as a receiver with other settings would: attributes, selectors, counts and headers change
// together with the lengths that depend on them, so that most results get behind the selector word.
#include "wire/datagramwriter.h"
#include <functional>
#include <random>

namespace fuzz {

/// Changes some of the bytes without any idea of what they mean; the size may become anything up to
/// `maxSize`.
using MutateBytes = std::function<wire::Bytes(const wire::Bytes& bytes, std::size_t maxSize)>;

/// Another datagram that is like `datagram`, at most `maxSize` bytes long; any bytes are taken.
/// `seed` and what `mutateBytes` does decide it alone.
[[nodiscard]] wire::Bytes mutateDatagram(const wire::Bytes& datagram, std::size_t maxSize, std::uint32_t seed,
                                         const MutateBytes& mutateBytes);

} // namespace fuzz
