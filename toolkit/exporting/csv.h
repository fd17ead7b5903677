// SPDX-License-Identifier: MIT
#pragma once
// Tables as comma-separated values.
#include "toolkit/exporting/writer.h"

namespace exporting {

/// One row a trace, with its levels in the last columns; of direction finding one row a sample. What was not
/// measured is an empty cell.
class CsvWriter : public Writer {
public:
    CsvWriter(What what, const std::string& path);

    void write(const Trace& trace) override;
    void write(const DfBlock& block) override;
    void update() override { m_output.flush(); }
    void finish() override { m_output.flush(); }
    [[nodiscard]] std::vector<std::string> files() const override;

private:
    void addWhen(const When& when);
    void addCell(const std::optional<float>& number);
    void send();

    const Units& m_units;
    Output m_output;
    std::string m_line;
};

} // namespace exporting
