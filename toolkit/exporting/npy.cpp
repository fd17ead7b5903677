// SPDX-License-Identifier: MIT
#include "toolkit/exporting/npy.h"
#include "toolkit/recording/numberedpath.h"
#include "values/levels.h"
#include "wire/view.h"
#include <array>
#include <bit>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <limits>

namespace exporting {

namespace {

// Whole headers are a multiple of this, with room for any number of rows.
constexpr std::size_t headerUnit = 64;
constexpr std::size_t roomForRows = 20;
constexpr std::size_t headerPrefix = 10;

constexpr std::size_t headerIsRenewedAfterRows = 256;

constexpr char timeType[] = "[('received_ns', '<i8'), ('device_ns', '<i8'), ('lost_before', '<u8')]";
constexpr char sampleType[] =
    "[('received_ns', '<i8'), ('device_ns', '<i8'), ('lost_before', '<u8'), ('channel', '<u4'), "
    "('frequency_hz', '<f8'), ('validity', 'S8'), ('azimuth_deg', '<f4'), ('elevation_deg', '<f4'), "
    "('quality_percent', '<f4'), ('level_dbuv', '<f4'), ('short_time_level_dbuv', '<f4'), "
    "('field_strength_dbuv_m', '<f4')]";
constexpr std::size_t validityBytes = 8;
constexpr std::size_t timeBytes = 24;
constexpr std::size_t sampleBytes = timeBytes + 4 + 8 + validityBytes + 6 * 4;

template <typename T>
void addNumber(std::string& row, T number)
{
    std::array<unsigned char, sizeof number> bytes{};
    if constexpr (std::integral<T>)
        wire::store(bytes.data(), number, wire::ByteOrder::Little);
    else if constexpr (sizeof number == 4)
        wire::store(bytes.data(), std::bit_cast<std::uint32_t>(number), wire::ByteOrder::Little);
    else
        wire::store(bytes.data(), std::bit_cast<std::uint64_t>(number), wire::ByteOrder::Little);
    row.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void addNumber(std::string& row, const std::optional<float>& number)
{
    addNumber(row, number.value_or(std::numeric_limits<float>::quiet_NaN()));
}

void addWhen(std::string& row, const When& when)
{
    addNumber(row, when.receivedNs);
    addNumber(row, when.deviceNs);
    addNumber(row, when.lostBefore);
}

// "a.npy", "grid" gives "a.grid.npy".
std::string companion(const std::string& path, std::string_view what)
{
    const std::string stem = hasEnding(path, ".npy") ? path.substr(0, path.size() - 4) : path;
    return fmt::format("{}.{}.npy", stem, what);
}

void writeGrid(const std::string& path, const Trace& trace)
{
    NpyFile file{path, "'<f8'", 0, sizeof(double)};
    std::string positions;
    for (std::size_t k = 0; k < trace.levels.size(); ++k)
        addNumber(positions, trace.start + static_cast<double>(k) * trace.step);
    file.append(positions);
    file.bringUpToDate();
}

// What an earlier export left beside `path` would be read as this one's: nobody could tell them apart.
// Result: `path`.
const std::string& alone(const std::string& path, std::size_t first)
{
    for (std::size_t part = first; part < NpyTraces::mostGrids; ++part) {
        const std::string array = recording::numberedPath(path, part);
        for (const std::string& each : {array, companion(array, "time"), companion(array, "grid")}) {
            std::error_code unknown;
            const bool isOwn = part == 0 && each == path;
            if (!isOwn && std::filesystem::exists(each, unknown))
                throw CannotExport{
                    fmt::format("{}: expected nothing of an earlier export beside {}, found it; "
                                "remove it, or name another file",
                                each, path)};
        }
    }
    return path;
}

} // namespace

NpyFile::NpyFile(std::string path, std::string type, std::size_t columns, std::size_t rowBytes)
    : m_output(std::move(path), Output::Order::Anywhere)
    , m_type(std::move(type))
    , m_columns(columns)
    , m_rowBytes(rowBytes)
{
    m_output.write(header());
    m_output.flush(); // loads from now on
}

std::string NpyFile::header() const
{
    const std::string shape =
        m_columns == 0 ? fmt::format("({},)", m_rows) : fmt::format("({}, {})", m_rows, m_columns);
    std::string text = fmt::format("{{'descr': {}, 'fortran_order': False, 'shape': {}, }}", m_type, shape);
    const std::size_t longest = headerPrefix + m_type.size() + headerUnit + 2 * roomForRows;
    const std::size_t size = (longest / headerUnit + 1) * headerUnit;
    text.resize(size - headerPrefix - 1, ' ');
    text += '\n';
    std::string header{"\x93NUMPY\x01\x00", 8};
    addNumber(header, static_cast<std::uint16_t>(text.size()));
    return header + text;
}

void NpyFile::append(std::string_view rows)
{
    m_output.write(rows);
    m_rows += rows.size() / m_rowBytes;
    if (m_rows - m_rowsInHeader >= headerIsRenewedAfterRows)
        bringUpToDate();
}

void NpyFile::bringUpToDate()
{
    if (m_rows == m_rowsInHeader)
        return;
    m_output.flush(); // the rows that the header promises are there before it does
    m_output.rewriteStart(header());
    m_output.flush();
    m_rowsInHeader = m_rows;
}

NpyTraces::Part::Part(const std::string& path, const std::string& timesPath, const Trace& trace)
    : levels(path, "'<f4'", trace.levels.size(), trace.levels.size() * sizeof(float))
    , times(timesPath, timeType, 0, timeBytes)
    , start(trace.start)
    , step(trace.step)
    , count(trace.levels.size())
{}

NpyTraces::NpyTraces(What what, std::string path)
    : m_units(unitsOf(what))
    , m_path(std::move(path))
{
    const Output canBeWritten{alone(m_path, 1), Output::Order::Anywhere}; // said before anything is received
    // Those of an earlier array of this name tell nothing of this one, which may stay empty.
    std::error_code unknown;
    std::filesystem::remove(companion(m_path, "time"), unknown);
    std::filesystem::remove(companion(m_path, "grid"), unknown);
}

bool NpyTraces::fits(const Trace& trace) const
{
    return m_part && m_part->start == trace.start && m_part->step == trace.step &&
           m_part->count == trace.levels.size();
}

void NpyTraces::begin(const Trace& trace)
{
    finish();
    if (m_parts == mostGrids)
        throw CannotExport{fmt::format("{}: expected at most {} changes of the grid, found more; export to "
                                       "a .csv or .ndjson file, whose rows have a grid each",
                                       m_path, mostGrids - 1)};
    const std::string path = recording::numberedPath(m_path, m_parts++);
    const std::string times = companion(path, "time");
    const std::string grid = companion(path, "grid");
    writeGrid(grid, trace);
    m_part = std::make_unique<Part>(path, times, trace);
    for (const std::string& each : {path, times, grid})
        m_files.push_back(each);
}

void NpyTraces::write(const Trace& trace)
{
    if (!fits(trace))
        begin(trace);
    m_row.clear();
    const double unit = std::pow(10.0, m_units.decimals);
    for (const short level : trace.levels)
        addNumber(m_row, level == values::noLevel ? std::numeric_limits<float>::quiet_NaN()
                                                  : static_cast<float>(level / unit));
    m_part->levels.append(m_row);
    m_row.clear();
    addWhen(m_row, trace.when);
    m_part->times.append(m_row);
}

void NpyTraces::write(const DfBlock& /*block*/) {}

void NpyTraces::update()
{
    if (!m_part)
        return;
    m_part->levels.bringUpToDate();
    m_part->times.bringUpToDate();
}

NpySamples::NpySamples(const std::string& path)
    : m_file(alone(path, 0), sampleType, 0, sampleBytes)
{}

void NpySamples::write(const Trace& /*trace*/) {}

void NpySamples::write(const DfBlock& block)
{
    m_rows.clear();
    When when = block.when;
    for (std::size_t i = 0; i < block.samples.size(); ++i) {
        const Sample sample{block.samples[i]};
        addWhen(m_rows, when);
        when.lostBefore = 0; // once for the block
        addNumber(m_rows, static_cast<std::uint32_t>(block.firstChannel + i));
        addNumber(m_rows, block.frequencies[i]);
        m_rows += sample.validity;
        m_rows.append(validityBytes - sample.validity.size(), '\0');
        for (const auto& number : {sample.azimuthDeg, sample.elevationDeg, sample.qualityPercent,
                                   sample.levelDbuv, sample.shortTimeLevelDbuv, sample.fieldStrengthDbuvPerM})
            addNumber(m_rows, number);
    }
    m_file.append(m_rows);
}

} // namespace exporting
