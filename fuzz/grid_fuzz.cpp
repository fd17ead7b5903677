// SPDX-License-Identifier: MIT
// Any sequence of calls of channel grids and level map fillers: all must happen as the models say.
#include "support/grid_check.h"
#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string difference = support::checkGridAndFiller({data, size});
    if (difference.empty())
        return 0;
    std::cerr << difference << '\n';
    std::abort();
}
