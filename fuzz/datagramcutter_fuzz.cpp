// SPDX-License-Identifier: MIT
// Any stream in any pieces: cutting must end, in bounds, and give what a plain walk over the whole stream
// gives.
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "input_bytes.h"
#include "support/chunked_stream.h"
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

constexpr std::uint32_t maxSize = 10'000;

void expect(bool holds)
{
    if (!holds)
        std::abort();
}

struct Expected {
    std::vector<wire::Bytes> datagrams;
    std::optional<std::uint32_t> brokenAt;
};

// By offsets into the whole stream, without pieces.
Expected plainCut(const wire::Bytes& stream)
{
    Expected expected;
    std::size_t at = 0;
    while (stream.size() - at >= 16) {
        const auto byte = [&](std::size_t i) { return std::uint32_t{stream[at + i]}; };
        const std::uint32_t size = byte(12) << 24U | byte(13) << 16U | byte(14) << 8U | byte(15);
        if (size < 16 || size > maxSize) {
            expected.brokenAt = size;
            break;
        }
        if (size > stream.size() - at)
            break;
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        expected.datagrams.emplace_back(begin, begin + size);
        at += size;
    }
    return expected;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    InputBytes input{data, size};
    std::vector<wire::Bytes> pieces;
    wire::Bytes stream;
    while (!input.empty()) {
        pieces.push_back(input.bytes(input.next<std::uint8_t>()));
        stream.insert(stream.end(), pieces.back().begin(), pieces.back().end());
    }
    const Expected expected = plainCut(stream);

    support::ChunkedStream arriving{std::move(pieces)};
    DatagramCutter cutter{[&arriving](char* to, qint64 most) { return qint64{arriving.read(to, most)}; }};
    cutter.setMaxSize(maxSize);
    std::vector<wire::Bytes> cut;
    do {
        const bool mayHaveWhole = cutter.mayHaveWhole(arriving.unread());
        while (const DatagramCutter::Bytes bytes = cutter.next()) {
            expect(mayHaveWhole);
            expect(bytes->capacity() >= bytes->size() + 2);
            cut.emplace_back(bytes->begin(), bytes->end());
        }
        expect(!cutter.mayHaveWhole(0));
    } while (arriving.arrive());
    expect(cut == expected.datagrams);
    expect(cutter.brokenAt() == expected.brokenAt);
    return 0;
}
