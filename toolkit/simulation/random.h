// SPDX-License-Identifier: MIT
#pragma once
// Random numbers that are the same on every machine: the standard's distributions are not.
#include <cmath>
#include <cstdint>

namespace simulation {

/// Mixes all bits of `x`; neighbours give unrelated numbers.
[[nodiscard]] constexpr std::uint64_t mixed(std::uint64_t x)
{
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31U);
}

/// The number that belongs to (seed, a, b): what happens at a time needs no memory of what came before.
[[nodiscard]] constexpr std::uint64_t hashed(std::uint64_t seed, std::uint64_t a, std::uint64_t b = 0)
{
    return mixed(mixed(mixed(seed) ^ a) ^ b);
}

/// `bits` as a number from 0 up to, not including, 1.
[[nodiscard]] constexpr double unit(std::uint64_t bits)
{
    return static_cast<double>(bits >> 11U) * 0x1.0p-53;
}

/// A sequence of random numbers.
class Random {
public:
    explicit Random(std::uint64_t seed)
        : m_state(mixed(seed))
    {}

    std::uint64_t next()
    {
        m_state += 0x9E3779B97F4A7C15ULL;
        return mixed(m_state);
    }
    double unit() { return simulation::unit(next()); }

    /// 0 to `limit` - 1; `limit` is at least 1 and far below 2^64, so that the remainder is as good as even.
    std::uint64_t below(std::uint64_t limit) { return next() % limit; }

    /// Power of noise with a mean of 1, as a receiver without averaging measures it.
    double noisePower() { return -std::log(1.0 - unit()); }

private:
    std::uint64_t m_state;
};

} // namespace simulation
