// SPDX-License-Identifier: MIT
#pragma once
// Opens a recording, whatever its form.
#include "toolkit/recording/datagramsource.h"
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace recording {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

struct Options {
    std::optional<std::uint16_t> port; // of UDP packets (either end) and of the TCP server; absent: all
};

/// The datagrams of the file at `path`: a raw stream of datagrams, or a pcap or pcapng capture.
/// Shape:  memory does not grow with the file.
/// Errors: CannotOpen; BadFile when the file is none of these.
[[nodiscard]] std::unique_ptr<DatagramSource> openRecording(const std::string& path, const Options& options);

/// The same from an open file that can seek; `name` is what errors call it.
[[nodiscard]] std::unique_ptr<DatagramSource> openRecording(FilePtr file, const std::string& name,
                                                            const Options& options);

} // namespace recording
