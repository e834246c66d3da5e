// Uses a table of texts while another thread registers its fork handlers. Not for the thread
// sanitizer (tests/Support/ForkRegistrations.h).
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "Tolvex/Types/LogModule.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Support::ChildResult;
using Tolvex::Support::RunWhileHalted;
using Modules = Tolvex::Util::EnumString<LogModule>;

TEST(FirstTextForkTest, NoThreadLocksTheTextsBeforeTheForkHandlersAreRegistered)
{
    const auto lookUp = [] { EXPECT_EQ(Modules::From(LogModule::WNET), "WNET"); };

    const ChildResult result = RunWhileHalted({1, false}, lookUp, [lookUp] {
        // Not on the stack: the thread may outlive this function.
        const auto lookedUp = std::make_shared<std::atomic<bool>>(false);
        std::thread second([lookUp, lookedUp] {
            lookUp();
            *lookedUp = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(*lookedUp);
        second.detach();
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

}  // namespace
