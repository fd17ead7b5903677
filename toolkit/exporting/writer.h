// SPDX-License-Identifier: MIT
#pragma once
// Tables of traces and direction-finding samples, whatever their form; docs/export.md describes the forms.
#include "toolkit/exporting/output.h"
#include "values/dfspectrumsample.h"
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace exporting {

enum class What : std::uint8_t { Levels, ZeroSpan, SecondZeroSpan, Df };
enum class Format : std::uint8_t { Csv, Ndjson, Npy };

/// What the numbers of a trace are.
struct Units {
    std::string_view type;  // "levels"
    std::string_view axis;  // "hz" or "s": what start and step are counted in
    std::string_view level; // "level_dbuv"
    int decimals;           // of a level: raw numbers are that many powers of ten larger
};
[[nodiscard]] const Units& unitsOf(What what);

/// When something was measured, and what is missing in front of it.
struct When {
    std::int64_t receivedNs = 0;  // since 1970, UTC
    std::int64_t deviceNs = 0;    // the receiver's stamp; 0: none
    std::uint64_t lostBefore = 0; // datagrams since the row before
};

/// One trace; channel k lies at start + k x step.
struct Trace {
    When when;
    double start = 0;
    double step = 0;
    std::span<const short> levels; // raw; values::noLevel: not measured
};

/// One block of direction-finding samples.
struct DfBlock {
    When when;
    unsigned int firstChannel = 0;       // id on the map's grid
    std::span<const double> frequencies; // Hz, one a sample
    std::span<const values::DFSpectrumSample> samples;
};

/// Numbers of a sample in degrees, percent and dB; absent: not measured.
struct Sample {
    explicit Sample(const values::DFSpectrumSample& sample);

    std::string_view validity; // "valid", "blanked", "unusable"
    std::optional<float> azimuthDeg;
    std::optional<float> elevationDeg;
    std::optional<float> qualityPercent;
    std::optional<float> levelDbuv;
    std::optional<float> shortTimeLevelDbuv;
    std::optional<float> fieldStrengthDbuvPerM;
};

/// Takes rows one by one; memory does not grow with them.
/// Errors: CannotExport from every operation.
class Writer {
public:
    Writer() = default;
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    virtual ~Writer() = default;

    virtual void write(const Trace& trace) = 0;
    virtual void write(const DfBlock& block) = 0;

    /// Brings the files up to date while they grow, so that others can read what is there so far.
    virtual void update() = 0;

    /// After the last row: everything is in the files.
    virtual void finish() = 0;

    /// Files so far, in order; empty where the rows go to stdout.
    [[nodiscard]] virtual std::vector<std::string> files() const = 0;
};

/// Whether `path` ends so, in small letters or capitals.
[[nodiscard]] bool hasEnding(std::string_view path, std::string_view ending);

/// The format that the ending of `path` stands for.
[[nodiscard]] std::optional<Format> formatOf(const std::string& path);

/// `path` empty: stdout, which NumPy files cannot go to.
[[nodiscard]] std::unique_ptr<Writer> makeWriter(What what, Format format, const std::string& path);

} // namespace exporting
