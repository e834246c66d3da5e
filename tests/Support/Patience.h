/// @file
/// Waiting for a condition that another thread makes true.
#pragma once

#include <chrono>
#include <thread>

namespace Tolvex::Support {

/// The longest time that a test waits for an event. It bounds a hang and asserts no speed.
constexpr std::chrono::seconds patience(30);

/// How long the log waits for a line or for a writer. A bound from below: it never waits less.
constexpr std::chrono::milliseconds longestLogWait(2100);

/// Polls until the condition holds. @return false if the time limit has passed.
template <typename Condition>
bool Eventually(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace Tolvex::Support
