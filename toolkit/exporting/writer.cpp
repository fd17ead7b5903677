// SPDX-License-Identifier: MIT
#include "toolkit/exporting/writer.h"
#include "toolkit/exporting/csv.h"
#include "toolkit/exporting/ndjson.h"
#include "toolkit/exporting/npy.h"
#include "values/levels.h"
#include <algorithm>
#include <array>
#include <cctype>

namespace exporting {

namespace {

constexpr float hundredths = 100.0F;

std::optional<float> level(short raw)
{
    if (raw == values::noLevel)
        return std::nullopt;
    return static_cast<float>(raw) / hundredths;
}

std::string_view textOf(values::DFSpectrumSample::Validity validity)
{
    using Validity = values::DFSpectrumSample::Validity;
    switch (validity) {
    case Validity::Valid:
        return "valid";
    case Validity::Blanked:
        return "blanked";
    case Validity::Unusable:
        break;
    }
    return "unusable";
}

} // namespace

const Units& unitsOf(What what)
{
    static const std::array<Units, 4> all{{{"levels", "hz", "level_dbuv", 1},
                                           {"zerospan", "s", "level_dbuv", 1},
                                           {"zerospan2", "s", "part_of_full_scale", 3},
                                           {"df", "hz", "level_dbuv", 2}}};
    return all[static_cast<std::size_t>(what)];
}

Sample::Sample(const values::DFSpectrumSample& sample)
    : validity(textOf(sample.getValidity()))
    , levelDbuv(level(sample.getLevel()))
    , shortTimeLevelDbuv(level(sample.getShortTimeLevel()))
    , fieldStrengthDbuvPerM(level(sample.getFieldStrength()))
{
    // A bearing of quality 0 is none.
    if (sample.getQuality() <= 0)
        return;
    azimuthDeg = static_cast<float>(sample.getAzimuth()) / hundredths;
    elevationDeg = static_cast<float>(sample.getElevation()) / hundredths;
    qualityPercent = static_cast<float>(sample.getQuality());
}

bool hasEnding(std::string_view path, std::string_view ending)
{
    const auto areAlike = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return path.size() >= ending.size() &&
           std::ranges::equal(path.substr(path.size() - ending.size()), ending, areAlike);
}

std::optional<Format> formatOf(const std::string& path)
{
    if (hasEnding(path, ".csv"))
        return Format::Csv;
    if (hasEnding(path, ".ndjson") || hasEnding(path, ".jsonl"))
        return Format::Ndjson;
    if (hasEnding(path, ".npy"))
        return Format::Npy;
    return std::nullopt;
}

std::unique_ptr<Writer> makeWriter(What what, Format format, const std::string& path)
{
    switch (format) {
    case Format::Csv:
        return std::make_unique<CsvWriter>(what, path);
    case Format::Ndjson:
        return std::make_unique<NdjsonWriter>(what, path);
    case Format::Npy:
        break;
    }
    if (path.empty())
        throw CannotExport{
            "expected -o FILE for NumPy, whose header is written last; csv and ndjson can go to "
            "stdout"};
    if (what == What::Df)
        return std::make_unique<NpySamples>(path);
    return std::make_unique<NpyTraces>(what, path);
}

} // namespace exporting
