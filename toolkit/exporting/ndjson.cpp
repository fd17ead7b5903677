// SPDX-License-Identifier: MIT
#include "toolkit/exporting/ndjson.h"
#include "toolkit/exporting/textrow.h"

namespace exporting {

namespace {

void addMember(std::string& line, std::string_view name, std::span<const values::DFSpectrumSample> samples,
               std::optional<float> Sample::*number)
{
    add(line, R"(,"{}":[)", name);
    const char* separator = "";
    for (const values::DFSpectrumSample& each : samples) {
        const Sample sample{each};
        line += std::exchange(separator, ",");
        if (sample.*number)
            add(line, "{}", *(sample.*number));
        else
            line += "null";
    }
    line += ']';
}

// NaN and infinity are no numbers of JSON.
void addNumber(std::string& line, double number)
{
    if (number - number == 0)
        add(line, "{}", number);
    else
        line += "null";
}

} // namespace

NdjsonWriter::NdjsonWriter(What what, const std::string& path)
    : m_units(unitsOf(what))
    , m_output(path)
{}

void NdjsonWriter::write(const Trace& trace)
{
    begin(trace.when);
    add(m_line, R"(,"start_{}":)", m_units.axis);
    addNumber(m_line, trace.start);
    add(m_line, R"(,"step_{}":)", m_units.axis);
    addNumber(m_line, trace.step);
    add(m_line, R"(,"{}":[)", m_units.level);
    addLevels(m_line, trace.levels, m_units.decimals, "null");
    m_line += ']';
    send();
}

void NdjsonWriter::write(const DfBlock& block)
{
    begin(block.when);
    add(m_line, R"(,"first_channel":{},"frequency_hz":[)", block.firstChannel);
    const char* separator = "";
    for (const double frequency : block.frequencies) {
        m_line += std::exchange(separator, ",");
        addNumber(m_line, frequency);
    }
    m_line += R"(],"validity":[)";
    separator = "";
    for (const values::DFSpectrumSample& sample : block.samples)
        add(m_line, R"({}"{}")", std::exchange(separator, ","), Sample{sample}.validity);
    m_line += ']';
    addMember(m_line, "azimuth_deg", block.samples, &Sample::azimuthDeg);
    addMember(m_line, "elevation_deg", block.samples, &Sample::elevationDeg);
    addMember(m_line, "quality_percent", block.samples, &Sample::qualityPercent);
    addMember(m_line, "level_dbuv", block.samples, &Sample::levelDbuv);
    addMember(m_line, "short_time_level_dbuv", block.samples, &Sample::shortTimeLevelDbuv);
    addMember(m_line, "field_strength_dbuv_m", block.samples, &Sample::fieldStrengthDbuvPerM);
    send();
}

void NdjsonWriter::begin(const When& when)
{
    add(m_line, R"({{"type":"{}")", m_units.type);
    addTime("received_ns", when.receivedNs);
    addTime("device_ns", when.deviceNs);
    add(m_line, R"(,"lost_before":{})", when.lostBefore);
}

void NdjsonWriter::addTime(std::string_view name, std::int64_t ns)
{
    add(m_line, R"(,"{}":)", name);
    if (ns > 0)
        add(m_line, "{}", ns);
    else
        m_line += "null";
}

void NdjsonWriter::send()
{
    m_line += "}\n";
    m_output.write(m_line);
    m_line.clear();
}

std::vector<std::string> NdjsonWriter::files() const
{
    if (m_output.path().empty())
        return {};
    return {m_output.path()};
}

} // namespace exporting
