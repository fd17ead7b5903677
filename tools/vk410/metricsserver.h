// SPDX-License-Identifier: MIT
#pragma once
// Answers GET /metrics on loopback.
#include "toolkit/http/server.h"
#include <cstdint>
#include <functional>
#include <string>

namespace verbs {

/// Serves one text, made anew for each request.
/// Thread: that of the event loop; a request is answered from memory.
class MetricsServer {
public:
    /// Errors: std::runtime_error when the port is taken. Port 0: a free one.
    MetricsServer(std::uint16_t port, std::function<std::string()> text);

    [[nodiscard]] std::uint16_t port() const { return m_server.port(); }

private:
    http::Server m_server;
};

} // namespace verbs
