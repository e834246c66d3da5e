/// @file
/// The macro that puts a class or function into the library's interface, and the checks that a
/// program is compiled as C++20 and with the library's own time_t.
/// @code
/// class TOLVEX_EXPORT Recorder  // in a header that is installed
/// {
/// };
/// @endcode
#pragma once

#include <ctime>

#if __cplusplus < 202002L
#error "Tolvex needs C++20: compile with -std=c++20 or a later standard."
#endif

/// Marks what the shared library exports; everything else in it is hidden.
#define TOLVEX_EXPORT __attribute__((visibility("default")))

#ifdef TOLVEX_TIME_T_BYTES  // given by the CMake package and by tolvex.pc
static_assert(sizeof(std::time_t) == TOLVEX_TIME_T_BYTES,
              "This program's time_t differs from the one that libtolvex was built with. "
              "Compile with the same _TIME_BITS as the library.");
#endif
