#include "Tolvex/Interfaces/WorkerHealth.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/Gate.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

std::atomic<bool> failCreations = false;  // pthread_create() fails for lack of memory

}  // namespace

extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument)
{
    static auto* const real =
        Tolvex::Support::RealFunction<decltype(pthread_create)>("pthread_create");
    return failCreations ? EAGAIN : real(handle, attributes, entry, argument);
}

namespace Tolvex::Interfaces {
namespace {

using namespace std::chrono_literals;
using Support::Eventually;
using Support::Gate;
using Support::LogFile;
using Support::Nap;
using Support::ProbeThread;
using Support::RunInChild;

constexpr std::chrono::milliseconds longestTick(10);  // of the clock that times the passes

/// The entry of a worker in the list of all; none when it is not listed.
std::optional<WorkerHealth> Find(const IThread& worker)
{
    for (const WorkerHealth& health : ListWorkers()) {
        if (health.worker == &worker) {
            return health;
        }
    }
    return std::nullopt;
}

WorkerHealth HealthOf(const IThread& worker)
{
    const std::optional<WorkerHealth> health = Find(worker);
    EXPECT_TRUE(health.has_value());
    return health.value_or(WorkerHealth());
}

// -------------------------------------------------------------------------------------- the list

// The first test, so the list has not allocated anything yet.
TEST(WorkerHealthTest, WorkerThatLacksMemoryToStartIsNotListed)
{
    std::size_t failures = 0;
    for (bool started = false; !started;) {
        ASSERT_LT(failures, 1000U);
        ProbeThread probe;
        probe.onRun = [] { Nap(1ms); };
        probe.SetThreadName("a name that is too long to be stored without memory");
        try {
            const Support::AllocationBudget budget(failures);
            probe.Start();
            started = true;
        } catch (const std::bad_alloc&) {
            ++failures;
            EXPECT_TRUE(ListWorkers().empty());
            EXPECT_FALSE(probe.IsRunning());
            probe.Start();
        }
        EXPECT_EQ(ListWorkers().size(), 1U);
    }
    EXPECT_GE(failures, 3U);
    EXPECT_TRUE(ListWorkers().empty());
}

TEST(WorkerHealthTest, WorkersAreListedFromTheirFirstStartUntilTheyAreDestroyed)
{
    auto first = std::make_unique<ProbeThread>();
    auto second = std::make_unique<ProbeThread>();
    EXPECT_TRUE(ListWorkers().empty());

    second->onRun = first->onRun = [] { Nap(1ms); };
    first->SetThreadName("first");
    first->Start();
    second->Start();
    first->Stop();

    const std::vector<WorkerHealth> both = ListWorkers();
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[0].worker, first.get());
    EXPECT_EQ(both[0].name, "first");
    EXPECT_EQ(both[1].worker, second.get());
    EXPECT_EQ(both[1].name, "");

    first->Start();
    EXPECT_EQ(ListWorkers().front().worker, first.get());
    first.reset();
    ASSERT_EQ(ListWorkers().size(), 1U);
    EXPECT_EQ(ListWorkers().front().worker, second.get());
    second.reset();
    EXPECT_TRUE(ListWorkers().empty());
}

TEST(WorkerHealthTest, ListKeepsItsOrderWhateverLeavesIt)
{
    std::vector<std::unique_ptr<ProbeThread>> workers;
    for (int count = 0; count < 4; ++count) {
        workers.push_back(std::make_unique<ProbeThread>());
        workers.back()->onRun = [] { Nap(1ms); };
        workers.back()->Start();
    }
    for (const std::size_t leaving : {std::size_t{1}, std::size_t{2}, std::size_t{0}}) {
        workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(leaving));
        const std::vector<WorkerHealth> listed = ListWorkers();
        ASSERT_EQ(listed.size(), workers.size());
        for (std::size_t i = 0; i < listed.size(); ++i) {
            EXPECT_EQ(listed[i].worker, workers[i].get());
        }
    }
}

TEST(WorkerHealthTest, WithoutMemoryTheListThrowsAndTheNextOneIsWhole)
{
    ProbeThread worker;
    worker.Start();
    std::vector<WorkerHealth> list;
    for (std::size_t allocations = 0; list.empty(); ++allocations) {
        ASSERT_LT(allocations, 1000U);
        try {
            const Support::AllocationBudget budget(allocations);
            list = ListWorkers();
        } catch (const std::bad_alloc&) {
        }
    }
    EXPECT_EQ(list.size(), 1U);
    EXPECT_EQ(list.front().worker, &worker);
    worker.Stop();
}

TEST(WorkerHealthTest, NameIsTheOneOfTheStart)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.SetThreadName("a name that is too long for the system");
    probe.Start();
    EXPECT_EQ(HealthOf(probe).name, "a name that is too long for the system");

    probe.Stop();
    probe.SetThreadName("later");
    EXPECT_EQ(HealthOf(probe).name, "a name that is too long for the system");
    probe.Start();
    EXPECT_EQ(HealthOf(probe).name, "later");
}

TEST(WorkerHealthTest, WorkersComeAndGoWhileOthersList)
{
    std::atomic<bool> over = false;
    std::vector<std::thread> observers;
    for (int count = 0; count < 2; ++count) {
        observers.emplace_back([&over] {
            while (!over) {
                for (const WorkerHealth& health : ListWorkers()) {
                    EXPECT_EQ(health.name, "short");
                }
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        ProbeThread probe;
        probe.SetThreadName("short");
        probe.onRun = [&probe] { ++probe.passes; };
        probe.Start();
        EXPECT_TRUE(Eventually([&probe] { return probe.passes > 100; }));
        if (round % 2 == 0) {
            probe.Cancel();
        }
    }
    over = true;
    for (std::thread& observer : observers) {
        observer.join();
    }
    EXPECT_TRUE(ListWorkers().empty());
}

// ------------------------------------------------------------------------------------- the state

TEST(WorkerHealthTest, StateFollowsTheWorker)
{
    ProbeThread probe;
    Gate leave;
    std::atomic<bool> inPass = false;
    probe.onRun = [&] {
        inPass = true;
        leave.Pass();
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
    probe.Pause();
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Paused);
    probe.Resume();
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
    probe.Cancel();
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Stopping);
    leave.Open();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Finished);
    EXPECT_EQ(HealthOf(probe).runningPass, 0ms);
    EXPECT_EQ(HealthOf(probe).stackUsed, 0U);
}

TEST(WorkerHealthTest, WorkerWhoseThreadCannotBeCreatedHasFailed)
{
    ProbeThread probe;
    failCreations = true;
    probe.Start();
    failCreations = false;

    EXPECT_EQ(HealthOf(probe).state, WorkerState::Failed);
    EXPECT_EQ(HealthOf(probe).passes, 0U);
    EXPECT_EQ(HealthOf(probe).runningPass, 0ms);
    EXPECT_EQ(HealthOf(probe).stackUsed, 0U);
}

TEST(WorkerHealthTest, AbortedWorkerStaysOnTheListWithoutAPass)
{
    ProbeThread probe;
    Gate inPass;
    probe.onRun = [&] {
        inPass.Open();
        for (;;) {
            Nap(1ms);
        }
    };
    probe.Start();
    ASSERT_TRUE(inPass.Pass());
    probe.Abort();

    EXPECT_EQ(HealthOf(probe).state, WorkerState::Aborted);
    EXPECT_TRUE(Eventually([&] { return HealthOf(probe).runningPass == 0ms; }));
    EXPECT_TRUE(Eventually([&] { return HealthOf(probe).stackUsed == 0U; }));
}

// ------------------------------------------------------------------------------------ the passes

TEST(WorkerHealthTest, PassesAreCountedOneByOneAndFromZeroAfterAStart)
{
    ProbeThread probe;
    probe.onRun = [&probe] {
        if (++probe.passes % 12345 == 0) {
            Base::StoreShared(probe.running, false);
        }
    };
    for (int start = 0; start < 2; ++start) {
        probe.Start();
        ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));
        EXPECT_EQ(HealthOf(probe).passes, 12345U);
    }
}

TEST(WorkerHealthTest, HangingPassIsTimedWhileItRuns)
{
    ProbeThread probe;
    Gate leave;
    std::atomic<int> passes = 0;
    probe.onRun = [&] {
        if (++passes == 3) {
            leave.Pass();
        } else if (passes > 3) {
            Base::StoreShared(probe.running, false);
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return passes == 3; }));
    const auto before = HealthOf(probe).runningPass;
    std::this_thread::sleep_for(100ms);

    const WorkerHealth hanging = HealthOf(probe);

    EXPECT_EQ(hanging.passes, 2U);
    EXPECT_GE(hanging.runningPass, before + 90ms);
    EXPECT_LE(hanging.longestPass, hanging.runningPass);
    leave.Open();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));
    EXPECT_GE(HealthOf(probe).longestPass, 100ms - longestTick);
    EXPECT_EQ(HealthOf(probe).runningPass, 0ms);
}

TEST(WorkerHealthTest, ThreadThatStillHangsAfterAStartLeavesTheNumbersOfTheNewOneAlone)
{
    ProbeThread probe;
    Gate hanging;
    Gate leave;
    std::atomic<bool> first = true;
    std::atomic<bool> left = false;
    probe.onRun = [&] {
        if (first.exchange(false)) {
            hanging.Open();
            leave.Pass();
            left = true;
        } else {
            Nap(1ms);
        }
    };
    probe.Start();
    ASSERT_TRUE(hanging.Pass());
    const auto begin = std::chrono::steady_clock::now();
    probe.Cancel();
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return HealthOf(probe).passes >= 10; }));
    std::this_thread::sleep_for(1s);  // longer than a busy machine holds up a short pass
    const auto hung = std::chrono::steady_clock::now() - begin;
    leave.Open();
    ASSERT_TRUE(Eventually([&] { return left.load(); }));
    const std::uint64_t before = HealthOf(probe).passes;
    ASSERT_TRUE(Eventually([&] { return HealthOf(probe).passes >= before + 10; }));

    EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
    EXPECT_LT(HealthOf(probe).longestPass, hung);
}

TEST(WorkerHealthTest, LastAndLongestPassAreKnownWhenTheNextBegins)
{
    ProbeThread probe;
    const std::vector<std::chrono::milliseconds> naps = {40ms, 120ms, 60ms};
    std::vector<WorkerHealth> seen;
    probe.onRun = [&, pass = std::size_t{0}]() mutable {
        // The pass before has ended by now.
        if (pass > 0 && pass <= naps.size()) {
            seen.push_back(HealthOf(probe));
        }
        if (pass == naps.size()) {
            Base::StoreShared(probe.running, false);
            return;
        }
        std::this_thread::sleep_for(naps[pass++]);
    };
    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));

    ASSERT_EQ(seen.size(), naps.size());
    for (std::size_t i = 0; i < naps.size(); ++i) {
        // Exact, except for the first: no long pass came before it.
        EXPECT_GE(seen[i].lastPass + (i == 0 ? longestTick : 0ms), naps[i]);
        EXPECT_EQ(seen[i].passes, i + 1);
    }
    EXPECT_GE(seen[2].longestPass + longestTick, 120ms);
    EXPECT_GE(seen[2].longestPass, seen[1].lastPass);
    EXPECT_EQ(seen[2].longestPass,
              std::max({seen[0].lastPass, seen[1].lastPass, seen[2].lastPass}));
}

TEST(WorkerHealthTest, ShortPassesAreNotAddedUp)
{
    ProbeThread probe;
    const auto begin = std::chrono::steady_clock::now();
    auto lastCall = begin;
    std::chrono::steady_clock::duration longestGap{};  // a busy machine may hold up a pass
    probe.onRun = [&] {
        const auto now = std::chrono::steady_clock::now();
        longestGap = std::max(longestGap, now - std::exchange(lastCall, now));
        if (now - begin > 300ms + longestGap) {
            Base::StoreShared(probe.running, false);
        }
    };
    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));

    EXPECT_GT(HealthOf(probe).passes, 100U);
    EXPECT_LT(HealthOf(probe).longestPass, 200ms + longestGap);  // all of them: 300 ms and more
}

TEST(WorkerHealthTest, LongPassAmongVeryManyShortOnesIsSeen)
{
    ProbeThread probe;
    const auto begin = std::chrono::steady_clock::now();
    bool slept = false;
    auto lastCall = begin;
    std::chrono::steady_clock::duration longestGap{};  // after the sleep: the machine may be busy
    probe.onRun = [&] {
        if (++probe.passes % 1000 != 0) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        const auto gap = now - std::exchange(lastCall, now);
        if (!slept && now - begin > 100ms) {
            slept = true;
            std::this_thread::sleep_for(150ms);
            lastCall = std::chrono::steady_clock::now();
        } else if (slept) {
            longestGap = std::max(longestGap, gap);
            if (now - begin > 400ms) {
                Base::StoreShared(probe.running, false);
            }
        }
    };
    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));

    EXPECT_GE(HealthOf(probe).longestPass, 150ms - longestTick);
    EXPECT_LT(HealthOf(probe).lastPass, 150ms + longestGap);
}

TEST(WorkerHealthTest, PauseIsNoPass)
{
    ProbeThread probe;
    probe.onRun = [&probe] {
        if (++probe.passes == 10) {
            Base::StoreShared(probe.running, false);
        }
    };
    probe.Pause();
    const auto begin = std::chrono::steady_clock::now();
    probe.Start();
    std::this_thread::sleep_for(250ms);
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Paused);
    EXPECT_EQ(HealthOf(probe).runningPass, 0ms);

    const auto resumed = std::chrono::steady_clock::now();
    probe.Resume();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));
    const auto ended = std::chrono::steady_clock::now();

    EXPECT_GE(resumed - begin, 250ms);
    EXPECT_LE(HealthOf(probe).longestPass, ended - resumed);
}

TEST(WorkerHealthTest, TimedPassesCountToo)
{
    ProbeThread probe;
    Base::StoreShared(probe.benchmark, true);
    probe.onRun = [&probe] {
        if (++probe.passes == 3) {
            Base::StoreShared(probe.running, false);
        }
    };
    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(Support::patience));

    EXPECT_EQ(HealthOf(probe).passes, 3U);
}

// ------------------------------------------------------------------------------------- the stack

#ifdef __SANITIZE_THREAD__
constexpr std::size_t blockBytes = 20000;  // the sanitizer keeps most of the stack for itself
#else
constexpr std::size_t blockBytes = 200000;
#endif

[[gnu::noinline]] void UseStack()
{
    volatile char block[blockBytes];
    for (std::size_t i = 0; i < sizeof block; i += 512) {
        block[i] = 1;
    }
}

TEST(WorkerHealthTest, StackShowsWhatWasEverUsed)
{
    ProbeThread probe;
    std::atomic<int> step = 0;
    probe.onRun = [&] {
        if (step == 1) {
            UseStack();
            step = 2;
        }
        Nap(1ms);
        ++probe.passes;
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return probe.passes > 2; }));
    const std::size_t before = HealthOf(probe).stackUsed;
    EXPECT_GT(before, 0U);
    step = 1;
    ASSERT_TRUE(Eventually([&] { return step == 2; }));

    const std::size_t after = HealthOf(probe).stackUsed;

    EXPECT_GE(after, blockBytes);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(before, 100000U);
    EXPECT_LE(after, 524288U);
#endif
}

// ------------------------------------------------------------------------- priority and processors

/// The first of these processors.
cpu_set_t OneOf(const cpu_set_t& cpus)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    for (std::size_t cpu = 0; CPU_COUNT(&one) == 0; ++cpu) {
        if (CPU_ISSET(cpu, &cpus)) {
            CPU_SET(cpu, &one);
        }
    }
    return one;
}

TEST(WorkerHealthTest, PriorityAndProcessorsHoldForTheNextAndLaterStarts)
{
    ProbeThread probe;
    std::atomic<int> policy = -1;
    std::atomic<int> processors = -1;
    probe.onRunBefore = [&] {
        policy = sched_getscheduler(0);
        cpu_set_t own;
        processors = sched_getaffinity(0, sizeof own, &own) == 0 ? CPU_COUNT(&own) : -1;
    };
    probe.onRun = [] { Nap(1ms); };
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return processors != -1; }));
    EXPECT_EQ(policy, SCHED_OTHER);
    EXPECT_EQ(processors, CPU_COUNT(&allowed));

    LogFile log;
    probe.SetPriority(SCHED_BATCH, 0);
    probe.SetCpuAffinity(OneOf(allowed));
    for (int start = 0; start < 3; ++start) {
        probe.Stop();
        processors = -1;
        probe.Start();
        ASSERT_TRUE(Eventually([&] { return processors != -1; }));

        EXPECT_EQ(policy, SCHED_BATCH) << start;
        EXPECT_EQ(processors, 1) << start;
    }
    for (const std::string& line : log.TakeLines()) {
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("without")));
    }
}

TEST(WorkerHealthTest, RefusedWishesAreLoggedAndTheWorkerRunsWithout)
{
    LogFile log;
    ProbeThread probe;
    probe.onRun = [&probe] {
        ++probe.passes;
        Nap(1ms);
    };
    probe.SetThreadName("wishful");
    probe.SetPriority(SCHED_FIFO, 1000);
    probe.SetCpuAffinity(cpu_set_t{});
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return probe.passes > 0; }));

    const std::vector<std::string> lines = log.TakeLines();

    EXPECT_THAT(lines, testing::Contains(testing::HasSubstr(
                           "Thread (wishful) runs without its priority: Invalid argument")));
    EXPECT_THAT(lines, testing::Contains(testing::HasSubstr(
                           "Thread (wishful) runs without its CPU affinity: Invalid argument")));
    EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
}

TEST(WorkerHealthTest, WishesMayComeFromOtherThreadsWhileTheWorkerStartsAndStops)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    std::atomic<bool> over = false;
    std::thread other([&] {
        while (!over) {
            probe.SetPriority(SCHED_BATCH, 0);
            probe.SetCpuAffinity(OneOf(allowed));
        }
    });
    for (int start = 0; start < 5; ++start) {
        probe.Start();
        probe.SetPriority(SCHED_OTHER, 0);
        probe.SetCpuAffinity(allowed);
        EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
        probe.Stop();
    }
    over = true;
    other.join();
}

TEST(WorkerHealthTest, AfterARefusalTheSchedulingIsThatOfTheStartingThread)
{
    std::thread([] {
        const sched_param none{};
        ASSERT_EQ(pthread_setschedparam(pthread_self(), SCHED_BATCH, &none), 0);
        cpu_set_t allowed;
        ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
        const cpu_set_t one = OneOf(allowed);
        ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);

        ProbeThread probe;
        std::atomic<bool> inPass = false;
        probe.onRun = [&] {
            EXPECT_EQ(sched_getscheduler(0), SCHED_BATCH);
            cpu_set_t own;
            EXPECT_EQ(sched_getaffinity(0, sizeof own, &own), 0);
            EXPECT_TRUE(CPU_EQUAL(&own, &one));
            inPass = true;
            Nap(1ms);
        };
        probe.SetPriority(SCHED_FIFO, 1000);
        probe.SetCpuAffinity(cpu_set_t{});
        probe.Start();
        EXPECT_TRUE(Eventually([&] { return inPass.load(); }));
    }).join();
}

TEST(WorkerHealthTest, PriorityThatTheProcessMayNotHaveIsLogged)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: gives up its rights in a child";
    }
    const auto child = RunInChild([] {
        const rlimit none{0, 0};
        EXPECT_EQ(setrlimit(RLIMIT_RTPRIO, &none), 0);
        EXPECT_EQ(setuid(65534), 0);
        LogFile log;
        ProbeThread probe;
        probe.onRun = [&probe] {
            ++probe.passes;
            Nap(1ms);
        };
        probe.SetPriority(SCHED_FIFO, 10);
        probe.Start();
        EXPECT_TRUE(Eventually([&] { return probe.passes > 0; }));
        EXPECT_THAT(log.TakeLines(),
                    testing::Contains(testing::HasSubstr(
                        "Thread (name not defined) runs without its priority: Operation not")));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

// ------------------------------------------------------------------------------------------ forks

TEST(WorkerHealthTest, ForkedChildListsItsOwnWorkersOnly)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();
    std::atomic<bool> over = false;
    std::thread observer([&over] {
        while (!over) {
            ListWorkers();
        }
    });

    for (int round = 0; round < 10; ++round) {
        const auto child = RunInChild([] {
            alarm(20);
            EXPECT_TRUE(ListWorkers().empty());
            ProbeThread own;
            own.onRun = [] { Nap(1ms); };
            own.Start();
            EXPECT_EQ(ListWorkers().size(), 1U);
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
        EXPECT_EQ(ListWorkers().size(), 1U);
    }
    over = true;
    observer.join();
}

// As the child does with a worker on the stack of a thread that it does not have: the C library
// uses such stacks again.
TEST(WorkerHealthTest, ChildForgetsAWorkerWhoseMemoryItUsesAgain)
{
    alignas(ProbeThread) std::array<unsigned char, sizeof(ProbeThread)> memory{};
    auto* const probe = new (memory.data()) ProbeThread;
    probe->onRun = [] { Nap(1ms); };
    probe->Start();

    const auto child = RunInChild([&memory] {
        alarm(20);
        memory.fill(0xAB);
        EXPECT_TRUE(ListWorkers().empty());
        EXPECT_TRUE(RunInChild([] { return 0; }).Succeeded());
        return 0;
    });
    probe->~ProbeThread();
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(WorkerHealthTest, WorkerThatRunsInTheParentIsNotListedInAChildThatStartsIt)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();

    const auto child = RunInChild([&probe] {
        alarm(20);
        probe.Start();  // does nothing: it counts as running
        EXPECT_TRUE(ListWorkers().empty());
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(WorkerHealthTest, WorkerThatAForkedChildStartsAgainIsListedThere)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return HealthOf(probe).passes >= 1; }));

    const auto child = RunInChild([&probe] {
        alarm(20);
        probe.Cancel();  // it counts as running, and its thread does not exist here
        probe.Start();
        EXPECT_TRUE(Eventually([&] { return HealthOf(probe).passes >= 1; }));
        EXPECT_EQ(HealthOf(probe).state, WorkerState::Running);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace
}  // namespace Tolvex::Interfaces
