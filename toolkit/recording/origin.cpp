// SPDX-License-Identifier: MIT
#include "toolkit/recording/origin.h"
#include <arpa/inet.h>
#include <fmt/format.h>

namespace recording {

std::string text(const Endpoint& endpoint)
{
    std::array<char, INET6_ADDRSTRLEN> address{};
    inet_ntop(endpoint.isV6 ? AF_INET6 : AF_INET, endpoint.address.data(), address.data(), address.size());
    if (endpoint.isV6)
        return fmt::format("[{}]:{}", address.data(), endpoint.port);
    return fmt::format("{}:{}", address.data(), endpoint.port);
}

std::string text(const Origin& origin)
{
    if (origin.transport == Transport::File)
        return "file";
    const char* const name = origin.transport == Transport::Udp ? "udp" : "tcp";
    return fmt::format("{} {} > {}", name, text(origin.from), text(origin.to));
}

} // namespace recording
