// Which thread gets the line of a logger, and when.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
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
#include "Tolvex/Types/LogModule.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/Gate.h"
#include "tests/Support/HeldLogger.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/SleepingThread.h"

namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using Tolvex::LogModule;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::Eventually;
using Tolvex::Support::Gate;
using Tolvex::Support::HeldLogger;
using Tolvex::Support::Scaled;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::Sleeps;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;

TEST(LineLockTest, SecondLineWaitsUntilTheFirstHasBeenWritten)
{
    Gate writing;
    Gate written;
    CapturingLogger logger;
    std::atomic<int> calls = 0;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        if (++calls == 1) {
            writing.Open();
            EXPECT_TRUE(written.Pass());
        }
    };
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "first");
    ASSERT_TRUE(writing.Pass());

    std::atomic<bool> begun = false;
    std::thread second([&] {
        logger.WriteHeader(LogType::Info);
        begun = true;
        logger << "second" << std::endl;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(begun);

    written.Open();
    second.join();
    EXPECT_THAT(AwaitLines(logger, 2), SizeIs(2));
}

TEST(LineLockTest, WaitingThreadsGetTheLineInTheOrderInWhichTheyCame)
{
    HeldLogger held;
    CapturingLogger& logger = held.logger;
    std::vector<std::thread> threads;
    for (const char* const text : {"1", "2", "3", "4", "5", "6"}) {
        threads.push_back(SleepingThread([&logger, text] { WriteLine(logger, text); }));
    }

    held.LetGo();
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::vector<std::string> lines = AwaitLines(logger, 7);
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutDate);
    EXPECT_THAT(lines, ElementsAre("held\n", "1\n", "2\n", "3\n", "4\n", "5\n", "6\n"));
}

/// Keeps a thread, whatever it does, in a signal handler while the object exists.
class Detained
{
public:
    explicit Detained(pthread_t thread)
    {
        detain = true;
        inHandler = false;
        struct sigaction action
        {
        };
        action.sa_handler = [](int) {
            inHandler = true;
            while (detain) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            inHandler = false;
        };
        sigaction(SIGUSR1, &action, &before);
        pthread_kill(thread, SIGUSR1);
        EXPECT_TRUE(Eventually([] { return inHandler.load(); }));
    }

    ~Detained()
    {
        detain = false;
        EXPECT_TRUE(Eventually([] { return !inHandler; }));
        sigaction(SIGUSR1, &before, nullptr);
    }

    Detained(const Detained&) = delete;
    Detained& operator=(const Detained&) = delete;

private:
    inline static std::atomic<bool> detain = false;
    inline static std::atomic<bool> inHandler = false;
    struct sigaction before
    {
    };
};

/// Waits until the line before is written and its lock is free.
void AwaitFreeLine(CapturingLogger& logger)
{
    EXPECT_TRUE(logger.ChangeOutput(""));
}

void Overtake(CapturingLogger& logger, int lines)
{
    for (int line = 0; line < lines; ++line) {
        AwaitFreeLine(logger);
        WriteLine(logger, "overtaking");
    }
    AwaitFreeLine(logger);
}

/// All lines of a logger, without dates, once there are count. Of those that overtake only how
/// many.
std::vector<std::string> LinesAndOvertakings(CapturingLogger& logger, std::size_t count)
{
    std::vector<std::string> result;
    int overtakings = 0;
    for (const std::string& line : AwaitLines(logger, count)) {
        if (WithoutDate(line) != "overtaking\n") {
            overtakings = 0;
            result.push_back(WithoutDate(line));
            continue;
        }
        if (++overtakings == 1) {
            result.emplace_back();
        }
        result.back() = std::to_string(overtakings);
    }
    return result;
}

TEST(LineLockTest, EachThreadThatIsSlowToWakeIsOvertakenBy64Lines)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    for (int round = 0; round < 2; ++round) {
        logger.WriteHeader(LogType::Info);
        std::thread waiting = SleepingThread([&logger] { WriteLine(logger, "waiting"); });
        std::thread late;
        {
            const Detained detained(waiting.native_handle());
            logger << "before" << std::endl;
            Overtake(logger, 64);
            late = SleepingThread([&logger] { WriteLine(logger, "late"); });
        }
        waiting.join();
        late.join();
    }

    EXPECT_THAT(LinesAndOvertakings(logger, 134),
                ElementsAre("before\n", "64", "waiting\n", "late\n", "before\n", "64", "waiting\n",
                            "late\n"));
}

TEST(LineLockTest, WokenThreadThatFindsTheLineTakenAgainGetsTheNextOne)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    std::atomic<pid_t> number = 0;
    std::thread waiting = SleepingThread([&logger, &number] {
        number = gettid();
        WriteLine(logger, "waiting");
    });
    {
        const Detained detained(waiting.native_handle());
        logger << "before" << std::endl;
        AwaitFreeLine(logger);
        logger.WriteHeader(LogType::Info);
    }
    EXPECT_TRUE(Eventually([&number] { return Sleeps(number); }));

    std::thread late;
    {
        const Detained detained(waiting.native_handle());
        logger << "overtaking" << std::endl;
        AwaitFreeLine(logger);
        late = SleepingThread([&logger] { WriteLine(logger, "late"); });
    }
    waiting.join();
    late.join();

    EXPECT_THAT(LinesAndOvertakings(logger, 4),
                ElementsAre("before\n", "1", "waiting\n", "late\n"));
}

TEST(LineLockTest, ThreadThatGivesUpItsWaitLeavesTheOvertakingsOfTheFirst)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    std::thread waiting = SleepingThread([&logger] { WriteLine(logger, "waiting"); });
    std::thread refused = SleepingThread([&logger] { WriteLine(logger, "refused"); });
    std::thread late;
    {
        const Detained detained(waiting.native_handle());
        logger << "before" << std::endl;
        Overtake(logger, 64);
        logger.Close();
        refused.join();
        EXPECT_TRUE(logger.Enable());
        late = SleepingThread([&logger] { WriteLine(logger, "late"); });
    }
    waiting.join();
    late.join();

    EXPECT_THAT(LinesAndOvertakings(logger, 67),
                ElementsAre("before\n", "64", "waiting\n", "late\n"));
}

TEST(LineLockTest, LinesOfManyThreadsDoNotMixAndKeepTheirOrder)
{
    constexpr int threadCount = 8;
    const int lineCount = static_cast<int>(Scaled(20000));
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&logger, thread, lineCount] {
            for (int line = 0; line < lineCount; ++line) {
                logger.WriteHeader(LogType::Info);
                logger << LogModule::Event << thread << " " << line << " of " << thread
                       << std::endl;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    const auto lines =
        AwaitLines(logger, std::size_t{threadCount} * static_cast<std::size_t>(lineCount));
    ASSERT_THAT(lines, SizeIs(threadCount * lineCount));
    std::vector<int> next(threadCount, 0);
    for (const std::string& line : lines) {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(line.c_str() + 21, "%*[^#]#Event]%d %d", &thread, &number) == 2 ||
                      std::sscanf(line.c_str() + 21, "[#Event]%d %d", &thread, &number) == 2,
                  true)
            << line;
        ASSERT_EQ(number, next[static_cast<std::size_t>(thread)]++) << line;
        ASSERT_TRUE(line.ends_with("]" + std::to_string(thread) + " " + std::to_string(number) +
                                   " of " + std::to_string(thread) + "\n"))
            << line;
    }
}

TEST(LineLockTest, CloseInTheMiddleOfALineDropsItAndLetsWaitingThreadsGoOn)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    logger << "half";

    std::vector<std::thread> waiting;
    for (int thread = 0; thread < 4; ++thread) {
        waiting.emplace_back([&logger] { WriteLine(logger, "dropped"); });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::thread([&logger] { logger.Close(); }).join();
    for (std::thread& thread : waiting) {
        thread.join();
    }
    logger << "of it" << std::endl;
    ASSERT_TRUE(logger.Enable());
    logger << "still no line" << std::endl;
    WriteLine(logger, "new");

    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "new\n");
}

}  // namespace
