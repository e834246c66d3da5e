#include "Tolvex/Util/Tick.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/Board.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

namespace {

using Tolvex::Support::RealFunction;

/// The sleeps of tick threads while one was to be interrupted, in their order.
struct TickSleeps
{
    std::mutex mutex;
    bool recorded = false;
    std::vector<timespec> requests;
};

TickSleeps tickSleeps;

bool IsTickThread()
{
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return std::string(name) == "Tick";
}

/// Records a sleep. @return true if a signal interrupts it, which happens to the first one only.
bool NoteInterruption(const timespec& request)
{
    const std::lock_guard<std::mutex> lock(tickSleeps.mutex);
    if (!tickSleeps.recorded || !IsTickThread()) {
        return false;
    }
    tickSleeps.requests.push_back(request);
    return tickSleeps.requests.size() == 1;
}

}  // namespace

extern "C" int nanosleep(const timespec* request, timespec* remaining)
{
    if (NoteInterruption(*request)) {
        *remaining = {0, 400000000};
        errno = EINTR;
        return -1;
    }
    static auto* const real = RealFunction<int(const timespec*, timespec*)>("nanosleep");
    return real(request, remaining);
}

namespace {

using namespace std::chrono_literals;
using Tolvex::Ilog::Logger;
using Tolvex::Interfaces::IThread;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasSignal;
using Tolvex::Support::LogFile;
using Tolvex::Support::SignalsBlockedBy;
using Tolvex::Util::Tick;

std::ptrdiff_t CountTickThreads()
{
    const std::vector<std::string> names = Tolvex::Support::ThreadNames();
    return std::count(names.begin(), names.end(), "Tick\n");
}

// The tests run in this order: the first two see the process without the instance.

TEST(TickTest, PassIsOneSleepOfASecondResumedAfterASignalWithTheRemainingTime)
{
    {
        const std::lock_guard<std::mutex> lock(tickSleeps.mutex);
        tickSleeps.recorded = true;
    }
    {
        const Tick tick;
        EXPECT_TRUE(Eventually([] {
            const std::lock_guard<std::mutex> lock(tickSleeps.mutex);
            return tickSleeps.requests.size() >= 3;
        }));
        EXPECT_GE(tick.GetTickCount(), 1U);
    }

    const std::lock_guard<std::mutex> lock(tickSleeps.mutex);
    tickSleeps.recorded = false;
    ASSERT_GE(tickSleeps.requests.size(), 3U);
    const auto is = [](const timespec& request, std::time_t seconds, long nanoseconds) {
        return request.tv_sec == seconds && request.tv_nsec == nanoseconds;
    };
    EXPECT_TRUE(is(tickSleeps.requests[0], 1, 0));
    EXPECT_TRUE(is(tickSleeps.requests[1], 0, 400000000));
    EXPECT_TRUE(is(tickSleeps.requests[2], 1, 0));
}

TEST(TickTest, FirstCallsFromSeveralThreadsAtOnceCreateOneObjectWithOneThread)
{
    constexpr int callers = 8;
    LogFile log;
    std::atomic<bool> go = false;
    std::vector<Tick*> seen(callers);
    std::vector<std::thread> threads;
    threads.reserve(callers);
    for (int i = 0; i < callers; ++i) {
        threads.emplace_back([&go, &instance = seen[static_cast<std::size_t>(i)], i] {
            while (!go) {
                std::this_thread::yield();
            }
            if (i % 2 == 0) {
                Tick::Start();
            }
            instance = Tick::GetInstance();
        });
    }

    // An open line delays the log line of the start, but not the other call.
    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(Tolvex::Ilog::LogType::Info);
    go = true;
    EXPECT_TRUE(Eventually([] { return CountTickThreads() == 1; }));
    Tick* const own = Tick::GetInstance();
    logger << "first" << std::endl;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_THAT(seen, ::testing::Each(seen.front()));
    EXPECT_NE(seen.front(), nullptr);
    EXPECT_EQ(own, seen.front());
    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre(
                                     "first", "[#Ithread]Thread (Tick) has started the execution"));
    EXPECT_EQ(CountTickThreads(), 1);
}

TEST(TickTest, LaterCallsReturnTheSameObjectAndStartNoFurtherThread)
{
    Tick* const first = Tick::GetInstance();
    LogFile log;

    Tick::Start();

    EXPECT_EQ(Tick::GetInstance(), first);
    EXPECT_THAT(log.TakeLines(), ::testing::IsEmpty());
    EXPECT_EQ(CountTickThreads(), 1);
}

TEST(TickTest, ThreadRunsNoSignalHandlersButThoseOfFaults)
{
    if (Tolvex::Support::isEmulated && !Tolvex::Support::IsOnBoard()) {
        GTEST_SKIP() << "the kernel knows the signals of the emulator only";
    }
    Tick::GetInstance();

    const std::optional<std::uint64_t> blocked = SignalsBlockedBy("Tick");

    ASSERT_TRUE(blocked);
    for (const int signal : {SIGHUP, SIGINT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD,
                             SIGPROF, SIGRTMIN, SIGRTMAX}) {
        EXPECT_TRUE(HasSignal(*blocked, signal)) << signal;
    }
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        EXPECT_FALSE(HasSignal(*blocked, fault)) << fault;
    }
}

TEST(TickTest, CreationLeavesTheSignalMaskOfTheCallerAlone)
{
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);

    const Tick tick;

    sigset_t after;
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (int signal = 1; signal < NSIG; ++signal) {
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
    }
}

TEST(TickTest, ForkedChildGetsTheObjectOfItsParentWithoutAThread)
{
    Tick* const parents = Tick::GetInstance();

    const auto child = Tolvex::Support::RunInChild([parents] {
        EXPECT_EQ(Tick::GetInstance(), parents);
        EXPECT_EQ(CountTickThreads(), 0);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(TickTest, CountGrowsByOneForEachSecondAndNeverFaster)
{
    Tick* const tick = Tick::GetInstance();
    const auto before = tick->GetTickCount();
    const auto begin = std::chrono::steady_clock::now();

    ASSERT_TRUE(Eventually([&] { return tick->GetTickCount() >= before + 3; }));

    // The first of the three seconds may have begun earlier.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2s);
}

TEST(TickTest, ObjectCountsFromItsConstructionOnAndStopsWithItsDestruction)
{
    LogFile log;
    {
        const Tick tick;
        EXPECT_EQ(tick.GetTickCount(), 0U);
        EXPECT_TRUE(Eventually([&] { return tick.GetTickCount() >= 1; }));
    }

    EXPECT_THAT(log.TakeLines(),
                ::testing::ElementsAre("[#Ithread]Thread (Tick) has started the execution",
                                       "[#Ithread]Thread (Tick) has finished the execution"));
}

TEST(TickTest, ThreadOperationsAreNoPartOfItsPublicFace)
{
    EXPECT_TRUE((std::is_base_of_v<IThread, Tick>));
    EXPECT_FALSE((std::is_convertible_v<Tick*, IThread*>));
    EXPECT_TRUE((std::is_same_v<decltype(&Tick::Start), void (*)()>));
    EXPECT_FALSE(std::is_copy_constructible_v<Tick>);
}

}  // namespace
