// Which thread gets the line of a logger, and when.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <ostream>
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
using Tolvex::Support::TextsOf;
using Tolvex::Support::TimesSlept;
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
    std::thread second = SleepingThread([&] {
        logger.WriteHeader(LogType::Info);
        begun = true;
        logger << "second" << std::endl;
    });
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

TEST(LineLockTest, ThreadThatWasWokenGetsTheNextLineThoughAnotherThreadIsFaster)
{
    constexpr int rounds = 200;
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    for (int round = 0; round < rounds; ++round) {
        std::atomic<pid_t> thread = 0;
        std::atomic<bool> written = false;
        logger.WriteHeader(LogType::Info);
        std::thread waiting([&] {
            thread = gettid();
            WriteLine(logger, "waited");
            written = true;
        });
        EXPECT_TRUE(Eventually([&] { return thread != 0 && Sleeps(thread); }));
        const unsigned long slept = TimesSlept(thread);

        logger << "0" << std::endl;
        // Often faster than the thread that the writer wakes now.
        logger.WriteHeader(LogType::Info);
        logger << "1";
        // That thread comes too late and sleeps once more, or has written its line before.
        EXPECT_TRUE(Eventually([&] { return written || TimesSlept(thread) > slept; }));
        logger << std::endl;
        WriteLine(logger, "2");
        waiting.join();
    }
    logger.Close();

    const std::vector<std::string> texts = TextsOf(logger);
    ASSERT_THAT(texts, SizeIs(4 * rounds));
    for (auto round = texts.begin(); round != texts.end(); round += 4) {
        EXPECT_EQ(round[0], "0\n");
        EXPECT_EQ(round[3], "2\n") << "overtaken twice: " << round[1] << round[2];
    }
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

TEST(LineLockTest, CloseInTheMiddleOfALineDropsItAndLetsWaitingThreadsContinue)
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
