/// @file
/// Lets the processor fetch memory before it is needed. See docs/json-speed.md.
#pragma once

#include <cstddef>

namespace Tolvex::Json {

/// Fetches the memory a few objects ahead of a member, in the direction of the walk.
///
/// A tree that was read from text lies in memory nearly in the order of the text. But a walk visits
/// the members of an object in the order of their keys, which the processor cannot predict. The
/// address is only a hint: a wrong one costs little and cannot fail. It is not exact, because no
/// member knows where the next ones are. Each call fetches enough bytes to overlap with those
/// of its neighbours, so that few members are missed.
/// @param direction  1: a walk to higher addresses; -1: to lower ones.
/// @return the argument: g++ drops calls of a function that only prefetches.
template <typename Place>
Place& PrefetchAhead(Place& place, std::ptrdiff_t direction = 1)
{
    constexpr std::ptrdiff_t pointerBytes = sizeof(void*);  // sizes of members grow with it
    constexpr std::ptrdiff_t distance = 768 * pointerBytes;
    constexpr std::ptrdiff_t fetchedBytes = 64 * pointerBytes;  // two members with keys and links
    constexpr std::ptrdiff_t lineBytes = 64;
    const char* const begin = reinterpret_cast<const char*>(&place) + direction * distance;
    for (std::ptrdiff_t offset = 0; offset < fetchedBytes; offset += lineBytes) {
        __builtin_prefetch(begin + offset);
    }
    return place;
}

}  // namespace Tolvex::Json
