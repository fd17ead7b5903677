// SPDX-License-Identifier: MIT
#pragma once
// What a simulated receiver says it has sent, against what came out.
#include <QByteArray>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace checking {

/// A file is no truth of a simulation; says where, what was expected and what came.
struct BadTruth : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How much of what was sent came out.
struct Score {
    std::uint64_t sent = 0;    // traces that were made
    std::uint64_t there = 0;   // of those, byte for byte
    std::uint64_t copies = 0;  // that came again
    std::uint64_t foreign = 0; // datagrams that nobody sent like this: spoilt on the way, or another sender's
    std::map<std::string, std::uint64_t> missingByFault; // "": nobody spoilt them on purpose

    [[nodiscard]] std::uint64_t missing() const { return sent - there; }
};

/// The traces of a truth file, ticked off one by one.
/// Shape: 24 bytes a trace.
class Truth {
public:
    /// More traces than this are not kept.
    static constexpr std::size_t mostTraces = 50'000'000;

    /// A line of a truth has a few hundred bytes, and some for each signal of its scene.
    static constexpr std::size_t longestLine = 4U << 20U;

    /// More kinds of faults than the simulator will ever know are nonsense.
    static constexpr std::size_t mostFaults = 256;

    /// Errors: BadTruth.
    explicit Truth(const std::string& path);

    /// Ticks off the trace that these are the bytes of.
    void take(const QByteArray& datagram);

    [[nodiscard]] Score score() const;

private:
    struct Trace {
        std::uint64_t fingerprint;
        std::uint32_t fault; // index in m_faults
        bool isThere;
    };
    void readLine(const std::string& line, const std::string& where);
    [[nodiscard]] std::uint32_t faultNumber(const std::string& name, const std::string& where);

    std::vector<Trace> m_traces; // by fingerprint
    std::vector<std::string> m_faults{""};
    std::uint64_t m_copies = 0;
    std::uint64_t m_foreign = 0;
};

} // namespace checking
