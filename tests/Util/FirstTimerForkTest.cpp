// Forks while another thread makes the first timer. Not for the thread sanitizer
// (tests/Support/ForkRegistrations.h).
#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Util/Timer.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"
#include "tests/Support/Patience.h"

namespace {

using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::ExpectInChildren;
using Tolvex::Support::HaltRow;
using Tolvex::Support::RunWhileHalted;
using Tolvex::Util::Timer;

constexpr int timerStackBytes = 65536;

void ExpectAnExpiry()
{
    std::atomic<bool> expired = false;
    const Timer timer(
        1, [&expired](Timer*) { expired = true; }, nullptr, timerStackBytes);
    EXPECT_TRUE(Eventually([&expired] { return expired.load(); }));
}

/// The parameter says where the thread that makes the first timer is halted.
class FirstTimerForkTest : public ::testing::TestWithParam<HaltRow>
{
};

TEST_P(FirstTimerForkTest, ChildrenHaveTimersWhateverTheFirstTimerWasHaltedIn)
{
    const ChildResult result = RunWhileHalted(
        GetParam().halt,
        [] {
            const Timer timer(
                1000, [](Timer*) {}, nullptr, timerStackBytes);
        },
        [] { ExpectInChildren(ExpectAnExpiry); });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

INSTANTIATE_TEST_SUITE_P(Halted, FirstTimerForkTest,
                         ::testing::Values(HaltRow{"BeforeTheTimersArePreparedFor", {1, false}},
                                           HaltRow{"AfterTheTimersArePreparedFor", {1, true}}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
