/// @file
/// Estimates the length of a text that is being written. See docs/json-speed.md.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Tolvex::Json {

/// Estimates from the number of values written so far how much longer the text will become.
///
/// @param open  The open containers, outermost first. Each has a size, and a count of the values
///              that have been begun.
/// @return the factor between the whole length and the length so far: more than 1, at most 4.
template <typename Container>
double EstimateGrowth(const std::vector<Container>& open)
{
    constexpr std::size_t levels = 8;  // deeper levels hardly change the result
    constexpr double margin = 1.0625;
    constexpr double highest = 4;  // the first values can be the longest
    double complete = 0;
    double whole = 1;
    for (std::size_t level = 0; level < std::min(open.size(), levels); ++level) {
        // An empty container is open for a moment, too.
        const auto size = static_cast<double>(std::max<std::size_t>(open[level].size, 1));
        const auto begun = static_cast<double>(open[level].begun);
        complete += whole * std::max(begun - 1, 0.0) / size;
        whole /= size;
    }
    return margin < highest * complete ? margin / complete : highest;
}

}  // namespace Tolvex::Json
