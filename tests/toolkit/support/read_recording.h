// SPDX-License-Identifier: MIT
#pragma once
// Reads a recording that lies in memory, and keeps all that comes out.
#include "toolkit/recording/recording.h"
#include "wire/datagramwriter.h"
#include <string>
#include <vector>

namespace support {

struct Read {
    std::vector<recording::Datagram> datagrams;
    std::vector<std::string>
        problems; // losses that reading survived, and "END " before the one that ended it
    recording::Ignored ignored;

    /// The bytes of the datagrams.
    [[nodiscard]] std::vector<wire::Bytes> bytes() const;
    [[nodiscard]] std::vector<std::uint64_t> positions() const;
    [[nodiscard]] std::vector<std::optional<std::int64_t>> times() const;
    [[nodiscard]] std::vector<std::string> origins() const;
};

[[nodiscard]] Read readRecording(const wire::Bytes& file, const recording::Options& options = {});

/// A file that reads from `bytes`, which outlive it.
[[nodiscard]] recording::FilePtr fileOf(const wire::Bytes& bytes);

} // namespace support
