/// @file
/// A disk that hangs: fdatasync() does not return while a test says so.
///
/// Replaces the function for the whole program, the shared library included: include it in one file
/// of a program only, and link ${CMAKE_DL_LIBS}.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/Support/RealFunction.h"

namespace Tolvex::Support {

inline std::atomic<bool> hangFlushes = false;

}  // namespace Tolvex::Support

// NOLINTNEXTLINE(misc-definitions-in-headers): a replacement may not be inline.
extern "C" int fdatasync(int descriptor)
{
    static auto* const real = Tolvex::Support::RealFunction<int(int)>("fdatasync");
    while (Tolvex::Support::hangFlushes) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return real(descriptor);
}
