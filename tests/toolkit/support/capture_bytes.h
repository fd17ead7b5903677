// SPDX-License-Identifier: MIT
#pragma once
// Captures byte by byte, written without the library that reads them.
#include "wire/datagramwriter.h"
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace support {

using wire::Bytes;

/// libpcap's numbers for files.
namespace linktype {
inline constexpr std::uint32_t ethernet = 1;
inline constexpr std::uint32_t raw = 101;
inline constexpr std::uint32_t wlan = 105;
inline constexpr std::uint32_t cooked = 113;
inline constexpr std::uint32_t ipv4 = 228;
inline constexpr std::uint32_t ipv6 = 229;
inline constexpr std::uint32_t cooked2 = 276;
} // namespace linktype

struct CapturedPacket {
    Bytes bytes;
    std::int64_t receivedNs = 0;
    std::optional<std::uint32_t> originalSize; // where the capture kept less than there was
};

enum class Form { PcapMicroseconds, PcapNanoseconds, PcapNg, PcapNgSimple };

/// A whole capture file.
[[nodiscard]] Bytes capture(const std::vector<CapturedPacket>& packets, std::uint32_t linkType,
                            Form form = Form::PcapNanoseconds,
                            wire::ByteOrder order = wire::ByteOrder::Little);

/// Where a packet goes; addresses of either version.
struct Route {
    std::string from = "192.0.2.1";
    std::string to = "192.0.2.2";
    std::uint16_t fromPort = 5555;
    std::uint16_t toPort = 4444;
};

/// An IP packet, version by the route's addresses.
[[nodiscard]] Bytes udpPacket(const Bytes& payload, const Route& route = {});

struct TcpPiece {
    std::uint32_t sequence = 0;
    Bytes payload;
    bool syn = false;
    bool fin = false;
    bool rst = false;
};
[[nodiscard]] Bytes tcpPacket(const TcpPiece& piece, const Route& route = {});

/// The fragments of an IP packet, each with `size` payload bytes (a multiple of 8) at most.
[[nodiscard]] std::vector<Bytes> fragments(const Bytes& packet, std::size_t size, std::uint32_t id = 77);

/// Link layers around an IP packet.
[[nodiscard]] Bytes ethernet(const Bytes& ip);
[[nodiscard]] Bytes vlan(const Bytes& ip);
[[nodiscard]] Bytes doubleVlan(const Bytes& ip);
[[nodiscard]] Bytes cooked(const Bytes& ip);
[[nodiscard]] Bytes cooked2(const Bytes& ip);
[[nodiscard]] Bytes cooked2Vlan(const Bytes& ip);

/// Packets one millisecond apart, from 1,700,000,000 s on.
[[nodiscard]] std::vector<CapturedPacket> timed(const std::vector<Bytes>& packets);
inline constexpr std::int64_t firstNs = 1'700'000'000'000'000'000;
inline constexpr std::int64_t apartNs = 1'000'000;

/// A valid datagram of 16 + 12 + 2 x `count` bytes: tag 501, items counting up from `sequence`.
[[nodiscard]] Bytes traceDatagram(std::uint16_t sequence, std::uint16_t count = 4);

[[nodiscard]] Bytes joined(const std::vector<Bytes>& parts);

} // namespace support
