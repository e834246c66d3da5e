/// @file
/// Threads that have reached the point where they wait.
#pragma once

#include <future>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"

namespace Tolvex::Support {

/// Starts a thread for work, a void() that has to wait. @return the thread, once it sleeps.
template <typename Work>
std::thread SleepingThread(Work work)
{
    std::promise<pid_t> number;
    std::thread thread([&number, work] {
        number.set_value(gettid());
        work();
    });
    const pid_t waiting = number.get_future().get();
    EXPECT_TRUE(Eventually([waiting] { return Sleeps(waiting); }));
    return thread;
}

}  // namespace Tolvex::Support
