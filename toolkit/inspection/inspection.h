// SPDX-License-Identifier: MIT
#pragma once
// What an inspection finds, and who is told.
#include "toolkit/recording/datagramsource.h"
#include "wire/view.h"
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace inspection {

/// One datagram, before its attributes.
struct DatagramInfo {
    std::uint64_t index = 0;               // counts the datagrams from 0
    std::uint64_t position = 0;            // in the file
    wire::View bytes;                      // as received
    bool valid = false;                    // good magic
    std::optional<std::uint16_t> sequence; // absent in less than ten bytes
    std::optional<std::int64_t> receivedNs;
    recording::Origin origin;
};

/// The header of an attribute; offsets are from the datagram's start.
struct AttributeHeader {
    std::uint64_t datagram = 0;
    std::uint32_t index = 0; // in its datagram
    std::uint32_t offset = 0;
    std::uint32_t size = 0; // by its own length, inside the datagram
    std::uint16_t tag = 0;
    bool known = true;
    std::uint32_t channel = 0;
    std::uint32_t count = 0; // items of every field; in the extended form the header's low 16 bits
    std::uint32_t optHeaderLength = 0;
    std::uint32_t selectors = 0;
    wire::View converted; // the whole datagram as the reader left it: this header is in host order
};

/// One field of an attribute.
struct FieldInfo {
    unsigned bit = 0;
    std::uint32_t offset = 0;
    unsigned itemSize = 0; // on the wire
    // In host order, at any address: the items themselves, or for bit 17 64-bit copies.
    const unsigned char* items = nullptr;
    unsigned storedSize = 0;

    /// Result: signed, except for bit 17.
    [[nodiscard]] std::int64_t at(std::uint32_t index) const;
};

/// One attribute that was delivered, or that has an unknown tag.
struct AttributeInfo {
    AttributeHeader header;
    std::optional<wire::View> optHeader; // as the reader left it
    std::span<const FieldInfo> fields;   // ascending bits
    std::optional<wire::View> rawBytes;  // tag 401: its data, up to the attribute's end
    std::optional<std::uint32_t> dataEnd;
};

/// What the reader did not deliver, although the datagram's magic is good.
struct Drop {
    std::uint64_t datagram = 0;
    std::uint32_t attribute = 0; // index of the one where it happened
    std::string reason;          // one of a few texts
    std::string detail;
    std::optional<AttributeHeader> header; // absent: no header could be read
    std::uint32_t begin = 0;               // the bytes that are dropped
    std::uint32_t end = 0;
};

/// Thread: that of the inspector. What it is given lives during the call only.
/// Order: a datagram, then its attributes and drops as they lie in it.
class Sink {
public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;

    virtual void datagram(const DatagramInfo& datagram) = 0;
    virtual void attribute(const AttributeInfo& attribute) = 0;
    virtual void dropped(const Drop& drop) = 0;

    /// After the last datagram.
    virtual void finish() {}
};

} // namespace inspection
