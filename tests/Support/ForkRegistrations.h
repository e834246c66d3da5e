/// @file
/// Forks while another thread uses the library for the first time. Include it in one file of a test
/// program: it replaces the function that pthread_atfork() calls, to stop that thread there.
///
/// Do not use it under the thread sanitizer: in a child its pthread_once() waits for that thread
/// forever.
#pragma once

#include <atomic>
#include <ostream>
#include <thread>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/RealFunction.h"

namespace Tolvex::Support {

/// The point at which the thread that first uses the library stops.
struct Halt
{
    int registration;  ///< which call to pthread_atfork(), counted from 1
    bool afterwards;   ///< stop after the registration, not before it
};

/// A stopping point with the name of its test.
struct HaltRow
{
    const char* name;
    Halt halt;
};

/// Without this GoogleTest prints all bytes, and some of them are not initialised.
inline void PrintTo(const HaltRow& row, std::ostream* stream)
{
    *stream << row.name;
}

inline Halt halt = {0, false};
inline std::atomic<int> registrations = 0;  ///< calls so far in this process
inline std::atomic<bool> halted = false;

/// Starts a thread that calls firstUse, stops it at the given point, and calls work while it is
/// stopped. Both happen in a process that has not used the library before.
template <typename FirstUse, typename Work>
ChildResult RunWhileHalted(Halt where, FirstUse firstUse, Work work)
{
    return RunInChild([&] {
        halt = where;
        std::thread first(firstUse);
        halted.wait(false);
        work();
        halted = false;
        halted.notify_all();
        first.join();
        return 0;
    });
}

/// Runs expectation in a child and in a grandchild. All locks must be free in both.
inline void ExpectInChildren(void (*expectation)())
{
    const ChildResult child = RunInChild([expectation] {
        expectation();
        const ChildResult grandchild = RunInChild([expectation] {
            expectation();
            return 0;
        });
        EXPECT_TRUE(grandchild.Succeeded()) << grandchild.output;
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace Tolvex::Support

// Defined here on purpose: one file of a program includes this.
// NOLINTNEXTLINE(bugprone-reserved-identifier,misc-definitions-in-headers)
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* object)
{
    using namespace Tolvex::Support;  // NOLINT(google-build-using-namespace)
    static auto* const real =
        RealFunction<int(void (*)(), void (*)(), void (*)(), void*)>("__register_atfork");
    const bool here = ++registrations == halt.registration;
    const auto stop = [here](bool afterwards) {
        if (here && halt.afterwards == afterwards) {
            halted = true;
            halted.notify_all();
            halted.wait(true);
        }
    };
    stop(false);
    const int error = real(prepare, parent, child, object);
    stop(true);
    return error;
}
