// Forks while another thread uses the list of workers for the first time. Not for the thread
// sanitizer (tests/Support/ForkRegistrations.h).
#include <chrono>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/WorkerHealth.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"
#include "tests/Support/ProbeThread.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Interfaces::ListWorkers;
using Tolvex::Support::ChildResult;
using Tolvex::Support::ExpectInChildren;
using Tolvex::Support::HaltRow;
using Tolvex::Support::Nap;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::registrations;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunWhileHalted;

void RunOneWorker()
{
    alarm(20);  // a fork that hangs ends here
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();
    EXPECT_EQ(ListWorkers().size(), 1U);
}

/// The parameter says where the thread that starts the first worker is halted.
class FirstWorkerForkTest : public ::testing::TestWithParam<HaltRow>
{
};

TEST_P(FirstWorkerForkTest, ChildrenListTheirWorkersWhateverTheFirstStartWasHaltedIn)
{
    const ChildResult result =
        RunWhileHalted(GetParam().halt, RunOneWorker, [] { ExpectInChildren(RunOneWorker); });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

INSTANTIATE_TEST_SUITE_P(Halted, FirstWorkerForkTest,
                         ::testing::Values(HaltRow{"BeforeTheListIsPreparedFor", {1, false}},
                                           HaltRow{"AfterTheListIsPreparedFor", {1, true}}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(FirstWorkerListForkTest, FirstLookAtTheListPreparesItForForks)
{
    const ChildResult result = RunInChild([] {
        const int before = registrations;
        ListWorkers();
        EXPECT_EQ(registrations, before + 1);
        return 0;
    });
    EXPECT_TRUE(result.Succeeded()) << result.output;
}

}  // namespace
