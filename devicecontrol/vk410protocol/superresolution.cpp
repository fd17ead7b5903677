// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/superresolution.h"
#include "devicecontrol/vk410protocol/byteorder.h"
#include "wire/layout.h"
#include "wire/selectors.h"
#include <algorithm>

namespace {

// Takes arrays from the front of what is left of an attribute.
class Arrays {
public:
    Arrays(const DataPointers& data)
        : m_next(data.dataEnd)
        , m_isHostOrder((data.extHeader->SelectorFlags() & wire::selector::hostOrderFlag) != 0)
    {
        // In 32 bits, as the reader has it, who made sure that this much lies inside the datagram. Fields may
        // run beyond the attribute: nothing is left then.
        const quint32 size = data.extHeader->Length() + wire::extended::lengthExcludes;
        const auto used = m_next - reinterpret_cast<const unsigned char*>(data.extHeader);
        if (used >= 0 && used <= qint64{size})
            m_left = size - static_cast<std::size_t>(used);
    }

    float* floats(std::size_t count)
    {
        auto* const items = take(count, sizeof(float));
        if (items && !m_isHostOrder)
            byteorder::swap32(items, count); // as bits: a signalling number stays what it is
        return reinterpret_cast<float*>(items);
    }

    short* shorts(std::size_t count)
    {
        auto* const items = take(count, sizeof(short));
        if (items && !m_isHostOrder)
            byteorder::swap16(items, count);
        return reinterpret_cast<short*>(items);
    }

private:
    unsigned char* take(std::size_t count, std::size_t width)
    {
        if (count * width > m_left) { // below 65,536 x 127 x 4
            m_left = 0;
            m_isCut = true;
        }
        if (m_isCut)
            return nullptr;
        unsigned char* const items = m_next;
        m_next += count * width;
        m_left -= count * width;
        return items;
    }

    unsigned char* m_next;
    std::size_t m_left = 0;
    bool m_isHostOrder;
    bool m_isCut = false;
};

} // namespace

SuperResolutionArrays SuperResolutionArrays::find(const DataPointers& data, const DfOptHeader& header)
{
    SuperResolutionArrays found;
    found.count = std::max<int>(header.superResolutionCount, 0);
    found.eigenValueCount = std::max<int>(header.eigenValueCount, 0);
    if (found.count == 0 || !data.dataEnd)
        return found;
    const std::size_t channels = static_cast<quint16>(data.extHeader->Count());
    const std::size_t waves = channels * static_cast<std::size_t>(found.count);
    const auto has = [&header](unsigned bit) { return (header.superResolutionFields >> bit & 1) != 0; };
    Arrays arrays{data};
    if (has(0))
        found.eigenValues = arrays.floats(channels * static_cast<std::size_t>(found.eigenValueCount));
    if (has(1))
        found.level = arrays.shorts(waves);
    if (has(2))
        found.azimuth = arrays.shorts(waves);
    if (has(3))
        found.quality = arrays.shorts(waves);
    if (has(4))
        found.fieldStrength = arrays.shorts(waves);
    if (has(5))
        found.elevation = arrays.shorts(waves);
    return found; // the array of bit 6 is the last one; nobody uses it
}
