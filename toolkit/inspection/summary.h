// SPDX-License-Identifier: MIT
#pragma once
// Findings as a table for people: what kinds of traces there are, how many, how fast, and what was dropped.
#include "toolkit/inspection/inspection.h"
#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace inspection {

/// Which datagrams are missing between those that came, by one sender's sequence numbers.
class SequenceWatch {
public:
    /// Result: datagrams missing in front of this one; 0 also for copies and stragglers.
    std::uint32_t take(std::uint16_t sequence);

    [[nodiscard]] std::uint64_t gaps() const { return m_gaps; }
    [[nodiscard]] std::uint64_t missing() const { return m_missing; }
    [[nodiscard]] std::uint64_t backwards() const { return m_backwards; }

private:
    std::optional<std::uint16_t> m_last;
    std::uint64_t m_gaps = 0;
    std::uint64_t m_missing = 0;
    std::uint64_t m_backwards = 0; // copies and stragglers
};

/// Shape: memory is bounded: so many rows, origins and errors are kept, further ones counted.
class Summary : public Sink {
public:
    /// `name`: of the source. Owner: `out` is borrowed.
    Summary(std::FILE* out, std::string name);

    void datagram(const DatagramInfo& datagram) override;
    void attribute(const AttributeInfo& attribute) override;
    void dropped(const Drop& drop) override;
    void finish() override;

private:
    struct Row {
        bool known = true;
        std::uint64_t attributes = 0;
        std::uint64_t bytes = 0;
        std::uint32_t minCount = UINT32_MAX;
        std::uint32_t maxCount = 0;
        std::optional<std::uint32_t> minSpanHz;
        std::optional<std::uint32_t> maxSpanHz;
        std::set<std::uint32_t> selectors;
        std::uint64_t gaps = 0;
        std::optional<std::int64_t> first;
        std::optional<std::int64_t> last;
    };
    struct Stream {
        std::uint64_t datagrams = 0;
        std::uint64_t invalid = 0;
        SequenceWatch sequence;
    };
    using Cells = std::array<std::string, 10>;

    void listError(std::uint64_t datagram, const std::string& reason, const std::string& detail);
    void printHead() const;
    void printRows() const;
    void printErrors() const;
    [[nodiscard]] Cells
    cellsOf(const std::pair<const std::pair<std::uint16_t, std::uint32_t>, Row>& row) const;

    std::FILE* m_out;
    std::string m_name;
    std::map<std::pair<std::uint16_t, std::uint32_t>, Row> m_rows; // by tag and channel
    std::uint64_t m_attributesWithoutRow = 0;
    std::map<recording::Origin, Stream> m_streams;
    std::uint64_t m_datagramsWithoutStream = 0;
    std::vector<std::string> m_errors;
    std::map<std::string, std::uint64_t> m_errorsByReason;
    std::uint64_t m_errorCount = 0;
    std::uint64_t m_datagrams = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_position = 0; // of the datagram at hand
    bool m_behindGap = false;
    std::optional<std::int64_t> m_now; // when the datagram at hand arrived
    std::optional<std::int64_t> m_first;
    std::optional<std::int64_t> m_last;
};

} // namespace inspection
