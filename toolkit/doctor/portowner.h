// SPDX-License-Identifier: MIT
#pragma once
// Who has a port, as far as the system tells.
#include <cstdint>
#include <string>

namespace doctor {

/// "process 4711 (vk410)" for the process that has this UDP port; "somebody else's process" where the system
/// does not say whose; empty: nobody has it.
[[nodiscard]] std::string udpPortOwner(std::uint16_t port);

} // namespace doctor
