// SPDX-License-Identifier: MIT
#pragma once
// Everything that a receiver sends, in one stream: panoramas, direction finding, zero span.
#include "toolkit/simulation/bandgenerator.h"
#include "toolkit/simulation/dfgenerator.h"
#include "toolkit/simulation/zerospangenerator.h"

namespace simulation {

/// The part of a demo scene that is of `kind`: the same signals, seen by that part of the receiver. Its zero
/// span is tuned to the scene's first burst.
[[nodiscard]] Scene partOf(const Scene& demo, SceneKind kind);

/// Of six traces, three are panoramas, two blocks of direction finding, and one a zero span. Each kind shows
/// what was on the air since its last trace, so that no burst is missed.
class DemoGenerator : public Generator {
public:
    DemoGenerator(const Scene& scene, std::uint64_t seed);

    Made make(const Interval& interval) override;

private:
    // A part that looks back, and until when it has shown what was on the air.
    template <typename T>
    struct Part {
        T generator;
        std::int64_t shownUntilNs = 0;
        Made make(const Interval& interval);
    };

    Part<BandGenerator> m_band;
    Part<DfGenerator> m_df;
    ZeroSpanGenerator m_zeroSpan;
    std::size_t m_next = 0;
};

} // namespace simulation
