// SPDX-License-Identifier: MIT
#include "toolkit/recording/numberedpath.h"
#include <fmt/format.h>

namespace recording {

std::string numberedPath(const std::string& path, std::size_t number)
{
    if (number == 0)
        return path;
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    const bool hasEnding = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    const std::size_t end = hasEnding ? dot : path.size();
    return fmt::format("{}-{:04}{}", path.substr(0, end), number, path.substr(end));
}

} // namespace recording
