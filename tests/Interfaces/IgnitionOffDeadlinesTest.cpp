// Reads the deadlines of the sequence from its calls of the C library, so that a slow machine
// changes no result.

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IgnitionOffSequence.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/Gate.h"
#include "tests/Support/HangingFlushes.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

thread_local bool collects = false;                            // on the thread of the test only
thread_local nanoseconds holdUp{0};                            // after each wait
thread_local std::vector<steady_clock::time_point> deadlines;  // in the order of the waits

}  // namespace

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* deadline)
{
    using Function = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static auto* const real = Tolvex::Support::RealFunction<Function>("pthread_cond_clockwait");
    const int result = real(condition, mutex, clock, deadline);
    if (collects) {
        deadlines.emplace_back(seconds(deadline->tv_sec) + nanoseconds(deadline->tv_nsec));
        pthread_mutex_unlock(mutex);
        std::this_thread::sleep_for(holdUp);
        pthread_mutex_lock(mutex);
    }
    return result;
}

namespace Tolvex::Interfaces {
namespace {

using namespace std::chrono_literals;
using Support::hangFlushes;

/// A participant that hangs until the gate opens.
class Hanging : public IgnitionOffMode
{
public:
    void RunIgnitionOff() override { leave.Pass(); }
    Support::Gate leave;
};

/// While it exists, the waits of the calling thread are collected.
class Collecting
{
public:
    explicit Collecting(nanoseconds holdUpAfterEachWait)
    {
        deadlines.clear();
        holdUp = holdUpAfterEachWait;
        collects = true;
    }
    ~Collecting() { collects = false; }
    Collecting(const Collecting&) = delete;
    Collecting& operator=(const Collecting&) = delete;
};

TEST(IgnitionOffDeadlinesTest, NoWaitEndsLaterThan50MsAfterTheSumOfTheBudgets)
{
    const Support::ScratchDirectory directory;
    Support::LogFile log;
    Hanging hanging;
    auto sequence = std::make_unique<IgnitionOffSequence>(directory.Path("drive"));
    for (int count = 0; count < 3; ++count) {
        ASSERT_TRUE(sequence->Add("late part", &hanging, 100ms));
    }
    Ilog::Logger& logger = *Ilog::Logger::GetInstance();
    logger.WriteHeader(Ilog::LogType::Info);  // The log hangs, and so does the disk.
    hangFlushes = true;
    const auto begin = steady_clock::now();
    {
        const Collecting collecting(300ms);
        sequence->RunIgnitionOff();
    }
    hangFlushes = false;
    logger.DropLine();
    hanging.leave.Open();

    // The first wait is for the first participant. It begins when the whole does, or later.
    EXPECT_GE(deadlines.size(), 2U);
    EXPECT_GE(deadlines.at(0), begin + 100ms);
    EXPECT_LE(*std::max_element(deadlines.begin(), deadlines.end()),
              deadlines.front() + 200ms + 50ms);
    // Their calls use the gate.
    sequence.reset();
    ASSERT_TRUE(Support::Eventually([] { return !Support::HasThread("late part"); }));
}

TEST(IgnitionOffDeadlinesTest, DestructorWaitsTwoSecondsForTheRecord)
{
    const Support::ScratchDirectory directory;
    auto sequence = std::make_unique<IgnitionOffSequence>(directory.Path("drive"));
    hangFlushes = true;
    const auto begin = steady_clock::now();
    {
        const Collecting collecting(0ms);
        sequence.reset();
    }
    const auto end = steady_clock::now();
    hangFlushes = false;

    ASSERT_FALSE(deadlines.empty());
    EXPECT_GE(deadlines.front(), begin + 2s);
    EXPECT_LE(deadlines.back(), end);
    EXPECT_EQ(deadlines.front(), deadlines.back());
}

}  // namespace
}  // namespace Tolvex::Interfaces
