// SPDX-License-Identifier: MIT
#pragma once
// What a user writes for a source of mass data, read.
#include <QHostAddress>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace receiver {

/// The text is no source; it says what was expected and what came.
struct BadSource : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// `udp://[group@][address]:port`, `tcp://host:port`, `sim:scene`, or the path of a recording.
struct SourceSpec {
    enum class Kind : std::uint8_t { Udp, Tcp, Simulation, Recording };
    Kind kind = Kind::Recording;
    QHostAddress group;   // UDP: multicast group; null: none
    QHostAddress address; // UDP: of the interface to listen on; null: any
    std::string host;     // TCP
    std::uint16_t port = 0;
    std::string path; // recording, or scene
};

/// Errors: BadSource.
[[nodiscard]] SourceSpec parseSource(const std::string& text);

/// "address:port" of a place to listen on, as `--mirror` takes it; the address may be missing: loopback. With
/// `lowestPort` 0, the port may be 0: a free one.
/// Errors: BadSource.
struct ListenSpec {
    QHostAddress address;
    std::uint16_t port;
};
[[nodiscard]] ListenSpec parseListen(const std::string& text, std::uint16_t lowestPort = 1);

} // namespace receiver
