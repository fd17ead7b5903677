// SPDX-License-Identifier: MIT
#pragma once
// Damage on demand, each kind in the form in which a reader tells it from the others.
#include "toolkit/simulation/random.h"
#include "wire/datagramwriter.h"
#include <cstdint>
#include <string_view>
#include <vector>

namespace simulation {

/// Probabilities, 0 to 1, that a datagram meets a fault. It meets one at most: where they add up to more than
/// 1, the first ones go before.
struct Faults {
    double drop = 0;
    double duplicate = 0;
    double reorder = 0;
    double corrupt = 0; // magic, selector word or tag, a third each
    double truncate = 0;
    double stall = 0;
};

/// Faults made so far, by kind.
struct FaultCounts {
    std::uint64_t drop = 0;
    std::uint64_t duplicate = 0;
    std::uint64_t reorder = 0;
    std::uint64_t corruptMagic = 0;
    std::uint64_t corruptSelector = 0;
    std::uint64_t corruptTag = 0;
    std::uint64_t truncate = 0;
    std::uint64_t stall = 0;

    [[nodiscard]] std::uint64_t sum() const;
    friend bool operator==(const FaultCounts&, const FaultCounts&) = default;
};

enum class FaultKind : std::uint8_t {
    None,
    Drop,            // never sent
    Duplicate,       // sent twice
    Reorder,         // sent after the one that follows it
    CorruptMagic,    // nobody's datagram any more; its sequence number is not believed either
    CorruptSelector, // its attribute's selector word names a field that does not exist
    CorruptTag,      // its attribute is of a kind that nobody knows
    Truncate,        // cut inside the last field
    Stall,           // sent, and everything behind it, after a pause
};

/// Each kind of fault: its name in texts, and its count.
struct FaultName {
    FaultKind kind;
    std::string_view name;
    std::uint64_t FaultCounts::*count;
};
[[nodiscard]] const std::vector<FaultName>& faultNames();
[[nodiscard]] std::string_view nameOf(FaultKind kind);

/// How long a stall lasts.
inline constexpr std::int64_t stallNs = 500'000'000;

/// Draws the fault of one datagram. One number is drawn whatever the probabilities are.
[[nodiscard]] FaultKind drawFault(const Faults& faults, Random& random);

/// Damages a sound datagram with one attribute. Kinds that damage no bytes leave it as it is.
void damage(wire::Bytes& datagram, FaultKind kind, Random& random);

} // namespace simulation
