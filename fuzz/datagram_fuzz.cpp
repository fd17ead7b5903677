// SPDX-License-Identifier: MIT
// Any bytes as a datagram: the library must deliver exactly what the plain decoder finds in them.
#include "support/delivered.h"
#include "support/plain_decoder.h"
#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static support::RecordingDispatcher library;
    const wire::Bytes bytes(data, data + size);
    const std::vector<support::Delivered> found = library.process(bytes);
    const std::vector<support::Delivered> expected = support::plainDecode(bytes).delivered;
    if (found == expected)
        return 0;
    std::cerr << "delivered:\n";
    for (const support::Delivered& one : found)
        std::cerr << one << '\n';
    std::cerr << "expected:\n";
    for (const support::Delivered& one : expected)
        std::cerr << one << '\n';
    std::abort();
}
