// SPDX-License-Identifier: MIT
#pragma once
// Prints benchmarks with their ratio to a peer from the same run.
#include <benchmark/benchmark.h>
#include <functional>
#include <string>

namespace bench {

/// Runs all registered benchmarks several times, interleaved, and prints one line each: median time, spread
/// (half the distance of the quartiles), bytes a second, and the ratio of its median to that of its peer:
/// of processor time, and by the clock, which differ where other threads work or wait.
/// `peerOf` gives the name of a benchmark's peer, from its own name; an empty one: no peer.
/// With --results=FILE each line also goes there, as a JSON object: program, name, ns, wall_ns, spread,
/// bytes, peer. Result: what `main` returns.
int runWithRatios(int argc, char** argv, const std::function<std::string(const std::string&)>& peerOf);

/// Stops with a message when a benchmark's result is not what the plain decoder says.
void require(bool holds, const char* what);

} // namespace bench
