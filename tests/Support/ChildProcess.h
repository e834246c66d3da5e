/// @file
/// Running a piece of a test in a process of its own.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Tolvex::Support {

/// How many of count threads a test may keep busy while it forks.
///
/// None under the address sanitizer, whose allocator may be locked in the child for ever, and none
/// when coverage is counted: the child ends by exit() then, which takes locks, too.
constexpr int ThreadsBusyAtFork(int count)
{
#if defined(__SANITIZE_ADDRESS__) || defined(TOLVEX_COVERAGE)
    return 0 * count;
#else
    return count;
#endif
}

/// How a child process ended and what it wrote.
struct ChildResult
{
    int status = -1;     ///< as waitpid() gives it; 0: work returned 0 and nothing failed in it
    std::string output;  ///< standard output, and standard error in between

    bool Succeeded() const { return status == 0; }
    int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
    int Signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }
};

/// Ends a forked child at once; when coverage is counted, only after its counts are written.
[[noreturn]] inline void EndChild(int code)
{
#ifdef TOLVEX_COVERAGE
    std::exit(code);
#else
    _exit(code);
#endif
}

/// Runs work, an int(), in a forked child. The child ends by _exit() with what work returns, or
/// with 1 if an expectation failed in it or an exception left it; its output then says which.
///
/// The child has none of the threads of its parent, and their locks as they were at that moment.
/// @return the child's process, for waitpid(); negative if there is none.
template <typename Work>
pid_t StartChild(Work work)
{
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }

    // An exception must not reach the test runner: the child would run all other tests once more.
    int code = 1;
    try {
        code = work();
    } catch (const std::exception& exception) {
        std::cout << "exception in a child process: " << exception.what() << '\n';
    } catch (...) {
        std::cout << "exception in a child process\n" << std::flush;
        EndChild(1);  // inside the handler, because it may be the end of a cancelled thread
    }
    std::cout.flush();
    std::fflush(nullptr);
    EndChild(code == 0 && ::testing::Test::HasFailure() ? 1 : code);
}

/// Runs work as StartChild() does and waits for its end. For singletons that a test needs fresh,
/// limits, users, namespaces and environments.
template <typename Work>
ChildResult RunInChild(Work work)
{
    ChildResult result;
    int ends[2];
    if (pipe(ends) != 0) {
        return result;
    }

    const pid_t child = StartChild([&] {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        return work();
    });

    close(ends[1]);
    char text[4096];
    for (ssize_t length; (length = read(ends[0], text, sizeof text)) > 0;) {
        result.output.append(text, static_cast<std::size_t>(length));
    }
    close(ends[0]);
    if (child < 0 || waitpid(child, &result.status, 0) != child) {
        result.status = -1;
    }
    return result;
}

}  // namespace Tolvex::Support
