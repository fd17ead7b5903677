// SPDX-License-Identifier: MIT
#include "tools/vk410/sources.h"
#include "toolkit/simulation/simulationsource.h"
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>

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

void requireOtherFile(const std::string& source, const std::string& output)
{
    std::error_code unknown; // what is no file is another one
    if (std::filesystem::equivalent(source, output, unknown))
        throw std::runtime_error{
            fmt::format("{}: expected another file than the one that is read; name a new one", output)};
}

} // namespace verbs
