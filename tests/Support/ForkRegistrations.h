/// @file
/// Forks at the very moment in which another thread first uses the library. Include it in one file
/// of a test program: it defines what pthread_atfork() calls, to halt that thread there.
///
/// Not for the thread sanitizer, whose pthread_once() leaves the child waiting for that thread.
#pragma once

#include <atomic>
#include <ostream>
#include <thread>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/RealFunction.h"

namespace Tolvex::Support {

/// Where the thread that first uses the library is held up.
struct Halt
{
    int registration;  ///< which call to pthread_atfork(), counted from 1
    bool afterwards;   ///< when it is done, and not before
};

/// A halt with the name of its test.
struct HaltRow
{
    const char* name;
    Halt halt;
};

/// Its bytes, which GoogleTest would print, are not all set.
inline void PrintTo(const HaltRow& row, std::ostream* stream)
{
    *stream << row.name;
}

inline Halt halt = {0, false};
inline std::atomic<int> registrations = 0;  ///< calls so far in this process
inline std::atomic<bool> halted = false;

/// Has a thread begin with firstUse, halts it, and calls work meanwhile; each in a process that has
/// not used the library before.
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

/// Runs expectation in a child and in a child of that; both have to find all locks free.
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
