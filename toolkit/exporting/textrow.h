// SPDX-License-Identifier: MIT
#pragma once
// Numbers as the text forms write them.
#include "toolkit/exporting/writer.h"
#include "values/levels.h"
#include <fmt/format.h>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace exporting {

template <typename... Values>
void add(std::string& line, fmt::format_string<Values...> text, Values&&... values)
{
    fmt::format_to(std::back_inserter(line), text, std::forward<Values>(values)...);
}

/// Appends raw levels as decimal numbers, `nothing` for those that were not measured, commas between them.
/// Whole-number arithmetic: there are a hundred thousand of them a second.
inline void addLevels(std::string& line, std::span<const short> levels, int decimals,
                      std::string_view nothing)
{
    const int unit = decimals == 1 ? 10 : 1000;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if (i > 0)
            line += ',';
        const int raw = levels[i];
        if (raw == values::noLevel) {
            line += nothing;
            continue;
        }
        const int positive = raw < 0 ? -raw : raw;
        if (raw < 0)
            line += '-';
        const fmt::format_int whole{positive / unit};
        line.append(whole.data(), whole.size());
        line += '.';
        const fmt::format_int rest{unit + positive % unit}; // a one in front keeps the zeros
        line.append(rest.data() + 1, rest.size() - 1);
    }
}

} // namespace exporting
