/// @file
/// How much of a long test to run, depending on how slow this run is.
#pragma once

#include <algorithm>
#include <cstddef>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TOLVEX_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TOLVEX_SANITIZED 1
#endif
#endif

namespace Tolvex::Support {

/// Whether the thread sanitizer runs. After a thread is cancelled in a sleep, the sanitizer misses
/// the thread's locks and atomics and reports false races.
#if defined(__SANITIZE_THREAD__)
constexpr bool underThreadSanitizer = true;
#else
constexpr bool underThreadSanitizer = false;
#endif

/// Whether this is the device's architecture, which is emulated.
#if defined(__arm__)
constexpr bool isEmulated = true;
#else
constexpr bool isEmulated = false;
#endif

/// Whether threads are slow to create.
constexpr bool threadsAreSlow = isEmulated || underThreadSanitizer;

/// Roughly how many times slower this program runs than an optimised one.
inline std::size_t Slowness()
{
#ifdef RUNNING_ON_VALGRIND
    if (RUNNING_ON_VALGRIND != 0) {
        return 400;
    }
#endif
#if defined(TOLVEX_SANITIZED) || defined(__arm__)
    return 20;
#elif defined(__OPTIMIZE__)
    return 1;
#else
    return 10;
#endif
}

/// The part of count that this run has time for, at least 1.
inline std::size_t Scaled(std::size_t count)
{
    return std::max<std::size_t>(1, count / Slowness());
}

}  // namespace Tolvex::Support
