// SPDX-License-Identifier: MIT
#pragma once
// A simulated receiver as a session's source, without sockets between.
#include "toolkit/receiver/source.h"
#include "toolkit/simulation/player.h"

namespace simulation {

/// What the jobs of a scene scan; none unless it is one of direction finding.
[[nodiscard]] ScanRangeContainer scanRangesOf(const Scene& scene);

class SimulationSource : public receiver::Source {
    Q_OBJECT

public:
    /// `rate`: times the speed of the scene; 0: as fast as possible.
    /// Errors: BadScene.
    SimulationSource(Scene scene, std::uint64_t seed, double rate = 1);

    void start(Sink sink) override;
    [[nodiscard]] Facts facts() const override;
    [[nodiscard]] ScanRangeContainer scanRanges() const override;

    /// For faults while it runs, limits and the truth.
    [[nodiscard]] Simulator& simulator() { return m_simulator; }

private:
    Simulator m_simulator;
    Player m_player;
    Sink m_sink;
};

} // namespace simulation
