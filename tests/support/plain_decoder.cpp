// SPDX-License-Identifier: MIT
#include "support/plain_decoder.h"
#include <algorithm>
#include <optional>
#include <set>

namespace support {

namespace {

using Offset = std::int64_t;

const std::set<unsigned> knownTags{101,  201,  301,  401,  501,  601,  701,  801,  901,  1001, 1101, 1201,
                                   1301, 1401, 1601, 1801, 1901, 2401, 2501, 5001, 5101, 5201, 5301};
const std::set<unsigned> bitsOf32{1, 6, 7, 8, 10, 17, 21};
const std::set<unsigned> bitsRefused{22, 24, 25, 26, 27};

class PlainWalk {
public:
    explicit PlainWalk(wire::Bytes bytes)
        : m_bytes(std::move(bytes))
        , m_size(static_cast<Offset>(m_bytes.size()))
    {}

    PlainResult run()
    {
        if (!magicIsGood())
            return {};
        Offset remaining = m_size - 16;
        Offset at = 16;
        while (remaining >= 1 && at + 2 <= m_size) {
            const unsigned tag = big(at, 2);
            const bool isExtended = tag == 5001 || tag == 5101 || tag == 5301;
            const std::optional<Offset> step = isExtended ? extended(at, remaining) : normal(at);
            if (!step || m_over)
                break;
            remaining -= *step;
            at += isExtended ? *step * 34 : *step;
        }
        return std::move(m_result);
    }

private:
    bool magicIsGood() const
    {
        const wire::Bytes big{0x00, 0x0C, 0x5A, 0x10};
        const wire::Bytes little{0x10, 0x5A, 0x0C, 0x00};
        return m_size >= 4 && (std::equal(big.begin(), big.end(), m_bytes.begin()) ||
                               std::equal(little.begin(), little.end(), m_bytes.begin()));
    }

    std::uint32_t big(Offset at, int width) const
    {
        std::uint32_t value = 0;
        for (int i = 0; i < width; ++i)
            value = value << 8 | m_bytes[static_cast<std::size_t>(at + i)];
        return value;
    }
    std::uint32_t little(Offset at, int width) const
    {
        std::uint32_t value = 0;
        for (int i = width - 1; i >= 0; --i)
            value = value << 8 | m_bytes[static_cast<std::size_t>(at + i)];
        return value;
    }
    void reverse(Offset at, int width) { std::reverse(m_bytes.begin() + at, m_bytes.begin() + at + width); }

    std::optional<Offset> normal(Offset at)
    {
        if (at + 12 > m_size)
            return std::nullopt;
        reverse(at, 2);
        reverse(at + 2, 2);
        reverse(at + 4, 2);
        reverse(at + 8, 4);
        Delivered one;
        one.tag = little(at, 2);
        const Offset size = Offset{little(at + 2, 2)} + 4;
        one.count = little(at + 4, 2);
        one.channel = m_bytes[static_cast<std::size_t>(at + 6)];
        one.selectors = little(at + 8, 4);
        decode(one, at, at + 12, m_bytes[static_cast<std::size_t>(at + 7)]);
        return size;
    }

    std::optional<Offset> extended(Offset at, Offset remaining)
    {
        if (remaining < 60 || at + 60 > m_size)
            return std::nullopt;
        const Offset size = static_cast<std::int32_t>(big(at + 4, 4) + 24U);
        if (size <= 0 || size > remaining || at + size > m_size)
            return std::nullopt;
        reverse(at, 2);
        for (const Offset field : {4, 24, 28, 32, 36, 40})
            reverse(at + field, 4);
        Delivered one;
        one.tag = little(at, 2);
        one.count = little(at + 24, 4);
        one.channel = little(at + 28, 4);
        one.selectors = little(at + 36, 4);
        decode(one, at, at + 60, little(at + 32, 4));
        return size;
    }

    void decode(Delivered& one, Offset begin, Offset optHeader, Offset optHeaderLength)
    {
        if (knownTags.count(one.tag) == 0)
            return;
        const Offset data = optHeader + optHeaderLength;
        const Offset count = one.count & 0xFFFFU;
        const bool swap = (one.selectors & 0x20000000U) == 0;
        if (one.tag == 401 || one.tag == 1301) {
            if (data + (one.tag == 1301 ? 4 * count : 0) > m_size)
                return over("");
            if (one.tag == 401)
                one.fields["selBit0"] = {data - begin};
            else
                one.fields["selBit0"] = take(data, count, 4, swap);
        } else if (!fields(one, begin, data, count, swap)) {
            return;
        }
        if (one.tag == 301 && optHeaderLength > 0 && swap)
            convert301(optHeader, optHeaderLength);
        one.optHeaderAvailable = optHeaderLength != 0;
        one.optHeader =
            hex(m_bytes.data() + optHeader, static_cast<std::size_t>(std::min<Offset>(optHeaderLength, 80)));
        m_result.delivered.push_back(one);
    }

    bool fields(Delivered& one, Offset begin, Offset data, Offset count, bool swap)
    {
        // First how far the walk gets, then the conversion.
        Offset end = data;
        std::string error;
        std::vector<unsigned> bits;
        for (unsigned bit = 0; bit < 28 && error.empty(); ++bit) {
            if ((one.selectors >> bit & 1U) == 0)
                continue;
            if (one.selectors > 0xE03FFFFFU)
                error = "Too Many Selector Flags";
            else if (bitsRefused.count(bit) != 0)
                error = "Unknown Selector Flag";
            else
                bits.push_back(bit);
        }
        for (const unsigned bit : bits)
            end += count * (bitsOf32.count(bit) != 0 ? 4 : 2);
        if (error == "Too Many Selector Flags")
            return over(error), false;
        if (end > m_size)
            return over(""), false;
        Offset at = data;
        for (const unsigned bit : bits) {
            const int width = bitsOf32.count(bit) != 0 ? 4 : 2;
            std::vector<std::int64_t> values = take(at, count, width, swap);
            if (bit == 17) {
                for (std::int64_t& value : values)
                    value &= 0xFFFFFFFF;
            }
            one.fields["selBit" + std::to_string(bit)] = values;
            at += count * width;
        }
        one.dataEnd = end - begin;
        if (!error.empty())
            return over(error), false;
        return true;
    }

    std::vector<std::int64_t> take(Offset at, Offset count, int width, bool swap)
    {
        std::vector<std::int64_t> values;
        for (Offset i = 0; i < count; ++i, at += width) {
            if (swap)
                reverse(at, width);
            const std::uint32_t value = little(at, width);
            values.push_back(width == 4 ? static_cast<std::int32_t>(value)
                                        : static_cast<std::int16_t>(value));
        }
        return values;
    }

    void convert301(Offset at, Offset length)
    {
        wire::Bytes scratch(34);
        const Offset size = std::min<Offset>(length, 34);
        std::copy_n(m_bytes.begin() + at, size, scratch.begin());
        Offset field = 0;
        for (const int width : {4, 4, 4, 4, 2, 2, 2, 4, 4, 4}) {
            std::reverse(scratch.begin() + field, scratch.begin() + field + width);
            field += width;
        }
        std::copy_n(scratch.begin(), size, m_bytes.begin() + at);
    }

    void over(const std::string& error)
    {
        m_over = true;
        m_result.error = error;
    }

    wire::Bytes m_bytes;
    Offset m_size;
    bool m_over = false;
    PlainResult m_result;
};

} // namespace

PlainResult plainDecode(wire::Bytes bytes)
{
    return PlainWalk{std::move(bytes)}.run();
}

} // namespace support
