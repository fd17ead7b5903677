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

void requireRecording(const std::string& file)
{
    std::error_code unknown;
    const bool isAddress = file.find("://") != std::string::npos || file.starts_with("sim:");
    if (isAddress && !std::filesystem::exists(file, unknown))
        throw std::runtime_error{
            fmt::format("{0}: expected a recording, found the address of a source; 'vk410 record {0} "
                        "-o a.pcap --for 10' makes one of it, 'vk410 doctor {0}' looks at it live",
                        file)};
}

void requireOtherFile(const std::string& source, const std::string& output)
{
    std::error_code unknown; // what is no file is another one
    if (std::filesystem::equivalent(source, output, unknown))
        throw std::runtime_error{
            fmt::format("{}: expected another file than the one that is read; name a new one", output)};
}

} // namespace verbs
