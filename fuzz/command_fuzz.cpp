// SPDX-License-Identifier: MIT
// Any bytes as a viewer's command: they are a command whose numbers are within their limits, or a BadCommand
// with few words.
#include "toolkit/pageserver/commands.h"
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

using namespace pageserver;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

bool isFrequency(double hz)
{
    return hz >= 0 && hz <= 1e12;
}

void check(const Subscribe& wish)
{
    require(wish.maxPerSecond > 0 && wish.maxPerSecond <= 1'000);
}
void check(const ResetHolds& /*command*/) {}
void check(const SetAverage& /*command*/) {}
void check(const AddRange& range)
{
    require(isFrequency(range.fromHz) && isFrequency(range.toHz) && range.name.size() <= 200);
}
void check(const RemoveRange& /*command*/) {}
void check(const ControlPlayback& control)
{
    require(control.number >= 0 && std::isfinite(control.number));
}
void check(const SetFaults& faults)
{
    for (const auto& [name, probability] : faults.probabilities)
        require(!name.empty() && probability >= 0 && probability <= 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        const Command command = parseCommand({reinterpret_cast<const char*>(data), size});
        require(!nameOf(command).empty());
        std::visit([](const auto& one) { check(one); }, command);
    } catch (const BadCommand& bad) {
        require(bad.command.size() <= 200 && std::string_view(bad.what()).size() <= 500);
    }
    return 0;
}
