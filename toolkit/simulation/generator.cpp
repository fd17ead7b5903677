// SPDX-License-Identifier: MIT
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/bandgenerator.h"
#include "toolkit/simulation/zerospangenerator.h"

namespace simulation {

std::unique_ptr<Generator> makeGenerator(const Scene& scene, std::uint64_t seed)
{
    switch (scene.kind) {
    case SceneKind::Band:
        return std::make_unique<BandGenerator>(scene, seed);
    case SceneKind::ZeroSpan:
        return std::make_unique<ZeroSpanGenerator>(scene, seed);
    case SceneKind::Df:
        break;
    }
    throw BadScene{"direction finding is not simulated yet"};
}

} // namespace simulation
