/// @file
/// Waiting for a condition that another thread makes true.
#pragma once

#include <chrono>
#include <thread>

namespace Tolvex::Support {

/// The longest wait of a test for something that has to come; bounds a hang, no speed.
constexpr std::chrono::seconds patience(30);

/// Polls until the condition holds. @return false when the patience is over.
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
