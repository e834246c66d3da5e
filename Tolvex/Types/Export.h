/// @file
/// The macro that exports a class or function, and two checks of the program that includes it: it
/// must be compiled as C++20, and with the same time_t as the library.
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

/// Exports a class or function from the shared library; everything without it is hidden.
#define TOLVEX_EXPORT __attribute__((visibility("default")))

#ifdef TOLVEX_TIME_T_BYTES  // given by the CMake package and by tolvex.pc
static_assert(sizeof(std::time_t) == TOLVEX_TIME_T_BYTES,
              "This program's time_t differs from the one that libtolvex was built with. "
              "Compile with the same _TIME_BITS as the library.");
#endif
