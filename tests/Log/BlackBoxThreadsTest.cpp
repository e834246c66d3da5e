// The black box of the log where threads, forked children and open lines meet.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <ostream>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/BlackBox.h"
#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Gate.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProcessLog.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SleepingThread.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::CancellableStack;
using Tolvex::Support::Gate;
using Tolvex::Support::LastLines;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::OpenBlackBox;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::Scaled;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::SplitLines;
using Tolvex::Support::ThreadsBusyAtFork;
using Tolvex::Support::WriteLine;

Logger& logger = *Logger::GetInstance();

std::ostream& Throwing(std::ostream& /*stream*/)
{
    throw std::runtime_error("thrown");
}

TEST(BlackBoxThreadsTest, ThreadsThatEnableItForTheFirstTimeAtOnceMakeOne)
{
    for (int round = 0; round < 20; ++round) {
        const auto child = RunInChild([] {  // no test has made one yet
            std::atomic<int> ready = 0;
            std::vector<std::thread> threads;
            for (int thread = 0; thread < 3; ++thread) {
                threads.emplace_back([&ready] {
                    for (++ready; ready < 3;) {
                    }
                    EXPECT_TRUE(logger.EnableBlackBox(10));
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            WriteLine("line");
            EXPECT_THAT(LastLines(), ElementsAre("line"));
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }
}

// Closing an output that is closed already must not take another one out of the count.
TEST(BlackBoxThreadsTest, OutputThatIsEnabledWhileAnotherOneIsClosedGetsItsLines)
{
    std::atomic<bool> running = true;
    std::thread closing([&running] {
        while (running) {
            logger.CloseFile();
        }
    });
    const int rounds = static_cast<int>(Scaled(200000));
    int kept = 0;
    for (int round = 0; round < rounds; ++round) {
        const OpenBlackBox box(1);
        WriteLine("line");
        kept += LastLines().size() == 1;
    }
    running = false;
    closing.join();

    EXPECT_EQ(kept, rounds);
}

TEST(BlackBoxThreadsTest, LinesOfAllThreadsAreWholeAndThereOnce)
{
    constexpr int threadCount = 4;
    constexpr int lineCount = 2000;
    const OpenBlackBox box(8000);
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([number] {
            for (int line = 0; line < lineCount; ++line) {
                if (line % 2 == 0) {
                    LogLine(LogType::Info) << number << " " << line << " end";
                } else {
                    logger.WriteHeader(LogType::Info);
                    logger << number << " " << line << " end" << std::endl;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::map<std::string, int> next;
    const std::vector<std::string> lines = LastLines();
    ASSERT_THAT(lines, SizeIs(threadCount * lineCount));
    for (const std::string& line : lines) {
        const std::string thread = line.substr(0, 1);
        ASSERT_EQ(line, thread + " " + std::to_string(next[thread]++) + " end");
    }
}

TEST(BlackBoxThreadsTest, OrderOfTheThreadsIsThatOfTheFile)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(2000);
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            for (int line = 0; line < 300; ++line) {
                LogLine(LogType::Info) << number << " " << line;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    logger.CloseFile();

    EXPECT_EQ(SplitLines(ReadFile(directory.Path("log"))), logger.GetLastLines());
}

TEST(BlackBoxThreadsTest, OpenLineIsKeptWhenItsThreadBeginsTheNext)
{
    const OpenBlackBox box(5);
    logger.WriteHeader(LogType::Info);
    logger << "open";
    EXPECT_THAT(LastLines(), IsEmpty());
    WriteLine("next");

    EXPECT_THAT(LastLines(), ElementsAre("open", "next"));
}

TEST(BlackBoxThreadsTest, LineThatIsGivenUpIsDropped)
{
    const OpenBlackBox box(5);
    logger.WriteHeader(LogType::Info);
    logger << "dropped";
    logger.DropLine();
    logger.WriteHeader(LogType::Info);
    EXPECT_THROW(logger << Throwing, std::runtime_error);
    std::thread([] {
        logger.WriteHeader(LogType::Info);
        logger << "left open";
    }).join();
    logger.WriteHeader(LogType::Info);
    logger << "open while it is closed";
    logger.CloseBlackBox();
    ASSERT_TRUE(logger.EnableBlackBox(5));
    logger << "of no line" << std::endl;
    WriteLine("next");

    EXPECT_THAT(LastLines(), ElementsAre("next"));
}

TEST(BlackBoxThreadsTest, CancelledThreadLeavesNoLineOpen)
{
    const OpenBlackBox box(1000000);
    for (int round = 0; round < 20; ++round) {
        Gate logged;
        std::thread thread([&logged] {
            const CancellableStack stack;
            WriteLine("of a cancelled thread");
            logged.Open();
            for (;;) {
                WriteLine("of a cancelled thread");
                logger.WriteHeader(LogType::Info);
                logger << "open";
                pthread_testcancel();
            }
        });
        EXPECT_TRUE(logged.Pass());
        pthread_cancel(thread.native_handle());
        thread.join();
        WriteLine("after it");
        ASSERT_EQ(LastLines().back(), "after it");
    }
}

TEST(BlackBoxThreadsTest, WatchdogSavesWhileAnotherThreadHangsInALine)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(5);
    WriteLine("before");
    logger.WriteHeader(LogType::Info);
    logger << "hanging";

    std::thread waiting = SleepingThread([] { WriteLine("waiting"); });
    std::thread([&directory] {
        EXPECT_TRUE(logger.SaveLastLines(directory.Path("saved")));
        EXPECT_THAT(LastLines(), ElementsAre("before"));
    }).join();
    logger << std::endl;
    waiting.join();

    EXPECT_THAT(SplitLines(ReadFile(directory.Path("saved"))), SizeIs(1));
    EXPECT_THAT(LastLines(), ElementsAre("before", "hanging", "waiting"));
}

/// Leaves a line open on a thread of its own.
class OpenLine
{
public:
    OpenLine() { EXPECT_TRUE(begun.Pass()); }
    ~OpenLine() { End(); }

    OpenLine(const OpenLine&) = delete;
    OpenLine& operator=(const OpenLine&) = delete;

    /// Ends the line.
    void End()
    {
        if (thread.joinable()) {
            leave.Open();
            thread.join();
        }
    }

private:
    Gate begun;
    Gate leave;
    std::thread thread = std::thread([this] {
        logger.WriteHeader(LogType::Info);
        logger << "open";
        begun.Open();
        EXPECT_TRUE(leave.Pass());
        logger << " and ended" << std::endl;
    });
};

TEST(BlackBoxThreadsTest, LineThatStaysOpenKeepsTheBoxAsItIs)
{
    const OpenBlackBox box(2);
    for (const char* const text : {"one", "two", "three"}) {
        WriteLine(text);
    }
    OpenLine line;
    for (const std::size_t lines : {std::size_t{1}, std::size_t{3}}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(logger.EnableBlackBox(lines));
        EXPECT_GE(std::chrono::steady_clock::now() - start, longestLogWait);
        EXPECT_TRUE(logger.IsBlackBoxEnabled());
        EXPECT_THAT(LastLines(), ElementsAre("two", "three"));
    }

    line.End();
    EXPECT_THAT(LastLines(), ElementsAre("three", "open and ended"));
    WriteLine("next");
    EXPECT_THAT(LastLines(), ElementsAre("open and ended", "next"));
}

TEST(BlackBoxThreadsTest, ClosingDropsTheLineThatAnotherThreadHasOpen)
{
    const OpenBlackBox box(5);
    WriteLine("before");
    OpenLine line;

    logger.CloseBlackBox();

    EXPECT_FALSE(logger.IsBlackBoxEnabled());
    EXPECT_THAT(LastLines(), IsEmpty());
    EXPECT_TRUE(logger.EnableBlackBox(5));
    WriteLine("next");
    line.End();
    WriteLine("last");
    EXPECT_THAT(LastLines(), ElementsAre("next", "last"));
}

Gate inManipulator;
Gate leaveManipulator;

std::ostream& Hang(std::ostream& stream)
{
    inManipulator.Open();
    EXPECT_TRUE(leaveManipulator.Pass());
    return stream;
}

TEST(BlackBoxThreadsTest, ClosingWaitsForAManipulatorThatHangsAndThenDropsItsLine)
{
    const OpenBlackBox box(5);
    std::thread composer([] {
        logger.WriteHeader(LogType::Info);
        logger << Hang << std::endl;
    });
    EXPECT_TRUE(inManipulator.Pass());
    const auto start = std::chrono::steady_clock::now();

    logger.CloseBlackBox();

    EXPECT_GE(std::chrono::steady_clock::now() - start, longestLogWait);
    EXPECT_FALSE(logger.IsBlackBoxEnabled());
    leaveManipulator.Open();
    composer.join();
    EXPECT_TRUE(logger.EnableBlackBox(5));
    EXPECT_THAT(LastLines(), IsEmpty());
}

bool isChild = false;

std::ostream& ForkAndEndLine(std::ostream& stream)
{
    const pid_t child = fork();
    isChild = child == 0;
    if (!isChild) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    return stream << "\n";
}

TEST(BlackBoxThreadsTest, LineWhoseManipulatorForksIsKeptInTheParentOnly)
{
    const OpenBlackBox box(5);
    WriteLine("before");
    logger.WriteHeader(LogType::Info);
    logger << "in two processes" << ForkAndEndLine;
    if (isChild) {
        alarm(20);
        _exit(LastLines() == std::vector<std::string>{"before"} ? 0 : 1);
    }
    EXPECT_THAT(LastLines(), ElementsAre("before", "in two processes"));
}

std::ostream& ReopenAndEndLine(std::ostream& stream)
{
    logger.CloseBlackBox();
    EXPECT_TRUE(logger.EnableBlackBox(5));
    return stream << "\n";
}

TEST(BlackBoxThreadsTest, LineWhoseManipulatorClosesTheBoxIsDropped)
{
    const OpenBlackBox box(5);
    logger.WriteHeader(LogType::Info);
    logger << "dropped" << ReopenAndEndLine;
    WriteLine("next");

    EXPECT_THAT(LastLines(), ElementsAre("next"));
}

TEST(BlackBoxThreadsTest, ClosingLetsWaitingThreadsContinueWithoutALine)
{
    const OpenBlackBox box(5);
    logger.WriteHeader(LogType::Info);
    std::thread waiting = SleepingThread([] { WriteLine("waiting"); });
    logger.CloseBlackBox();
    waiting.join();

    EXPECT_FALSE(logger.IsBlackBoxEnabled());
}

TEST(BlackBoxThreadsTest, EnablingAndClosingBesideLinesNeitherHangsNorTears)
{
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&running] {
            while (running) {
                WriteLine("whole");
            }
        });
        threads.emplace_back([&running] {
            while (running) {
                for (const std::string& line : LastLines()) {
                    EXPECT_EQ(line, "whole");
                }
            }
        });
    }
    const std::size_t rounds = Scaled(20000);
    for (std::size_t round = 0; round < rounds; ++round) {
        EXPECT_TRUE(logger.EnableBlackBox(round % 7 + 1));
        EXPECT_TRUE(logger.EnableBlackBox(round % 5 + 1));
        logger.CloseBlackBox();
    }
    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(LastLines(), IsEmpty());
}

TEST(BlackBoxThreadsTest, EnablingAndClosingLosesNoLineOfTheFile)
{
    const ScratchDirectory directory;
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&running] {
            while (running) {
                EXPECT_TRUE(logger.EnableBlackBox(1));
                logger.CloseBlackBox();
            }
        });
    }
    for (int line = 0; line < 3000; ++line) {
        WriteLine("text");
    }
    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    logger.CloseFile();

    EXPECT_THAT(SplitLines(ReadFile(directory.Path("log"))), SizeIs(3000));
}

TEST(BlackBoxThreadsTest, ForkedChildHasTheLinesAndMayContinue)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(100);
    WriteLine("first");
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
    for (int number = 0; number < ThreadsBusyAtFork(3); ++number) {
        threads.emplace_back([&running, number] {
            while (running) {
                WriteLine("parent");
                if (number == 0) {
                    LastLines();
                }
            }
        });
    }

    for (int round = 0; round < 20; ++round) {
        const auto child = RunInChild([&directory] {
            EXPECT_FALSE(logger.IsBlackBoxEnabled());
            const std::vector<std::string> inherited = LastLines();
            EXPECT_FALSE(inherited.empty());
            for (const std::string& line : inherited) {
                EXPECT_TRUE(line == "parent" || line == "first") << line;
            }
            WriteLine("dropped");
            EXPECT_TRUE(logger.SaveLastLines(directory.Path("child")));
            EXPECT_EQ(LastLines(), inherited);

            EXPECT_TRUE(logger.EnableBlackBox(inherited.size() + 1));
            WriteLine("child");
            std::vector<std::string> all = inherited;
            all.emplace_back("child");
            EXPECT_EQ(LastLines(), all);
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }

    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(logger.IsBlackBoxEnabled());
}

TEST(BlackBoxThreadsTest, ExitWaitsForNoThreadThatLogs)
{
    const auto child = RunInChild([] {
        const OpenBlackBox box(100);
        for (int number = 0; number < 3; ++number) {
            std::thread([] {
                for (;;) {
                    WriteLine("text");
                    LastLines();
                }
            }).detach();
        }
        WriteLine("last");
        std::exit(7);
        return 0;
    });
    EXPECT_EQ(child.ExitCode(), 7) << child.output;
}

}  // namespace
