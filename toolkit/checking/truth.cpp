// SPDX-License-Identifier: MIT
#include "toolkit/checking/truth.h"
#include "toolkit/simulation/simulator.h"
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>

namespace checking {

namespace {

using nlohmann::json;

constexpr std::size_t fingerprintDigits = 16;

std::uint64_t fingerprintIn(const json& line, const std::string& where)
{
    const auto member = line.find("fingerprint");
    const std::string text = member != line.end() && member->is_string() ? member->get<std::string>() : "";
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (text.size() != fingerprintDigits || error != std::errc{} || end != text.data() + text.size())
        throw BadTruth{fmt::format("{}: expected a fingerprint of {} hex digits, found '{}'; 'vk410 simulate "
                                   "--truth FILE' writes such files",
                                   where, fingerprintDigits, text)};
    return number;
}

// Result: whether there was one more.
bool nextLine(std::istream& file, std::string& line, const std::string& where)
{
    line.clear();
    for (int c = file.get(); c != std::istream::traits_type::eof(); c = file.get()) {
        if (c == '\n')
            return true;
        if (line.size() == Truth::longestLine)
            throw BadTruth{
                fmt::format("{}: expected a line of at most {} bytes, found a longer one; 'vk410 simulate "
                            "--truth FILE' writes such files",
                            where, Truth::longestLine)};
        line += static_cast<char>(c);
    }
    return !line.empty();
}

} // namespace

Truth::Truth(const std::string& path)
{
    std::ifstream file{path};
    if (!file)
        throw BadTruth{
            fmt::format("{}: expected the truth of a simulation, found: {}; 'vk410 simulate --truth "
                        "FILE' writes it",
                        path, std::strerror(errno))};
    std::size_t number = 0;
    for (std::string line; nextLine(file, line, fmt::format("{}:{}", path, number + 1)); ++number)
        readLine(line, fmt::format("{}:{}", path, number + 1));
    if (m_traces.empty())
        throw BadTruth{fmt::format(
            "{}: expected at least one trace, found none in {} lines; 'vk410 simulate --truth FILE' writes "
            "them",
            path, number)};
    std::ranges::sort(m_traces, {}, &Trace::fingerprint);
}

void Truth::readLine(const std::string& line, const std::string& where)
{
    const json object = json::parse(line, nullptr, false);
    if (!object.is_object() || !object.contains("type"))
        throw BadTruth{
            fmt::format("{}: expected a JSON object with a type, found '{}'; 'vk410 simulate --truth "
                        "FILE' writes such files",
                        where, line.substr(0, 40))};
    if (object["type"] != "trace")
        return;
    if (m_traces.size() == mostTraces)
        throw BadTruth{
            fmt::format("{}: expected at most {} traces; split the simulation", where, mostTraces)};
    const auto fault = object.find("fault");
    const bool isSpoilt = fault != object.end() && fault->is_string();
    m_traces.push_back(
        {fingerprintIn(object, where), isSpoilt ? faultNumber(fault->get<std::string>(), where) : 0, false});
}

std::uint32_t Truth::faultNumber(const std::string& name, const std::string& where)
{
    const auto found = std::ranges::find(m_faults, name);
    if (found == m_faults.end()) {
        if (m_faults.size() > mostFaults)
            throw BadTruth{fmt::format("{}: expected at most {} kinds of faults, found one more: '{}'", where,
                                       mostFaults, name.substr(0, 40))};
        m_faults.push_back(name);
        return static_cast<std::uint32_t>(m_faults.size() - 1);
    }
    return static_cast<std::uint32_t>(found - m_faults.begin());
}

void Truth::take(const QByteArray& datagram)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(datagram.constData());
    const std::uint64_t fingerprint =
        simulation::fingerprint({bytes, bytes + static_cast<std::size_t>(datagram.size())});
    const auto first = std::ranges::lower_bound(m_traces, fingerprint, {}, &Trace::fingerprint);
    const auto last = std::ranges::upper_bound(m_traces, fingerprint, {}, &Trace::fingerprint);
    if (first == last) {
        ++m_foreign;
        return;
    }
    const auto waiting = std::find_if(first, last, [](const Trace& trace) { return !trace.isThere; });
    if (waiting == last)
        ++m_copies;
    else
        waiting->isThere = true;
}

Score Truth::score() const
{
    Score score;
    score.sent = m_traces.size();
    score.copies = m_copies;
    score.foreign = m_foreign;
    for (const Trace& trace : m_traces) {
        score.there += trace.isThere ? 1 : 0;
        if (!trace.isThere)
            ++score.missingByFault[m_faults[trace.fault]];
    }
    return score;
}

} // namespace checking
