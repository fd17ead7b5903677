// SPDX-License-Identifier: MIT
#include "tools/vk410/sources.h"
#include "toolkit/simulation/simulationsource.h"

namespace verbs {

std::unique_ptr<receiver::Source> openSource(const std::string& text, const receiver::Playback& playback)
{
    const receiver::SourceSpec spec = receiver::parseSource(text);
    if (spec.kind != receiver::SourceSpec::Kind::Simulation)
        return receiver::makeSource(spec, playback);
    simulation::Scene scene = simulation::sceneNamed(spec.path);
    scene.startNs = receiver::nowNs();
    return std::make_unique<simulation::SimulationSource>(std::move(scene), 1, playback.rate);
}

} // namespace verbs
