// Crowds of threads that wait for the line of a logger, and threads that wait for a while only.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LoggerBase.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/SleepingThread.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::Eventually;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::Sleeps;
using Tolvex::Support::Slowness;
using Tolvex::Support::TextsOf;
using Tolvex::Support::WriteLine;

/// A thread that writes one line, its number.
struct Waiter
{
    CapturingLogger* logger = nullptr;
    std::size_t number = 0;
    std::atomic<pid_t> thread = 0;
    pthread_t handle{};

    static void* Run(void* argument)
    {
        Waiter& waiter = *static_cast<Waiter*>(argument);
        const std::string text = std::to_string(waiter.number);
        waiter.thread = gettid();
        WriteLine(*waiter.logger, text);
        return nullptr;
    }
};

/// Many threads that wait for the line of one logger.
class Crowd
{
public:
    Crowd(CapturingLogger& crowdLogger, std::size_t count) : logger(crowdLogger), waiters(count)
    {
        pthread_attr_init(&attributes);
        // Thousands of stacks have to fit into the address space of the device.
        const std::size_t stackBytes = Slowness() == 1 ? 65536 : 262144;
        pthread_attr_setstacksize(&attributes, stackBytes);
    }
    ~Crowd() { pthread_attr_destroy(&attributes); }

    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// Starts the next thread. @return false when the system has no more of them.
    bool StartNext()
    {
        Waiter& waiter = waiters[started];
        waiter.logger = &logger;
        waiter.number = started;
        if (pthread_create(&waiter.handle, &attributes, Waiter::Run, &waiter) != 0) {
            return false;
        }
        ++started;
        return true;
    }

    /// @return whether the thread that was started last comes to sleep.
    bool LastComesToSleep()
    {
        const std::atomic<pid_t>& thread = waiters[started - 1].thread;
        return Eventually([&thread] { return thread != 0 && Sleeps(thread); });
    }

    /// @return whether all threads come to sleep.
    bool AllComeToSleep()
    {
        return std::all_of(waiters.begin(), waiters.begin() + Size(), [](const Waiter& waiter) {
            return Eventually([&waiter] { return waiter.thread != 0 && Sleeps(waiter.thread); });
        });
    }

    void Join()
    {
        std::for_each(waiters.begin(), waiters.begin() + Size(),
                      [](const Waiter& waiter) { pthread_join(waiter.handle, nullptr); });
    }

private:
    std::ptrdiff_t Size() const { return static_cast<std::ptrdiff_t>(started); }

    CapturingLogger& logger;
    std::vector<Waiter> waiters;
    std::size_t started = 0;
    pthread_attr_t attributes{};
};

TEST(LineQueueTest, HundredsOfThreadsGetTheLineInTheOrderInWhichTheyCameToSleep)
{
    const std::size_t count = Slowness() == 1 ? 500 : 100;
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    Crowd crowd(logger, count);
    std::vector<std::string> expected{"first\n"};
    for (std::size_t number = 0; number < count; ++number) {
        ASSERT_TRUE(crowd.StartNext());
        EXPECT_TRUE(crowd.LastComesToSleep());
        expected.push_back(std::to_string(number) + "\n");
    }

    logger << "first" << std::endl;
    crowd.Join();
    logger.Close();

    EXPECT_EQ(TextsOf(logger), expected);
}

TEST(LineQueueTest, ThousandsOfThreadsThatWaitDoNotStopTheLog)
{
    const std::size_t count = Slowness() == 1 ? 8000 : 200;
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    Crowd crowd(logger, count);
    std::vector<std::string> expected{"first\n"};
    for (std::size_t number = 0; number < count; ++number) {
        if (!crowd.StartNext()) {
            ASSERT_GT(number, 100U) << "too few threads can be created";
            break;
        }
        expected.push_back(std::to_string(number) + "\n");
    }
    EXPECT_TRUE(crowd.AllComeToSleep());

    logger << "first" << std::endl;
    crowd.Join();  // first: on a starved machine thousands of lines take longer than one wait
    EXPECT_THAT(AwaitLines(logger, expected.size()), SizeIs(expected.size()));
    logger.Close();

    std::vector<std::string> texts = TextsOf(logger);
    std::sort(texts.begin(), texts.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(texts, expected);
}

TEST(LineQueueTest, CloseLetsAllWaitingThreadsContinueWithoutALine)
{
    const std::size_t count = Slowness() == 1 ? 500 : 100;
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    Crowd crowd(logger, count);
    for (std::size_t number = 0; number < count; ++number) {
        ASSERT_TRUE(crowd.StartNext());
    }
    EXPECT_TRUE(crowd.AllComeToSleep());

    logger.Close();
    crowd.Join();

    EXPECT_THAT(TextsOf(logger), IsEmpty());
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "next");
    logger.Close();
    EXPECT_THAT(TextsOf(logger), ElementsAre("next\n"));
}

TEST(LineQueueTest, ThreadThatGivesUpWaitingLeavesTheLineToThoseBehindIt)
{
    // At the head of the queue, and in the middle.
    for (const bool atTheHead : {true, false}) {
        CapturingLogger logger;
        ASSERT_TRUE(logger.Enable());
        logger.WriteHeader(LogType::Info);
        std::vector<std::thread> threads;
        std::vector<std::string> expected{"open\n"};
        if (!atTheHead) {
            threads.push_back(SleepingThread([&logger] { WriteLine(logger, "before"); }));
            expected.emplace_back("before\n");
        }
        std::thread giving =
            SleepingThread([&logger] { EXPECT_FALSE(logger.ChangeOutput("never")); });
        for (const char* const text : {"1", "2"}) {
            threads.push_back(SleepingThread([&logger, text] { WriteLine(logger, text); }));
        }
        expected.insert(expected.end(), {"1\n", "2\n"});

        giving.join();
        logger << "open" << std::endl;
        for (std::thread& thread : threads) {
            thread.join();
        }
        logger.Close();

        EXPECT_EQ(TextsOf(logger), expected);
        EXPECT_THAT(logger.GetPolicy().Outputs(), IsEmpty());
    }
}

TEST(LineQueueTest, LineThatBecomesFreeWhenAThreadGivesUpIsNotLostToThoseBehindIt)
{
    constexpr int loggers = 16;
    std::vector<std::thread> rounds;
    for (int round = 0; round < loggers; ++round) {
        rounds.emplace_back([round] {
            CapturingLogger logger;
            EXPECT_TRUE(logger.Enable());
            logger.WriteHeader(LogType::Info);
            std::atomic<bool> changed = false;
            const auto start = std::chrono::steady_clock::now();
            std::thread giving = SleepingThread([&] { changed = logger.ChangeOutput("other"); });
            std::thread behind = SleepingThread([&logger] { WriteLine(logger, "behind"); });

            std::this_thread::sleep_until(start + longestLogWait +
                                          std::chrono::microseconds(100) * round);
            logger << "open" << std::endl;
            giving.join();
            behind.join();
            logger.Close();

            EXPECT_THAT(TextsOf(logger), ElementsAre("open\n", "behind\n"));
            EXPECT_THAT(logger.GetPolicy().Outputs(), SizeIs(changed ? 1 : 0));
        });
    }
    for (std::thread& thread : rounds) {
        thread.join();
    }
}

}  // namespace
