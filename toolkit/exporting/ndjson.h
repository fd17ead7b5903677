// SPDX-License-Identifier: MIT
#pragma once
// Tables as JSON, one object a line.
#include "toolkit/exporting/writer.h"

namespace exporting {

/// One object a trace, or a block of direction finding. What was not measured is null.
class NdjsonWriter : public Writer {
public:
    NdjsonWriter(What what, const std::string& path);

    void write(const Trace& trace) override;
    void write(const DfBlock& block) override;
    void update() override { m_output.flush(); }
    void finish() override { m_output.flush(); }
    [[nodiscard]] std::vector<std::string> files() const override;

private:
    void begin(const When& when);
    void addTime(std::string_view name, std::int64_t ns); // 0 and less: none
    void send();

    const Units& m_units;
    Output m_output;
    std::string m_line;
};

} // namespace exporting
