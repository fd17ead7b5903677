// SPDX-License-Identifier: MIT
#pragma once
// Zero-span traces for tests.
#include "support/delivered.h"
#include "wire/datagramwriter.h"
#include <cstdint>
#include <vector>

namespace support {

/// One zero-span trace; what a test does not set is plausible.
struct ZeroSpanTrace {
    std::int64_t xStart = 1'000;
    std::int64_t xSpan = 400;
    std::int64_t stamp = 0;
    std::vector<short> levels{1, 2, 3, 4, 5};
    std::vector<short> second{};
    std::size_t optHeaderSize = wire::zerospan::size;
    bool littleEndian = false;

    [[nodiscard]] wire::Bytes bytes() const
    {
        namespace layout = wire::zerospan;
        wire::OptHeaderWriter header{optHeaderSize,
                                     littleEndian ? wire::ByteOrder::Little : wire::ByteOrder::Big};
        header.set(layout::xStart, xStart).set(layout::xSpan, xSpan).set(layout::timeStamp, stamp);
        const std::uint32_t fields = (levels.empty() ? 0U : 1U) | (second.empty() ? 0U : 0x800000U);
        wire::DatagramWriter writer;
        writer.attribute(1801)
            .selectors(fields | (littleEndian ? wire::selector::hostOrderFlag : 0U))
            .count(static_cast<std::uint32_t>(std::max(levels.size(), second.size())))
            .optHeader(header.bytes());
        if (!levels.empty())
            writer.items(std::span<const short>(levels));
        if (!second.empty())
            writer.items(std::span<const short>(second));
        return writer.build();
    }
};

} // namespace support
