/// @file
/// An event between the threads of a test.
#pragma once

#include <future>

#include "tests/Support/Patience.h"

namespace Tolvex::Support {

/// An event that one thread waits for and another one triggers. It is opened once.
class Gate
{
public:
    void Open() { opened.set_value(); }
    /// @return false if the time limit has passed.
    bool Pass() { return future.wait_for(patience) == std::future_status::ready; }

private:
    std::promise<void> opened;
    std::shared_future<void> future = opened.get_future();
};

}  // namespace Tolvex::Support
