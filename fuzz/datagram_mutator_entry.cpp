// SPDX-License-Identifier: MIT
// Where libFuzzer asks for the mutator.
#include "fuzz/datagram_mutator.h"
#include <algorithm>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    const auto mutateBytes = [](const wire::Bytes& bytes, std::size_t most) {
        wire::Bytes changed = bytes;
        changed.resize(std::max({bytes.size(), most, std::size_t{1}}));
        changed.resize(LLVMFuzzerMutate(changed.data(), bytes.size(), changed.size()));
        return changed;
    };
    const wire::Bytes changed = fuzz::mutateDatagram({data, data + size}, maxSize, seed, mutateBytes);
    std::copy(changed.begin(), changed.end(), data);
    return changed.size();
}
