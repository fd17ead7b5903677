// SPDX-License-Identifier: MIT
#pragma once
// Tables as NumPy arrays: files that numpy.load reads, also mapped into memory.
#include "toolkit/exporting/writer.h"

namespace exporting {

/// One array whose number of rows is known at its end. While it grows, its header is brought up to date now
/// and then, so that it can be read, and a process that is killed leaves a file that loads.
class NpyFile {
public:
    /// `type`: NumPy's description of an item, for example "'<f4'". `columns`: of a row; 0: the array has one
    /// dimension. `rowBytes`: of a row.
    NpyFile(std::string path, std::string type, std::size_t columns, std::size_t rowBytes);

    /// Appends whole rows.
    void append(std::string_view rows);

    /// Tells of all rows so far in the header.
    void bringUpToDate();

    [[nodiscard]] const std::string& path() const { return m_output.path(); }

private:
    [[nodiscard]] std::string header() const;

    Output m_output;
    std::string m_type;
    std::size_t m_columns;
    std::size_t m_rowBytes;
    std::size_t m_rows = 0;
    std::size_t m_rowsInHeader = 0;
};

/// Traces: a.npy, float32 of shape (traces, channels), NaN where nothing was measured; a.time.npy, the time
/// of each trace; a.grid.npy, float64 of shape (channels,). Another grid begins the next three files:
/// a-0001.npy, ...
/// Errors: also where such parts of an earlier export are there, which would be taken for those of this one.
class NpyTraces : public Writer {
public:
    /// More grids than this are no pictures any more; the text forms take them.
    static constexpr std::size_t mostGrids = 1'000;

    NpyTraces(What what, std::string path);

    void write(const Trace& trace) override;
    void write(const DfBlock& block) override;
    void update() override;
    void finish() override { update(); }
    [[nodiscard]] std::vector<std::string> files() const override { return m_files; }

private:
    struct Part {
        Part(const std::string& path, const std::string& timesPath, const Trace& trace);

        NpyFile levels;
        NpyFile times;
        double start;
        double step;
        std::size_t count;
    };
    [[nodiscard]] bool fits(const Trace& trace) const;
    void begin(const Trace& trace);

    const Units& m_units;
    std::string m_path;
    std::size_t m_parts = 0;
    std::vector<std::string> m_files;
    std::unique_ptr<Part> m_part;
    std::string m_row;
};

/// Samples of direction finding: one structured array of shape (samples,).
/// Errors: also where companions or parts of an earlier export are there, which this one does not have.
class NpySamples : public Writer {
public:
    explicit NpySamples(const std::string& path);

    void write(const Trace& trace) override;
    void write(const DfBlock& block) override;
    void update() override { m_file.bringUpToDate(); }
    void finish() override { update(); }
    [[nodiscard]] std::vector<std::string> files() const override { return {m_file.path()}; }

private:
    NpyFile m_file;
    std::string m_rows;
};

} // namespace exporting
