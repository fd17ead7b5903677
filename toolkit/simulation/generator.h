// SPDX-License-Identifier: MIT
#pragma once
// What makes the traces of one scene, one after another.
#include "toolkit/simulation/scene.h"
#include "toolkit/simulation/signals.h"
#include "wire/datagramwriter.h"
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace simulation {

/// Where a direction finder finds a signal.
struct Direction {
    double azimuthDeg;
    double elevationDeg;
    std::optional<double> quality; // percent; absent: too weak for a bearing
};

/// A signal that is in a trace.
struct Seen {
    std::string_view name;
    double frequencyHz;
    double level; // dBuV; of recorded I/Q: dB relative to full scale
    std::optional<Direction> direction = std::nullopt;
};

/// One trace, before it gets its sequence number.
struct Made {
    wire::DatagramWriter datagram;
    std::vector<Seen> seen;
};

class Generator {
public:
    Generator() = default;
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;
    virtual ~Generator() = default;

    /// The next trace: what is received in `interval`.
    virtual Made make(const Interval& interval) = 0;

    /// Whether nothing is left to make.
    [[nodiscard]] virtual bool isAtEnd() const { return false; }
};

/// Errors: BadScene.
[[nodiscard]] std::unique_ptr<Generator> makeGenerator(const Scene& scene, std::uint64_t seed);

/// A level as the wire has it: tenths of a dB, never the number that stands for "no value".
[[nodiscard]] std::int16_t tenths(double decibels);

} // namespace simulation
