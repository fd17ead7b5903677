// SPDX-License-Identifier: MIT
// Claim: items are turned to host order in place about as fast as memory allows, at every size and width.
// Peers: memcpy of the same bytes, a loop of ntohs/ntohl that is not vectorised, Qt's bulk conversion, VOLK.
#include "bench/ratio_reporter.h"
#include "devicecontrol/vk410protocol/byteorder.h"
#include <QtEndian>
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <random>
#include <vector>
#include <volk/volk.h>

namespace {

using Item16 = std::uint16_t;
using Item32 = std::uint32_t;

template <typename Item>
std::vector<Item> randomItems(std::size_t count)
{
    std::mt19937 random{1};
    std::vector<Item> items(count);
    for (Item& item : items)
        item = static_cast<Item>(random());
    return items;
}

template <typename Item>
void ours(Item* items, std::size_t count)
{
    if constexpr (sizeof(Item) == 2)
        byteorder::swap16(items, count);
    else
        byteorder::swap32(items, count);
}

template <typename Item>
[[gnu::optimize("no-tree-vectorize")]] void naive(Item* items, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (sizeof(Item) == 2)
            items[i] = ntohs(items[i]);
        else
            items[i] = ntohl(items[i]);
    }
}

template <typename Item>
void qt(Item* items, std::size_t count)
{
    qFromBigEndian<Item>(items, static_cast<qsizetype>(count), items);
}

template <typename Item>
void volk(Item* items, std::size_t count)
{
    if constexpr (sizeof(Item) == 2)
        volk_16u_byteswap(items, static_cast<unsigned>(count));
    else
        volk_32u_byteswap(items, static_cast<unsigned>(count));
}

template <typename Item>
void copy(Item* items, std::size_t count)
{
    static std::vector<Item> target(1'000'000);
    std::memcpy(target.data(), items, count * sizeof(Item));
    benchmark::DoNotOptimize(target.data());
}

// One place for everybody, 16 bytes behind the beginning of a cache line, as memory often begins: what
// crosses the ends of lines would else be a matter of luck.
alignas(64) std::array<unsigned char, 16 + 4'000'000> memory;

template <typename Item, void (*work)(Item*, std::size_t)>
void measure(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const std::vector<Item> random = randomItems<Item>(count);
    std::memcpy(memory.data() + 16, random.data(), count * sizeof(Item));
    auto* const items = reinterpret_cast<Item*>(memory.data() + 16);
    for (auto _ : state) {
        work(items, count);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * static_cast<std::int64_t>(sizeof(Item)));
}

template <typename Item, void (*work)(Item*, std::size_t)>
void requireSame(std::size_t count)
{
    std::vector<Item> expected = randomItems<Item>(count);
    std::vector<Item> found = expected;
    naive(expected.data(), count);
    work(found.data(), count);
    bench::require(found == expected, "items in host order");
}

void addSizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int count : {32, 700, 1601, 16'000, 1'000'000})
        benchmark->Arg(count);
}

template <typename Item>
void registerWidth(const std::string& width)
{
    for (const std::size_t count : {1U, 32U, 1601U}) {
        requireSame<Item, ours<Item>>(count);
        requireSame<Item, qt<Item>>(count);
        requireSame<Item, volk<Item>>(count);
    }
    addSizes(benchmark::RegisterBenchmark(("ours" + width).c_str(), measure<Item, ours<Item>>));
    addSizes(benchmark::RegisterBenchmark(("memcpy" + width).c_str(), measure<Item, copy<Item>>));
    addSizes(benchmark::RegisterBenchmark(("naive" + width).c_str(), measure<Item, naive<Item>>));
    addSizes(benchmark::RegisterBenchmark(("qt" + width).c_str(), measure<Item, qt<Item>>));
    addSizes(benchmark::RegisterBenchmark(("volk" + width).c_str(), measure<Item, volk<Item>>));
}

} // namespace

int main(int argc, char** argv)
{
    registerWidth<Item16>("16");
    registerWidth<Item32>("32");
    // Everybody beside ours, so that each row says how many times slower it is.
    return bench::runWithRatios(argc, argv, [](const std::string& name) {
        const std::size_t width = name.find_first_of("0123456789");
        return "ours" + name.substr(width);
    });
}
