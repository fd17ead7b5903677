// SPDX-License-Identifier: MIT
#pragma once
// Writes datagrams: what the simulator sends and what tests and benchmarks feed. Also what is wrong on
// purpose.
#include "wire/optheader.h"
#include "wire/selectors.h"
#include "wire/view.h"
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

namespace wire {

/// Bytes of a datagram or of a part of it.
using Bytes = std::vector<unsigned char>;

/// An optional header, zeroed, to be filled field by field in the byte order of its attribute.
class OptHeaderWriter {
public:
    /// A header of `size` bytes, all 0.
    explicit OptHeaderWriter(std::size_t size, ByteOrder order = ByteOrder::Big)
        : m_bytes(size)
        , m_order(order)
    {}

    /// Writes `value`; a field that is cut by the header's size is left out.
    template <std::integral T>
    OptHeaderWriter& set(Field<T> field, std::type_identity_t<T> value)
    {
        if (end(field) <= m_bytes.size())
            store(m_bytes.data() + field.offset, value, m_order);
        return *this;
    }

    /// The header so far.
    [[nodiscard]] const Bytes& bytes() const { return m_bytes; }

private:
    Bytes m_bytes;
    ByteOrder m_order;
};

/// Builds one datagram from its parts, in the order in which they lie on the wire.
/// `attribute` begins an attribute in the form that its tag has; `channel` to `bytes` fill the last one
/// begun; count and optional-header length, attribute length and total length follow from the contents unless
/// they are given.
class DatagramWriter {
public:
    /// Stores the magic as its sender does; little-endian senders have it the other way round.
    DatagramWriter& magic(std::uint32_t value, ByteOrder order = ByteOrder::Big)
    {
        m_magic = value;
        m_magicOrder = order;
        return *this;
    }
    /// Number of the datagram; 0 at first.
    DatagramWriter& sequence(std::uint16_t number)
    {
        m_sequence = number;
        return *this;
    }

    /// Begins an attribute in the form that its tag has.
    DatagramWriter& attribute(std::uint32_t tag, std::uint32_t channel = 0)
    {
        m_attributes.emplace_back();
        m_attributes.back().tag = static_cast<std::uint16_t>(tag);
        m_attributes.back().channel = channel;
        return *this;
    }

    /// Bit 29 makes the items that follow little-endian.
    DatagramWriter& selectors(std::uint32_t flags)
    {
        last().selectors = flags;
        return *this;
    }

    /// Number of items of every field.
    DatagramWriter& count(std::uint32_t items)
    {
        last().count = items;
        return *this;
    }
    /// The optional header, as it is.
    DatagramWriter& optHeader(const Bytes& header)
    {
        last().optHeader = header;
        return *this;
    }

    /// Appends one field.
    template <std::integral T>
    DatagramWriter& items(std::span<const T> values)
    {
        Attribute& to = last();
        const std::size_t begin = to.data.size();
        to.data.resize(begin + values.size() * sizeof(T));
        unsigned char* at = to.data.data() + begin;
        for (const T value : values) {
            store(at, value, to.dataOrder());
            at += sizeof(T);
        }
        return *this;
    }
    template <std::integral T>
    DatagramWriter& items(std::initializer_list<T> values)
    {
        return items(std::span<const T>(values.begin(), values.size()));
    }

    /// Appends bytes as they are.
    DatagramWriter& bytes(std::span<const unsigned char> raw)
    {
        last().data.insert(last().data.end(), raw.begin(), raw.end());
        return *this;
    }
    DatagramWriter& bytes(std::initializer_list<unsigned char> raw)
    {
        return bytes(std::span(raw.begin(), raw.size()));
    }

    /// Wrong on purpose: what the length fields claim instead of the truth.
    DatagramWriter& claimLength(std::uint32_t length)
    {
        last().claimedLength = length;
        return *this;
    }
    DatagramWriter& claimOptHeaderLength(std::uint32_t length)
    {
        last().claimedOptHeaderLength = length;
        return *this;
    }
    DatagramWriter& claimTotalLength(std::uint32_t length)
    {
        m_claimedTotal = length;
        return *this;
    }
    /// Wrong on purpose: cuts the datagram, or pads it with zeros, after everything was written.
    DatagramWriter& cutTo(std::size_t size)
    {
        m_size = size;
        return *this;
    }

    /// The datagram from all that was given so far.
    [[nodiscard]] Bytes build() const
    {
        Bytes out(datagram::headerSize);
        for (const Attribute& attribute : m_attributes)
            append(out, attribute);
        if (m_size)
            out.resize(*m_size);
        Bytes header(datagram::headerSize);
        store(header.data() + datagram::magic.offset, m_magic, m_magicOrder);
        store(header.data() + datagram::sequence.offset, m_sequence, ByteOrder::Big);
        store(header.data() + datagram::totalLength.offset,
              m_claimedTotal.value_or(static_cast<std::uint32_t>(out.size())), ByteOrder::Big);
        if (!out.empty())
            std::memcpy(out.data(), header.data(), std::min(out.size(), header.size()));
        return out;
    }

private:
    struct Attribute {
        std::uint16_t tag = 0;
        std::uint32_t channel = 0;
        std::uint32_t count = 0;
        std::uint32_t selectors = 0;
        Bytes optHeader;
        Bytes data;
        std::optional<std::uint32_t> claimedLength;
        std::optional<std::uint32_t> claimedOptHeaderLength;

        [[nodiscard]] ByteOrder dataOrder() const
        {
            return (selectors & selector::hostOrderFlag) != 0 ? ByteOrder::Little : ByteOrder::Big;
        }
        [[nodiscard]] std::uint32_t optHeaderLength() const
        {
            return claimedOptHeaderLength.value_or(static_cast<std::uint32_t>(optHeader.size()));
        }
        [[nodiscard]] std::size_t behindHeader() const { return optHeader.size() + data.size(); }
    };

    Attribute& last()
    {
        if (m_attributes.empty())
            m_attributes.emplace_back();
        return m_attributes.back();
    }

    template <std::integral T>
    static void put(Bytes& header, Field<T> field, std::uint64_t value)
    {
        store(header.data() + field.offset, static_cast<T>(value), ByteOrder::Big);
    }

    static void append(Bytes& out, const Attribute& from)
    {
        const Bytes header = tag::isExtended(from.tag) ? extendedHeader(from) : normalHeader(from);
        out.insert(out.end(), header.begin(), header.end());
        out.insert(out.end(), from.optHeader.begin(), from.optHeader.end());
        out.insert(out.end(), from.data.begin(), from.data.end());
    }

    static Bytes normalHeader(const Attribute& from)
    {
        Bytes header(attribute::headerSize);
        const std::size_t length = attribute::headerSize + from.behindHeader() - attribute::lengthExcludes;
        put(header, attribute::tag, from.tag);
        put(header, attribute::length, from.claimedLength.value_or(static_cast<std::uint32_t>(length)));
        put(header, attribute::count, from.count);
        put(header, attribute::channel, from.channel);
        put(header, attribute::optHeaderLength, from.optHeaderLength());
        put(header, attribute::selectors, from.selectors);
        return header;
    }

    static Bytes extendedHeader(const Attribute& from)
    {
        Bytes header(extended::headerSize);
        const std::size_t length = extended::headerSize + from.behindHeader() - extended::lengthExcludes;
        put(header, extended::tag, from.tag);
        put(header, extended::length, from.claimedLength.value_or(static_cast<std::uint32_t>(length)));
        put(header, extended::count, from.count);
        put(header, extended::channel, from.channel);
        put(header, extended::optHeaderLength, from.optHeaderLength());
        put(header, extended::selectors, from.selectors);
        return header;
    }

    std::uint32_t m_magic = datagram::magicLittleEndian;
    ByteOrder m_magicOrder = ByteOrder::Big;
    std::uint16_t m_sequence = 0;
    std::vector<Attribute> m_attributes;
    std::optional<std::uint32_t> m_claimedTotal;
    std::optional<std::size_t> m_size;
};

} // namespace wire
