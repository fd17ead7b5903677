// SPDX-License-Identifier: MIT
#pragma once
// Scripts in which several programs talk over real sockets, as a user runs them in several terminals.
#include "tools/vk410/run_program.h"
#include <QTcpServer>
#include <QUdpSocket>
#include <gtest/gtest.h>
#include <string>

namespace support {

/// Each test has a folder and a port of its own.
class LiveFixture : public testing::Test {
protected:
    /// A port of loopback that nobody has, for UDP and TCP.
    static std::string freePort()
    {
        for (;;) {
            QTcpServer tcp;
            tcp.listen(QHostAddress::LocalHost);
            QUdpSocket udp;
            if (udp.bind(QHostAddress(QHostAddress::LocalHost), tcp.serverPort()))
                return std::to_string(tcp.serverPort());
        }
    }

    /// Runs `command` with $PORT, $SAMPLES, and a helper that waits for a text in a file.
    Ran script(const std::string& command)
    {
        return run(
            "PORT=" + port + "; SAMPLES=" + VK410_DOCS +
                "/samples; until_says() { for i in $(seq 200); do grep -q \"$1\" \"$2\" 2>/dev/null && "
                "return; sleep 0.05; done; echo \"never said $1: $(cat \"$2\")\" >&2; }; " +
                command,
            folder.path());
    }

    TemporaryFolder folder;
    std::string port = freePort();
};

/// The lines behind "Examples:" in a help text.
inline std::vector<std::string> examplesIn(const std::string& help)
{
    const std::size_t at = help.find("Examples:\n");
    return at == std::string::npos ? std::vector<std::string>{} : linesOf(help.substr(at + 10));
}

} // namespace support
