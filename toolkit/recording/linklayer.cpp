// SPDX-License-Identifier: MIT
#include "toolkit/recording/linklayer.h"
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <tins/constants.h>
#include <tins/dot1q.h>
#include <tins/ethernetII.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/sll.h>

namespace recording {
namespace {

// Linux cooked, version 2: libtins does not know it.
constexpr wire::Field<std::uint16_t> cooked2Protocol{0};
constexpr std::size_t cooked2Size = 20;

template <typename Layer>
Frame frameOf(wire::View bytes, std::size_t offset)
{
    return {std::make_unique<Layer>(bytes.data(), static_cast<std::uint32_t>(bytes.size())), offset};
}

Frame rawIp(wire::View packet)
{
    const unsigned version = packet.size() == 0 ? 0U : packet.data()[0] >> 4U;
    if (version == 4)
        return frameOf<Tins::IP>(packet, 0);
    if (version == 6)
        return frameOf<Tins::IPv6>(packet, 0);
    return {};
}

Frame cooked2(wire::View packet)
{
    using Protocol = Tins::Constants::Ethernet;
    if (packet.size() < cooked2Size)
        throw Tins::malformed_packet{};
    const wire::View behind = *packet.sub(cooked2Size, packet.size() - cooked2Size);
    switch (*packet.get(cooked2Protocol)) {
    case Protocol::IP:
        return frameOf<Tins::IP>(behind, cooked2Size);
    case Protocol::IPV6:
        return frameOf<Tins::IPv6>(behind, cooked2Size);
    case Protocol::VLAN:
    case Protocol::QINQ:
        return frameOf<Tins::Dot1Q>(behind, cooked2Size);
    default:
        return {};
    }
}

} // namespace

bool isSupportedLinkType(int linkType)
{
    switch (linkType) {
    case DLT_EN10MB:
    case DLT_LINUX_SLL:
    case DLT_LINUX_SLL2:
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6:
        return true;
    default:
        return false;
    }
}

const char* supportedLinkTypes()
{
    return "packets over Ethernet, Linux cooked (v1, v2) or raw IP";
}

std::string linkTypeName(int linkType)
{
    const char* const name = ::pcap_datalink_val_to_name(linkType);
    return fmt::format("{} ({})", name ? name : "an unknown link type", linkType);
}

Frame dissect(int linkType, wire::View packet)
{
    switch (linkType) {
    case DLT_EN10MB:
        return frameOf<Tins::EthernetII>(packet, 0);
    case DLT_LINUX_SLL:
        return frameOf<Tins::SLL>(packet, 0);
    case DLT_LINUX_SLL2:
        return cooked2(packet);
    default:
        return rawIp(packet);
    }
}

} // namespace recording
