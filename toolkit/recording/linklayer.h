// SPDX-License-Identifier: MIT
#pragma once
// From a captured packet to its IP layer; libtins takes the layers apart.
#include "wire/view.h"
#include <memory>
#include <string>
#include <tins/pdu.h>

namespace recording {

/// Whether packets of this kind (a DLT_ number of libpcap) can be taken apart.
[[nodiscard]] bool isSupportedLinkType(int linkType);

/// "Ethernet, Linux cooked (v1 and v2) or raw IP".
[[nodiscard]] const char* supportedLinkTypes();

/// How libpcap calls a kind of packets: "IEEE802_11 (105)".
[[nodiscard]] std::string linkTypeName(int linkType);

/// The layers of a packet.
struct Frame {
    std::unique_ptr<Tins::PDU> layers; // null: nothing that libtins knows, and not IP
    std::size_t offset = 0;            // of the first layer in the packet
};

/// Errors: Tins::exception_base when a layer does not fit into the packet.
[[nodiscard]] Frame dissect(int linkType, wire::View packet);

} // namespace recording
