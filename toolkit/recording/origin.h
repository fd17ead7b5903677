// SPDX-License-Identifier: MIT
#pragma once
// Who sent a datagram, and to whom.
#include <array>
#include <cstdint>
#include <string>
#include <tuple>

namespace recording {

struct Endpoint {
    std::array<std::uint8_t, 16> address{}; // IPv4: the first four bytes
    bool isV6 = false;
    std::uint16_t port = 0;

    friend bool operator==(const Endpoint&, const Endpoint&) = default;
    friend bool operator<(const Endpoint& a, const Endpoint& b)
    {
        return std::tie(a.address, a.isV6, a.port) < std::tie(b.address, b.isV6, b.port);
    }
};

enum class Transport : std::uint8_t { File, Udp, Tcp };

/// One sender's stream of datagrams: sequence numbers count within it.
struct Origin {
    Transport transport = Transport::File; // File: a raw stream, which does not say who sent it
    Endpoint from;
    Endpoint to;

    friend bool operator==(const Origin&, const Origin&) = default;
    friend bool operator<(const Origin& a, const Origin& b)
    {
        return std::tie(a.transport, a.from, a.to) < std::tie(b.transport, b.from, b.to);
    }
};

/// "192.0.2.1:5555" or "[2001:db8::1]:5555".
[[nodiscard]] std::string text(const Endpoint& endpoint);

/// "udp 192.0.2.1:5555 > 192.0.2.2:4444", or "file".
[[nodiscard]] std::string text(const Origin& origin);

} // namespace recording
