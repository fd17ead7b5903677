// SPDX-License-Identifier: MIT
#pragma once
// A receiver that is not there: datagrams of a scene, in time order, with faults on demand.
// Free of sockets and clocks, so that whoever sends them decides about pace and way.
#include "toolkit/simulation/faults.h"
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/scene.h"
#include "wire/datagramwriter.h"
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace simulation {

/// One datagram, and when it leaves: ns since the start.
struct Emission {
    wire::Bytes bytes;
    std::int64_t atNs;
};

/// The same scene, seed, and calls give the same datagrams, byte for byte.
/// Faults never fall on the first and the last datagram, since a gap needs two ends to be noticed, nor on the
/// one that overtakes another; and after 10,000 datagrams in a row without a readable sequence number comes a
/// sound one, since 16 bits cannot tell a longer gap from a step back.
/// Thread: one.
class Simulator {
public:
    using TruthSink = std::function<void(const std::string& line)>;

    /// Errors: BadScene.
    Simulator(Scene scene, std::uint64_t seed);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    /// "demo", "band", "zerospan" or "df". Errors: BadScene.
    [[nodiscard]] static Scene builtinScene(std::string_view name);
    /// The scene in a JSON file. Errors: BadScene.
    [[nodiscard]] static Scene loadScene(const std::string& path);

    /// The next datagram, after faults; nothing when the scene has ended, for good.
    [[nodiscard]] std::optional<Emission> next();

    /// From the next datagram on.
    void setFaults(const Faults& faults) { m_faults = faults; }
    [[nodiscard]] const Faults& faults() const { return m_faults; }
    [[nodiscard]] const FaultCounts& faultCounts() const { return m_counts; }

    /// Traces after which the scene ends; 0: none.
    void setLimit(std::uint64_t traces) { m_limit = traces; }

    /// One more trace, which is sound, ends the scene.
    void stop() { m_isStopping = true; }

    /// Gets one JSON object per line: the settings at once, then every trace, then the sums at the end.
    void setTruthSink(TruthSink sink);

    [[nodiscard]] const Scene& scene() const { return m_scene; }
    [[nodiscard]] std::uint64_t seed() const { return m_seed; }
    [[nodiscard]] std::uint64_t traces() const { return m_traces; }       // made, sent or not
    [[nodiscard]] std::uint64_t datagrams() const { return m_datagrams; } // handed out
    [[nodiscard]] std::uint64_t bytes() const { return m_bytes; }

private:
    void makeOne();
    [[nodiscard]] FaultKind chooseFault();
    void count(FaultKind fault);
    void queue(wire::Bytes bytes, FaultKind fault, std::int64_t atNs);
    void tell(const Made& made, const wire::Bytes& sound, FaultKind fault, const Emission& sent);
    void tellStart() const;
    void tellEnd() const;
    [[nodiscard]] std::int64_t traceTimeNs(std::uint64_t trace) const;

    Scene m_scene;
    std::uint64_t m_seed;
    std::unique_ptr<Generator> m_generator;
    Random m_chance; // of its own, so that faults do not change what is on the air
    Faults m_faults;
    FaultCounts m_counts;
    TruthSink m_truth;
    std::deque<Emission> m_ready;
    std::optional<wire::Bytes> m_held; // waits to be overtaken
    std::uint64_t m_limit = 0;
    std::uint64_t m_traces = 0;
    std::uint64_t m_datagrams = 0;
    std::uint64_t m_bytes = 0;
    std::int64_t m_pausedNs = 0;
    int m_unreadable = 0; // in a row
    bool m_isStopping = false;
    bool m_isDone = false;
};

/// FNV-1a of a datagram's bytes, as the truth file has it.
[[nodiscard]] std::uint64_t fingerprint(const wire::Bytes& bytes);

} // namespace simulation
