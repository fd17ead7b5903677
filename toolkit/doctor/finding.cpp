// SPDX-License-Identifier: MIT
#include "toolkit/doctor/finding.h"
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace doctor {

namespace {

const char* nameOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Fine:
        return "fine";
    case Outcome::Problem:
        return "problem";
    case Outcome::Unknown:
        break;
    }
    return "unknown";
}

} // namespace

std::string text(std::size_t number, const Finding& finding)
{
    std::string line =
        fmt::format("{:>2} {:<13} {:<8} {}", number, finding.check, nameOf(finding.outcome), finding.found);
    if (!finding.fix.empty())
        line += fmt::format("\n   fix: {}", finding.fix);
    return line;
}

std::string json(std::size_t number, const Finding& finding)
{
    nlohmann::ordered_json line;
    line["number"] = number;
    line["check"] = finding.check;
    line["outcome"] = nameOf(finding.outcome);
    line["found"] = finding.found;
    line["fix"] = finding.fix;
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace doctor
