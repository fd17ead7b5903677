// SPDX-License-Identifier: MIT
#include "toolkit/simulation/faults.h"
#include <algorithm>
#include <array>

namespace simulation {

namespace {

constexpr std::array corruptions{FaultKind::CorruptMagic, FaultKind::CorruptSelector, FaultKind::CorruptTag};

// The header of a datagram's only attribute, in the form that its tag has.
struct Header {
    unsigned char* at;
    bool isExtended;

    template <std::integral N, std::integral E>
    [[nodiscard]] std::uint32_t get(wire::Field<N> normal, wire::Field<E> extended) const
    {
        return isExtended ? wire::load<E>(at + extended.offset, wire::ByteOrder::Big)
                          : wire::load<N>(at + normal.offset, wire::ByteOrder::Big);
    }
};

template <std::integral T>
void put(unsigned char* header, wire::Field<T> field, std::uint64_t value)
{
    wire::store(header + field.offset, static_cast<T>(value), wire::ByteOrder::Big);
}

Header headerOf(wire::Bytes& datagram)
{
    unsigned char* const at = datagram.data() + wire::datagram::headerSize;
    const auto tag = wire::load<std::uint16_t>(at, wire::ByteOrder::Big);
    return {at, wire::tag::isExtended(tag)};
}

void corruptMagic(wire::Bytes& datagram, Random& random)
{
    std::uint32_t magic = 0;
    do {
        magic = static_cast<std::uint32_t>(random.next());
    } while (wire::datagram::isMagic(magic));
    wire::store(datagram.data() + wire::datagram::magic.offset, magic, wire::ByteOrder::Little);
}

void corruptSelector(wire::Bytes& datagram, Random& random)
{
    // Bits 22 and 24 to 27 name no field.
    constexpr std::array<unsigned, 5> unknownBits{22, 24, 25, 26, 27};
    const Header header = headerOf(datagram);
    const std::uint32_t selectors = header.get(wire::attribute::selectors, wire::extended::selectors) |
                                    1U << unknownBits[random.below(unknownBits.size())];
    if (header.isExtended)
        put(header.at, wire::extended::selectors, selectors);
    else
        put(header.at, wire::attribute::selectors, selectors);
}

void corruptTag(wire::Bytes& datagram, Random& random)
{
    const Header header = headerOf(datagram);
    std::uint16_t tag = 0;
    do {
        tag = static_cast<std::uint16_t>(random.next());
    } while (wire::tag::isKnown(tag));
    put(header.at, wire::attribute::tag, tag);
    // A reader takes an unknown attribute for one of the normal form: its length must cover the whole of it,
    // or the bytes behind would be met as attributes too.
    const std::size_t size = datagram.size() - wire::datagram::headerSize;
    if (header.isExtended)
        put(header.at, wire::attribute::length,
            std::min<std::size_t>(size - wire::attribute::lengthExcludes, 0xFFFF));
}

void truncate(wire::Bytes& datagram, Random& random)
{
    const Header header = headerOf(datagram);
    const std::uint32_t flags = header.get(wire::attribute::selectors, wire::extended::selectors);
    const std::size_t count = header.get(wire::attribute::count, wire::extended::count);
    const std::size_t optHeader =
        header.get(wire::attribute::optHeaderLength, wire::extended::optHeaderLength);
    const std::size_t headerSize =
        header.isExtended ? wire::extended::headerSize : wire::attribute::headerSize;
    const std::size_t fieldsEnd =
        wire::datagram::headerSize + headerSize + optHeader + count * wire::selector::bytesPerItem(flags);
    const auto lastBit = static_cast<unsigned>(std::bit_width(flags & wire::selector::walked)) - 1;
    const std::size_t size = fieldsEnd - 1 - random.below(count * wire::itemSize.at(lastBit));
    datagram.resize(size);
    // A stream is cut into datagrams by this number; a packet does not need it.
    put(datagram.data(), wire::datagram::totalLength, size);
    // A reader ends its walk silently at an extended attribute that claims more than is there.
    if (header.isExtended)
        put(datagram.data() + wire::datagram::headerSize, wire::extended::length,
            size - wire::datagram::headerSize - wire::extended::lengthExcludes);
}

} // namespace

std::uint64_t FaultCounts::sum() const
{
    std::uint64_t sum = 0;
    for (const FaultName& fault : faultNames())
        sum += this->*fault.count;
    return sum;
}

const std::vector<FaultName>& faultNames()
{
    using C = FaultCounts;
    static const std::vector<FaultName> names{
        {FaultKind::Drop, "drop", &C::drop},
        {FaultKind::Duplicate, "duplicate", &C::duplicate},
        {FaultKind::Reorder, "reorder", &C::reorder},
        {FaultKind::CorruptMagic, "corrupt magic", &C::corruptMagic},
        {FaultKind::CorruptSelector, "corrupt selector", &C::corruptSelector},
        {FaultKind::CorruptTag, "corrupt tag", &C::corruptTag},
        {FaultKind::Truncate, "truncate", &C::truncate},
        {FaultKind::Stall, "stall", &C::stall},
    };
    return names;
}

std::string_view nameOf(FaultKind kind)
{
    const auto found = std::ranges::find(faultNames(), kind, &FaultName::kind);
    return found == faultNames().end() ? "none" : found->name;
}

FaultKind drawFault(const Faults& faults, Random& random)
{
    struct Chance {
        double probability;
        FaultKind kind;
    };
    const double third = faults.corrupt / static_cast<double>(corruptions.size());
    const std::array<Chance, 8> chances{{{faults.drop, FaultKind::Drop},
                                         {faults.duplicate, FaultKind::Duplicate},
                                         {faults.reorder, FaultKind::Reorder},
                                         {third, corruptions[0]},
                                         {third, corruptions[1]},
                                         {third, corruptions[2]},
                                         {faults.truncate, FaultKind::Truncate},
                                         {faults.stall, FaultKind::Stall}}};
    double left = random.unit();
    for (const Chance& chance : chances) {
        if (left < chance.probability)
            return chance.kind;
        left -= std::max(chance.probability, 0.0);
    }
    return FaultKind::None;
}

void damage(wire::Bytes& datagram, FaultKind kind, Random& random)
{
    switch (kind) {
    case FaultKind::CorruptMagic:
        return corruptMagic(datagram, random);
    case FaultKind::CorruptSelector:
        return corruptSelector(datagram, random);
    case FaultKind::CorruptTag:
        return corruptTag(datagram, random);
    case FaultKind::Truncate:
        return truncate(datagram, random);
    case FaultKind::None:
    case FaultKind::Drop:
    case FaultKind::Duplicate:
    case FaultKind::Reorder:
    case FaultKind::Stall:
        return;
    }
}

} // namespace simulation
