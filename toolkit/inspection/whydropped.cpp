// SPDX-License-Identifier: MIT
#include "toolkit/inspection/whydropped.h"
#include "wire/layout.h"
#include "wire/selectors.h"
#include <fmt/format.h>

namespace inspection {
namespace {

std::string needs(std::string_view what, std::uint64_t bytes, std::uint64_t offset, std::uint64_t remain)
{
    return fmt::format("{} needs {} bytes at byte {}, {} remain", what, bytes, offset, remain);
}

// The extended attribute at `offset` was not taken although its header is there.
std::string whyTooLarge(wire::View extended, std::uint16_t tag, std::uint64_t offset)
{
    const auto size = static_cast<std::int32_t>(
        extended.getOrZero(wire::extended::length, wire::ByteOrder::Big) + wire::extended::lengthExcludes);
    return fmt::format("attribute of tag {} at byte {} claims {} bytes, {} remain", tag, offset, size,
                       extended.size());
}

} // namespace

std::size_t headerSizeOf(std::uint16_t tag)
{
    return wire::tag::isExtended(tag) ? wire::extended::headerSize : wire::attribute::headerSize;
}

std::string whyRefused(const AttributeHeader& attribute)
{
    const auto selectors =
        wire::tag::isExtended(attribute.tag) ? wire::extended::selectors : wire::attribute::selectors;
    const std::size_t offset = attribute.offset + selectors.offset;
    const wire::selector::Check check = wire::selector::check(attribute.selectors);
    if (check.fault == wire::selector::Fault::Unknown)
        return fmt::format("selector bit {} at byte {}", check.bit, offset);
    return fmt::format("selector word 0x{:08X} at byte {}", attribute.selectors, offset);
}

std::string whyTruncated(const AttributeHeader& attribute)
{
    const std::uint64_t size = attribute.converted.size();
    std::uint64_t at = attribute.offset + headerSizeOf(attribute.tag);
    if (attribute.optHeaderLength > size - at)
        return needs("optional header", attribute.optHeaderLength, at, size - at);
    at += attribute.optHeaderLength;
    if (attribute.tag == wire::tag::words)
        return needs("field selBit0", attribute.count * 4ULL, at, size - at);
    for (unsigned bit = 0; bit < wire::itemSize.size(); ++bit) {
        if ((attribute.selectors >> bit & 1U) == 0)
            continue;
        const std::uint64_t bytes = std::uint64_t{attribute.count} * wire::itemSize[bit];
        if (bytes > size - at)
            return needs(fmt::format("field selBit{}", bit), bytes, at, size - at);
        at += bytes;
    }
    return fmt::format("attribute at byte {} does not fit", attribute.offset);
}

std::string farStep(const AttributeHeader& extended)
{
    return fmt::format("the reader steps {} times the {} bytes of the extended attribute at byte {}",
                       wire::extended::stepFactor, extended.size, extended.offset);
}

std::string whyNotWalked(const std::optional<AttributeHeader>& last, wire::View converted)
{
    std::uint64_t at = wire::datagram::headerSize;
    if (last) {
        const std::uint64_t step = wire::tag::isExtended(last->tag) ? wire::extended::stepFactor : 1;
        at = last->offset + step * last->size;
        if (at >= converted.size())
            return farStep(*last);
    }
    const wire::View rest = *converted.sub(at, converted.size() - at);
    const std::uint16_t tag = rest.getOrZero(wire::attribute::tag, wire::ByteOrder::Big);
    if (rest.size() < headerSizeOf(tag))
        return needs("attribute header", headerSizeOf(tag), at, rest.size());
    return whyTooLarge(rest, tag, at);
}

} // namespace inspection
