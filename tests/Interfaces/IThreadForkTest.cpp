// Workers in forked children, which have none of their parent's threads.
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IThread.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::Nap;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::RunInChild;

/// As RunInChild(), but ends a child that hangs.
template <typename Work>
ChildResult RunInChildThatMayHang(Work work)
{
    return RunInChild([&work] {
        alarm(static_cast<unsigned>(patience.count()));
        work();
        return 0;
    });
}

TEST(IThreadForkTest, ChildDestroysAWorkerOfItsParentWithoutWaiting)
{
    auto probe = std::make_unique<ProbeThread>();
    probe->onRun = [&worker = *probe] {
        worker.passes = 1;
        Nap(1ms);
    };
    probe->Start();
    ASSERT_TRUE(Eventually([&] { return probe->passes == 1; }));

    const ChildResult child = RunInChildThatMayHang([&] { probe.reset(); });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_TRUE(probe->IsRunning());
}

TEST(IThreadForkTest, StopOfAWorkerOfTheParentReturnsInAChild)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();

    const ChildResult child = RunInChildThatMayHang([&] { probe.Stop(); });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(IThreadForkTest, ChildStartsAWorkerWhoseAbortedThreadWasStillEndingInTheParent)
{
    ProbeThread probe;
    std::atomic<bool> inPass = false;
    std::atomic<bool> mayEnd = false;
    probe.onRun = [&] {
        inPass = true;
        while (!mayEnd) {  // no cancellation point
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));
    probe.Abort();

    const ChildResult child = RunInChildThatMayHang([&] {
        probe.onRun = [] { Nap(1ms); };
        probe.Start();
        EXPECT_TRUE(probe.IsRunning());
        probe.Stop();
        EXPECT_TRUE(probe.WaitUntilFinished(patience));
    });

    mayEnd = true;
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_TRUE(probe.WaitUntilFinished(patience));
}

TEST(IThreadForkTest, ChildStartsAWorkerThatAnotherThreadWasChangingInTheParent)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();
    std::atomic<bool> over = false;
    std::thread changer([&] {
        while (!over) {
            probe.SetPriority(SCHED_OTHER, 0);
        }
    });

    for (int round = 0; round < 50 && !HasFailure(); ++round) {
        const ChildResult child = RunInChildThatMayHang([&] {
            probe.Cancel();  // it counts as running, and its thread does not exist here
            probe.Start();
            EXPECT_TRUE(probe.IsRunning());
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }
    over = true;
    changer.join();
}

}  // namespace
