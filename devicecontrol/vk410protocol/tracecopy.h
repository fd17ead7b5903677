// SPDX-License-Identifier: MIT
#pragma once
// Level traces in a datagram, as the processors of normal attributes take them.
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <vector>

namespace tracecopy {

/// Whether the attribute's count is the number of 16-bit items of its fields. It is not for extended
/// attributes and for tag 401, to which a host may have registered a processor of levels by mistake.
[[nodiscard]] inline bool isLevelTrace(const DataPointers& data, const UdpDatagramAttribute& attribute)
{
    return !data.extHeader && attribute.Tag() != TAG_401;
}

/// A copy of the first `count` items of a field, as plain memory; empty when there is no field.
[[nodiscard]] inline std::vector<short> levels(const short* items, int count)
{
    if (!items)
        return {};
    // A single item would be copied as a number, and items need not be aligned to one.
    if (count == 1)
        return {numbers::item16(items, 0)};
    return {items, items + count};
}

} // namespace tracecopy
