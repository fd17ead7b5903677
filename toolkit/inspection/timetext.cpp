// SPDX-License-Identifier: MIT
#include "toolkit/inspection/timetext.h"
#include <ctime>
#include <fmt/format.h>

namespace inspection {

std::string timeText(std::int64_t ns)
{
    constexpr std::int64_t perSecond = 1'000'000'000;
    const bool isBelow = ns % perSecond < 0; // of a time before 1970 the second begins earlier still
    const std::int64_t fraction = ns % perSecond + (isBelow ? perSecond : 0);
    const std::time_t seconds = ns / perSecond - (isBelow ? 1 : 0);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, fraction);
}

} // namespace inspection
