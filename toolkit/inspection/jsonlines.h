// SPDX-License-Identifier: MIT
#pragma once
// Findings as JSON, one object a line; docs/inspect-json.md describes the format.
#include "toolkit/inspection/inspection.h"
#include <cstdio>

namespace inspection {

class JsonLines : public Sink {
public:
    /// Owner: `out` is borrowed.
    explicit JsonLines(std::FILE* out)
        : m_out(out)
    {}

    void datagram(const DatagramInfo& datagram) override;
    void attribute(const AttributeInfo& attribute) override;
    void dropped(const Drop& drop) override;

private:
    void write();

    std::FILE* m_out;
    std::string m_line;
};

} // namespace inspection
