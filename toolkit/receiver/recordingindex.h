// SPDX-License-Identifier: MIT
#pragma once
// How long a recording is, and where datagrams are missing in it.
#include <QtGlobal>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

/// A place where sequence numbers are missing.
struct RecordingLoss {
    double seconds = 0; // since the recording's first datagram
    quint64 datagrams = 0;
    bool operator==(const RecordingLoss&) const = default;
};

struct RecordingIndex {
    /// More places than these are put together with their neighbours.
    static constexpr std::size_t mostLosses = 2'000;

    std::int64_t startNs = 0; // of the first datagram, since 1970
    double durationSeconds = 0;
    std::vector<RecordingLoss> losses;
};

/// Reads the whole recording, or less when `stop` says so meanwhile. What cannot be read ends it.
/// Thread: any; it takes as long as reading the file.
[[nodiscard]] RecordingIndex indexRecording(const std::string& path, const std::atomic<bool>& stop);

} // namespace receiver
