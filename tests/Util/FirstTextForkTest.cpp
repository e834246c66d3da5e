// Uses the tables of texts while another thread prepares them for forks. Not for the thread
// sanitizer (tests/Support/ForkRegistrations.h).
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "Tolvex/Util/EnumString.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"

namespace {

using Tolvex::Support::ChildResult;
using Tolvex::Support::RunWhileHalted;
using Tolvex::Util::EnumStringMutex;

TEST(FirstTextForkTest, NoThreadLocksTheTextsBeforeForksArePreparedFor)
{
    const ChildResult result = RunWhileHalted({1, false}, EnumStringMutex, [] {
        // Not on the stack: the thread goes on when this is done.
        const auto locked = std::make_shared<std::atomic<bool>>(false);
        std::thread second([locked] {
            const std::lock_guard lock(EnumStringMutex());
            *locked = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(*locked);
        second.detach();
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

}  // namespace
