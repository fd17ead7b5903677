// SPDX-License-Identifier: MIT
#pragma once
// Names of files that belong together.
#include <cstddef>
#include <string>

namespace recording {

/// "a.pcap", "a-0001.pcap", "a-0002.pcap", ...
[[nodiscard]] std::string numberedPath(const std::string& path, std::size_t number);

} // namespace recording
