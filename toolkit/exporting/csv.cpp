// SPDX-License-Identifier: MIT
#include "toolkit/exporting/csv.h"
#include "toolkit/exporting/textrow.h"

namespace exporting {

CsvWriter::CsvWriter(What what, const std::string& path)
    : m_units(unitsOf(what))
    , m_output(path)
    , m_line("received_ns,device_ns,lost_before,")
{
    if (what == What::Df)
        m_line += "channel,frequency_hz,validity,azimuth_deg,elevation_deg,quality_percent,level_dbuv,"
                  "short_time_level_dbuv,field_strength_dbuv_m";
    else
        add(m_line, "start_{0},step_{0},count,{1}", m_units.axis, m_units.level);
    send();
}

void CsvWriter::write(const Trace& trace)
{
    addWhen(trace.when);
    add(m_line, "{},{},{},", trace.start, trace.step, trace.levels.size());
    addLevels(m_line, trace.levels, m_units.decimals, "");
    send();
}

void CsvWriter::write(const DfBlock& block)
{
    When when = block.when;
    for (std::size_t i = 0; i < block.samples.size(); ++i) {
        const Sample sample{block.samples[i]};
        addWhen(when);
        when.lostBefore = 0; // once for the block
        add(m_line, "{},{},{}", block.firstChannel + i, block.frequencies[i], sample.validity);
        for (const auto& number : {sample.azimuthDeg, sample.elevationDeg, sample.qualityPercent,
                                   sample.levelDbuv, sample.shortTimeLevelDbuv, sample.fieldStrengthDbuvPerM})
            addCell(number);
        send();
    }
}

void CsvWriter::addWhen(const When& when)
{
    if (when.receivedNs > 0)
        add(m_line, "{}", when.receivedNs);
    m_line += ',';
    if (when.deviceNs > 0)
        add(m_line, "{}", when.deviceNs);
    add(m_line, ",{},", when.lostBefore);
}

void CsvWriter::addCell(const std::optional<float>& number)
{
    m_line += ',';
    if (number)
        add(m_line, "{}", *number);
}

void CsvWriter::send()
{
    m_line += '\n';
    m_output.write(m_line);
    m_line.clear();
}

std::vector<std::string> CsvWriter::files() const
{
    if (m_output.path().empty())
        return {};
    return {m_output.path()};
}

} // namespace exporting
