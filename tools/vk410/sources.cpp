// SPDX-License-Identifier: MIT
#include "tools/vk410/sources.h"
#include "tools/vk410/verbs.h"
#include <cstdio>
#include <exception>
#include <fmt/format.h>

namespace verbs {

std::unique_ptr<receiver::Source> openSource(const std::string& text, const receiver::Playback& playback)
{
    return receiver::makeSource(receiver::parseSource(text), playback);
}

int reportErrors(const char* verb, const std::function<int()>& work)
{
    try {
        return work();
    } catch (const std::exception& error) {
        std::fflush(stdout);
        fmt::print(stderr, "vk410 {}: {}\n", verb, error.what());
        return Failed;
    }
}

} // namespace verbs
