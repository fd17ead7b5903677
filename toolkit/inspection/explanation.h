// SPDX-License-Identifier: MIT
#pragma once
// Datagrams byte by byte: what each number is called, what it says, and why something was dropped.
#include "toolkit/inspection/inspection.h"
#include <cstdio>
#include <string_view>
#include <vector>

namespace inspection {

class Explanation : public Sink {
public:
    /// Owner: `out` is borrowed.
    explicit Explanation(std::FILE* out)
        : m_out(out)
    {}

    void datagram(const DatagramInfo& datagram) override;
    void attribute(const AttributeInfo& attribute) override;
    void dropped(const Drop& drop) override;

private:
    void explainHeader(const AttributeHeader& header);
    void explainOptHeader(const AttributeHeader& header);
    void explainData(const AttributeInfo& attribute);
    void explainField(const FieldInfo& field, std::uint32_t count);
    void line(std::uint64_t offset, std::uint64_t size, std::string_view name, std::string_view value);

    std::FILE* m_out;
    std::vector<unsigned char> m_received; // before the reader converts it
};

} // namespace inspection
