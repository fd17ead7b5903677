// SPDX-License-Identifier: MIT
#include "fuzz/datagram_mutator.h"
#include <algorithm>

namespace fuzz {

namespace {

using wire::Bytes;
using wire::View;

struct Attribute {
    std::uint16_t tag = 0;
    std::uint32_t channel = 0;
    std::uint32_t count = 0;
    std::uint32_t selectors = 0;
    Bytes optHeader;
    Bytes data;
};

Bytes copyOf(View bytes, std::size_t begin, std::size_t end)
{
    begin = std::min(begin, bytes.size());
    end = std::clamp(end, begin, bytes.size());
    return {bytes.data() + begin, bytes.data() + end};
}

/// The attribute that begins at `at`, as far as it is there, and moves `at` behind it.
Attribute takeAttribute(View bytes, std::size_t& at)
{
    const View here = *bytes.sub(at, bytes.size() - at);
    Attribute found;
    found.tag = here.get(wire::attribute::tag).value_or(0);
    std::size_t header = 0;
    std::size_t optHeader = 0;
    std::size_t size = 0;
    if (wire::tag::isExtended(found.tag)) {
        found.channel = here.get(wire::extended::channel).value_or(0);
        found.count = here.get(wire::extended::count).value_or(0);
        found.selectors = here.get(wire::extended::selectors).value_or(0);
        header = wire::extended::headerSize;
        optHeader = here.get(wire::extended::optHeaderLength).value_or(0);
        size = std::size_t{here.get(wire::extended::length).value_or(0)} + wire::extended::lengthExcludes;
    } else {
        found.channel = here.get(wire::attribute::channel).value_or(0);
        found.count = here.get(wire::attribute::count).value_or(0);
        found.selectors = here.get(wire::attribute::selectors).value_or(0);
        header = wire::attribute::headerSize;
        optHeader = here.get(wire::attribute::optHeaderLength).value_or(0);
        size = std::size_t{here.get(wire::attribute::length).value_or(0)} + wire::attribute::lengthExcludes;
    }
    found.optHeader = copyOf(here, header, header + optHeader);
    found.data = copyOf(here, header + optHeader, std::max(size, header));
    at += std::max(size, header);
    return found;
}

std::vector<Attribute> attributesOf(const Bytes& datagram)
{
    const View bytes{datagram};
    std::vector<Attribute> found;
    std::size_t at = wire::datagram::headerSize;
    while (at < bytes.size() && found.size() < 64)
        found.push_back(takeAttribute(bytes, at));
    return found;
}

class Mutation {
public:
    Mutation(std::uint32_t seed, std::size_t maxSize, const MutateBytes& mutateBytes)
        : m_random(seed)
        , m_maxSize(maxSize)
        , m_mutateBytes(mutateBytes)
    {}

    void change(std::vector<Attribute>& attributes)
    {
        if (attributes.empty() || oneOf(6) == 0) {
            attributes.insert(attributes.begin() + oneOf(static_cast<unsigned>(attributes.size()) + 1),
                              anyAttribute());
            return;
        }
        const auto chosen = attributes.begin() + oneOf(static_cast<unsigned>(attributes.size()));
        switch (oneOf(9)) {
        case 0:
            attributes.erase(chosen);
            return;
        case 1: {
            const Attribute again = *chosen;
            attributes.insert(chosen, again);
            return;
        }
        case 2:
            return std::iter_swap(chosen, attributes.begin());
        case 3:
            chosen->tag = anyTag();
            return;
        case 4:
            chosen->selectors ^= 1U << oneOf(32);
            return fit(*chosen);
        case 5:
            chosen->count = anyCount();
            return fit(*chosen);
        case 6:
            chosen->optHeader.resize(anyOptHeaderSize());
            return;
        case 7:
            chosen->optHeader = m_mutateBytes(chosen->optHeader, 255);
            return;
        default:
            chosen->data = m_mutateBytes(chosen->data, m_maxSize);
        }
    }

    Bytes assembled(const Bytes& before, const std::vector<Attribute>& attributes)
    {
        wire::DatagramWriter writer;
        for (const Attribute& one : attributes) {
            writer.attribute(one.tag, one.channel).selectors(one.selectors).count(one.count);
            writer.optHeader(one.optHeader).bytes(one.data);
            if (oneOf(16) == 0)
                writer.claimLength(static_cast<std::uint32_t>(one.data.size() + oneOf(64)));
        }
        Bytes bytes = writer.build();
        // Magic and sequence number stay what they were.
        if (before.size() >= wire::datagram::totalLength.offset)
            std::copy_n(before.begin(), wire::datagram::totalLength.offset, bytes.begin());
        bytes.resize(std::min(bytes.size(), m_maxSize));
        return bytes;
    }

    unsigned oneOf(unsigned count) { return static_cast<unsigned>(m_random() % count); }

private:
    Attribute anyAttribute()
    {
        Attribute made;
        made.tag = anyTag();
        made.channel = oneOf(4) == 0 ? oneOf(256) : 0;
        made.count = anyCount();
        for (unsigned fields = oneOf(4); fields > 0; --fields)
            made.selectors |= 1U << oneOf(22);
        made.selectors |= oneOf(3) == 0 ? wire::selector::hostOrderFlag : 0U;
        made.optHeader.resize(anyOptHeaderSize());
        fit(made);
        for (unsigned char& byte : made.data)
            byte = static_cast<unsigned char>(m_random());
        return made;
    }

    // Exactly what the selectors ask for, now and then an item less or more.
    void fit(Attribute& attribute)
    {
        std::size_t perItem = wire::selector::bytesPerItem(attribute.selectors);
        if (attribute.tag == wire::tag::rawBytes || attribute.tag == wire::tag::words)
            perItem = 4;
        const std::size_t wanted = std::size_t{attribute.count & 0xFFFFU} * perItem;
        const std::size_t off = oneOf(12) == 0 ? oneOf(5) : 2;
        attribute.data.resize(std::min(wanted + off < 2 ? 0 : wanted + off - 2, m_maxSize));
    }

    std::uint16_t anyTag() { return wire::tag::known[oneOf(static_cast<unsigned>(wire::tag::known.size()))]; }
    std::uint32_t anyCount()
    {
        static constexpr std::array<std::uint32_t, 8> special{0, 1, 2, 24, 25, 26, 0x10000, 0xFFFF};
        return oneOf(3) == 0 ? special[oneOf(special.size())] : oneOf(40);
    }
    std::size_t anyOptHeaderSize()
    {
        static constexpr std::array<std::size_t, 8> special{0, 0, 1, 37, 50, 73, 74, 255};
        return oneOf(4) == 0 ? oneOf(96) : special[oneOf(special.size())];
    }

    std::mt19937 m_random;
    std::size_t m_maxSize;
    const MutateBytes& m_mutateBytes;
};

} // namespace

wire::Bytes mutateDatagram(const wire::Bytes& datagram, std::size_t maxSize, std::uint32_t seed,
                           const MutateBytes& mutateBytes)
{
    Mutation mutation{seed, maxSize, mutateBytes};
    // Headers and lengths want to be spoilt, too.
    if (mutation.oneOf(5) == 0)
        return mutateBytes(datagram, maxSize);
    std::vector<Attribute> attributes = attributesOf(datagram);
    for (unsigned changes = 1 + mutation.oneOf(3); changes > 0; --changes)
        mutation.change(attributes);
    return mutation.assembled(datagram, attributes);
}

} // namespace fuzz
