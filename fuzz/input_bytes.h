// SPDX-License-Identifier: MIT
#pragma once
// The input of a fuzz target as a stream of decisions; 0 when it is used up.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

class InputBytes {
public:
    InputBytes(const std::uint8_t* data, std::size_t size)
        : m_left(data, size)
    {}

    [[nodiscard]] bool empty() const { return m_left.empty(); }

    /// The next number, of which the input may end in the middle.
    template <typename T>
    T next()
    {
        T value{};
        const std::size_t size = std::min(sizeof value, m_left.size());
        if (size != 0)
            std::memcpy(&value, m_left.data(), size);
        m_left = m_left.subspan(size);
        return value;
    }

    /// Up to `size` bytes.
    std::vector<unsigned char> bytes(std::size_t size)
    {
        const auto part = m_left.first(std::min(size, m_left.size()));
        m_left = m_left.subspan(part.size());
        return {part.begin(), part.end()};
    }

private:
    std::span<const std::uint8_t> m_left;
};
