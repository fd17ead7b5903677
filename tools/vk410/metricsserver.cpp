// SPDX-License-Identifier: MIT
#include "tools/vk410/metricsserver.h"
#include <fmt/format.h>
#include <stdexcept>

namespace verbs {

MetricsServer::MetricsServer(std::uint16_t port, std::function<std::string()> text)
    : m_server([text = std::move(text)](const http::Request& request) {
        if (request.path != "/metrics")
            return http::Response{.status = 404, .body = "only GET /metrics is here\n"};
        return http::Response{.contentType = "text/plain; version=0.0.4; charset=utf-8",
                              .body = QByteArray::fromStdString(text())};
    })
{
    if (!m_server.listen(QHostAddress(QHostAddress::LocalHost), port))
        throw std::runtime_error{fmt::format(
            "metrics port {}: expected a free port, found: {}; 'ss -tlpn' shows who has it, 0 takes a "
            "free one",
            port, m_server.errorText())};
}

} // namespace verbs
