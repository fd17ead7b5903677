// SPDX-License-Identifier: MIT
#include "toolkit/simulation/demogenerator.h"
#include <algorithm>
#include <array>

namespace simulation {

namespace {

constexpr std::array<SceneKind, 6> turns{SceneKind::Band, SceneKind::Df,   SceneKind::Band,
                                         SceneKind::Df,   SceneKind::Band, SceneKind::ZeroSpan};

constexpr int blockChannels = 401;
constexpr int timePoints = 1001;

} // namespace

Scene partOf(const Scene& demo, SceneKind kind)
{
    Scene part = demo;
    part.kind = kind;
    part.rate = demo.rate * static_cast<double>(std::ranges::count(turns, kind)) / turns.size();
    if (kind == SceneKind::Df)
        part.points = blockChannels;
    if (kind == SceneKind::ZeroSpan) {
        part.points = timePoints;
        const auto burst = std::ranges::find(demo.onAir, Signal::Type::Burst, &Signal::type);
        part.centreHz = burst == demo.onAir.end() ? demo.centreHz : burst->frequencyHz;
    }
    return part;
}

DemoGenerator::DemoGenerator(const Scene& scene, std::uint64_t seed)
    : m_band{{partOf(scene, SceneKind::Band), seed}}
    , m_df{{partOf(scene, SceneKind::Df), seed}}
    , m_zeroSpan{partOf(scene, SceneKind::ZeroSpan), seed}
{}

template <typename T>
Made DemoGenerator::Part<T>::make(const Interval& interval)
{
    const Interval since{std::min(shownUntilNs, interval.beginNs), interval.endNs};
    shownUntilNs = interval.endNs;
    return generator.make(since);
}

Made DemoGenerator::make(const Interval& interval)
{
    const SceneKind kind = turns[m_next];
    m_next = (m_next + 1) % turns.size();
    if (kind == SceneKind::ZeroSpan) // shows a window of its own length
        return m_zeroSpan.make(interval);
    return kind == SceneKind::Band ? m_band.make(interval) : m_df.make(interval);
}

} // namespace simulation
