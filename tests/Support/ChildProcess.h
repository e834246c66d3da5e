/// @file
/// Runs a piece of a test in its own process.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/OwnProcess.h"

namespace Tolvex::Support {

// The address sanitizer does not release its allocator in a forked child. If another thread is in
// it at the fork, the child hangs at its next allocation. So under that sanitizer tests fork only
// while the other threads sleep.
#ifdef __SANITIZE_ADDRESS__
constexpr bool childMayHang = true;
#else
constexpr bool childMayHang = false;
#endif

/// @return how many of count threads a test may keep busy while it forks.
constexpr int ThreadsBusyAtFork(int count)
{
    return childMayHang ? 0 : count;
}

/// Waits until the other threads of the process sleep, also one that has just been started. Gives
/// up after a second: a test may keep a thread busy on purpose.
inline void AwaitSleepOfOtherThreads()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::vector<pid_t> threads = Threads();
        if (std::all_of(threads.begin(), threads.end(),
                        [](pid_t thread) { return thread == gettid() || Sleeps(thread); })) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
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

/// Runs work, an int(), in a forked child. The child ends by _exit() with what work returns, or
/// with 1 if an expectation failed in it or an exception left it; its output then says which.
///
/// The child has none of its parent's threads, and inherits their locks in the state of that
/// moment.
/// @return the child's process, for waitpid() and kill().
/// @throws std::system_error if there is none: kill() of -1 would end all processes.
template <typename Work>
pid_t StartChild(Work work)
{
    std::cout.flush();
    std::fflush(nullptr);
    if (childMayHang) {
        AwaitSleepOfOtherThreads();
    }
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
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
        _exit(1);  // inside the handler, because it may be the end of a cancelled thread
    }
    std::cout.flush();
    std::fflush(nullptr);
    _exit(code == 0 && ::testing::Test::HasFailure() ? 1 : code);
}

/// Runs work as StartChild() does and waits for its end. Use it where a test needs new singletons,
/// or changes limits, users, namespaces or the environment.
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

/// What the work of RunInTime() returns if the machine was too slow to show what the test asks for.
constexpr int late = 99;

/// Runs work as RunInChild() does, again as long as it is late: a starved machine can be so once or
/// twice, and a defect is so always. A failed expectation is not tried again.
template <typename Work>
ChildResult RunInTime(Work work)
{
    ChildResult result;
    for (int attempt = 0; attempt < 5; ++attempt) {
        result = RunInChild([&work] {
            const int code = work();
            return code == late && ::testing::Test::HasFailure() ? 1 : code;
        });
        if (result.ExitCode() != late) {
            break;
        }
    }
    return result;
}

}  // namespace Tolvex::Support
