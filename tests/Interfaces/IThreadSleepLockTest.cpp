// Counts the locks that ThreadSleep() takes. Not for the thread sanitizer, which replaces
// pthread_mutex_lock() too.
#include <atomic>
#include <chrono>
#include <pthread.h>
#include <thread>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IThread.h"

#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/RealFunction.h"

namespace {

thread_local long locksOfThread = 0;

}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    static auto* const real =
        Tolvex::Support::RealFunction<int(pthread_mutex_t*)>("pthread_mutex_lock");
    ++locksOfThread;
    return real(mutex);
}

namespace {

using namespace std::chrono_literals;
using Tolvex::Support::Eventually;
using Tolvex::Support::ProbeThread;

// Start(), Cancel() and Abort() need the lock that the loop would take.
TEST(IThreadSleepLockTest, StepOfZeroLoopsWithoutTakingALock)
{
    ProbeThread probe;
    std::atomic<bool> sleeping = false;
    std::atomic<long> locks = -1;
    probe.onRun = [&] {
        const long before = locksOfThread;
        sleeping = true;
        // Bounded: a worker that gets here only after Stop() sleeps the total at once.
        probe.ThreadSleep(5s, 0ms);
        locks = locksOfThread - before;
    };

    probe.Start();
    ASSERT_TRUE(Eventually([&] { return sleeping.load(); }));
    std::this_thread::sleep_for(50ms);
    probe.Stop();

    EXPECT_GE(locks, 0);
    EXPECT_LE(locks, 1);  // to find its own run
}

}  // namespace
