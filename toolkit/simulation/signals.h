// SPDX-License-Identifier: MIT
#pragma once
// What a signal does at a time. Pure functions of seed and time: a trace needs no trace before it.
#include "toolkit/simulation/scene.h"
#include <cstdint>
#include <vector>

namespace simulation {

/// A stretch of time, in ns since the start of the scene.
struct Interval {
    std::int64_t beginNs;
    std::int64_t endNs;
};

/// A signal as a receiver meets it.
struct Appearance {
    double frequencyHz;
    double levelDbuv;
    double widthHz;
};

/// One transmission of a burst, the `number`-th: on from `beginNs` until `endNs`.
[[nodiscard]] Interval burstInterval(const Signal& signal, std::uint64_t seed, std::int64_t number);

/// Where and how strong `signal` is met in `interval`; nothing while it is silent.
/// Shape: a hopper is met once per channel it visits, at most `channels` times.
[[nodiscard]] std::vector<Appearance> appearances(const Signal& signal, std::uint64_t seed,
                                                  const Interval& interval);

/// Whether a burst is on at `ns`; any other signal always is.
[[nodiscard]] bool isOn(const Signal& signal, std::uint64_t seed, std::int64_t ns);

/// How loud the speaker is, from 0 to 1, changing with the syllables.
[[nodiscard]] double loudness(std::uint64_t seed, std::int64_t ns);

} // namespace simulation
