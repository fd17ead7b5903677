// SPDX-License-Identifier: MIT
#include "toolkit/simulation/generator.h"
#include "toolkit/simulation/bandgenerator.h"
#include "toolkit/simulation/demogenerator.h"
#include "toolkit/simulation/dfgenerator.h"
#include "toolkit/simulation/iqgenerator.h"
#include "toolkit/simulation/zerospangenerator.h"

namespace simulation {

std::unique_ptr<Generator> makeGenerator(const Scene& scene, std::uint64_t seed)
{
    switch (scene.kind) {
    case SceneKind::Band:
        if (!scene.iq.empty())
            return std::make_unique<IqPanorama>(scene);
        return std::make_unique<BandGenerator>(scene, seed);
    case SceneKind::ZeroSpan:
        if (!scene.iq.empty())
            return std::make_unique<IqZeroSpan>(scene);
        return std::make_unique<ZeroSpanGenerator>(scene, seed);
    case SceneKind::Df:
        return std::make_unique<DfGenerator>(scene, seed);
    case SceneKind::Demo:
        return std::make_unique<DemoGenerator>(scene, seed);
    }
    return nullptr;
}

} // namespace simulation
