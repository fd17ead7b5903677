// SPDX-License-Identifier: MIT
// Any bytes as a scene: they are refused with words, or can be simulated.
#include "toolkit/simulation/scene.h"
#include "toolkit/simulation/simulator.h"
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// A scene with a recording reads whatever file it names.
bool namesARecording(const std::string& text)
{
    return text.find("iq") != std::string::npos || text.find('\\') != std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (namesARecording(text))
        return 0;
    try {
        simulation::Simulator simulator{simulation::parseScene(text, "fuzz"), 1};
        simulator.setTruthSink([](const std::string& line) {
            if (line.empty())
                std::abort();
        });
        for (int i = 0; i < 3; ++i) {
            if (simulator.next()->bytes.empty())
                std::abort();
        }
    } catch (const simulation::BadScene& bad) {
        if (std::string(bad.what()).empty())
            std::abort();
    }
    return 0;
}
