// Loggers in forked children.
#include <atomic>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LoggerBase.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/HeldLogger.h"
#include "tests/Support/Manipulators.h"
#include "tests/Support/SleepingThread.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Ilog::ILogPolicy;
using Tolvex::Ilog::LoggerBase;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Closing;
using Tolvex::Support::GivingItBack;
using Tolvex::Support::HeldLogger;
using Tolvex::Support::LinesOf;
using Tolvex::Support::loggerOfManipulator;
using Tolvex::Support::RunInChild;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::TakingTheBuffer;
using Tolvex::Support::ThreadsBusyAtFork;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;

// A stream raises one when it is destroyed, or when its format is reset.
int eraseEvents = 0;

void CountEraseEvents(std::ios_base::event event, std::ios_base&, int)
{
    eraseEvents += event == std::ios_base::erase_event ? 1 : 0;
}

std::ostream& CountingEraseEvents(std::ostream& stream)
{
    stream.register_callback(CountEraseEvents, 0);
    return stream;
}

/// Keeps the last line, without a lock that the parent of a forked child could hold.
class LastLinePolicy : public ILogPolicy
{
public:
    void Write(const std::string& line) override { last = line; }

    std::string last;  ///< the writer's until the logger is closed
};

TEST(LoggerForkTest, ForkedChildFindsTheLoggerDisabledAndMayEnableIt)
{
    LoggerBase<LastLinePolicy> logger;
    std::atomic<bool> running = true;
    ASSERT_TRUE(logger.Enable());
    std::vector<std::thread> threads;
    for (int thread = 0; thread < ThreadsBusyAtFork(4); ++thread) {
        threads.emplace_back([&] {
            while (running) {
                logger.WriteHeader(LogType::Info);
                logger << "parent" << std::endl;
            }
        });
    }

    for (int round = 0; round < 8; ++round) {
        const auto child = RunInChild([&logger] {
            EXPECT_FALSE(logger.IsEnabled());
            logger.WriteHeader(LogType::Info);
            logger << "dropped, and does not block" << std::endl;
            EXPECT_TRUE(logger.Enable());
            logger.WriteHeader(LogType::Info);
            logger << "child";
            logger.DropLine();
            EXPECT_TRUE(logger.IsEnabled());
            CapturingLogger other;
            EXPECT_TRUE(other.Enable());
            WriteLine(other, "child");
            EXPECT_THAT(AwaitLines(other, 1), SizeIs(1));
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }

    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(logger.IsEnabled());
    logger.WriteHeader(LogType::Info);
    logger << "last" << std::endl;
    logger.Close();
    EXPECT_EQ(WithoutDate(logger.GetPolicy().last), "last\n");
}

TEST(LoggerForkTest, ForkedChildMayDestroyTheLogger)
{
    auto logger = std::make_unique<CapturingLogger>();
    ASSERT_TRUE(logger->Enable());
    WriteLine(*logger, "parent");
    AwaitLines(*logger, 1);

    const auto child = RunInChild([&logger] {
        logger.reset();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerForkTest, ForkedChildHasNoneOfTheThreadsThatWaitInTheParent)
{
    HeldLogger held;
    CapturingLogger& logger = held.logger;
    std::thread waiting = SleepingThread([&logger] { WriteLine(logger, "parent"); });

    const auto child = RunInChild([&logger] {
        logger.GetPolicy().onWrite = nullptr;
        EXPECT_TRUE(logger.Enable());
        for (int line = 0; line < 100; ++line) {
            WriteLine(logger, "child");
        }
        EXPECT_THAT(AwaitLines(logger, 100), SizeIs(100));
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    held.LetGo();
    waiting.join();
    EXPECT_THAT(AwaitLines(logger, 2), SizeIs(2));
}

std::ostream& Forking(std::ostream& stream)
{
    const auto child = RunInChild([] {
        WriteLine(*loggerOfManipulator, "dropped");
        EXPECT_TRUE(loggerOfManipulator->Enable());
        WriteLine(*loggerOfManipulator, "child");
        const auto lines = AwaitLines(*loggerOfManipulator, 1);
        EXPECT_THAT(lines, SizeIs(1));
        EXPECT_EQ(WithoutDate(lines.back()), "child\n");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    return stream;
}

TEST(LoggerForkTest, ForkInTheMiddleOfALineDropsItInTheChildOnly)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        loggerOfManipulator = &logger;
        logger.WriteHeader(LogType::Info);
        logger << "parent" << Forking << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("parent\n"));
}

/// The process is forked in a moment in which the state of the stream is unknown: here, without a
/// buffer. The child does not touch it.
void ForkWithUnusableStream()
{
    const ChildResult child = RunInChild([] {
        eraseEvents = 0;
        CapturingLogger& logger = *loggerOfManipulator;
        EXPECT_TRUE(logger.Enable());
        WriteLine(logger, "whole");
        const auto lines = AwaitLines(logger, 1);
        EXPECT_THAT(lines, SizeIs(1));
        EXPECT_EQ(lines.empty() ? "" : WithoutDate(lines[0]), "whole\n");
        EXPECT_EQ(eraseEvents, 0);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

std::ostream& ForkingInTheInsertion(std::ostream& stream)
{
    TakingTheBuffer(CountingEraseEvents(stream));
    ForkWithUnusableStream();
    return GivingItBack(stream);
}

TEST(LoggerForkTest, ForkInTheMiddleOfAnInsertionGivesTheChildANewStream)
{
    CapturingLogger logger;
    loggerOfManipulator = &logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    logger << "half" << ForkingInTheInsertion << std::endl;

    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

TEST(LoggerForkTest, ForkInTheMiddleOfAnInsertionIntoADroppedLineGivesTheChildANewStream)
{
    CapturingLogger logger;
    loggerOfManipulator = &logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    logger << "half" << +[](std::ostream& stream) -> std::ostream& {
        return ForkingInTheInsertion(Closing(stream));
    };

    EXPECT_THAT(logger.GetPolicy().Lines(), IsEmpty());
}

TEST(LoggerForkTest, ForkBetweenTwoLinesLetsTheChildKeepTheStream)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    logger << "parent" << CountingEraseEvents << std::endl;
    logger.Close();
    eraseEvents = 0;

    const ChildResult child = RunInChild([&logger] {
        EXPECT_TRUE(logger.Enable());
        WriteLine(logger, "child");
        EXPECT_THAT(AwaitLines(logger, 2), SizeIs(2));
        EXPECT_EQ(eraseEvents, 1);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerForkTest, ForkWhileALineIsBeingWrittenGivesTheChildANewStream)
{
    CapturingLogger logger;
    loggerOfManipulator = &logger;
    logger.GetPolicy().onWrite = [](const std::string& line) {
        if (WithoutDate(line) == "forks\n") {
            ForkWithUnusableStream();
        }
    };
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    logger << +[](std::ostream& stream) -> std::ostream& {
        return TakingTheBuffer(stream << "forks\n");
    };

    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

}  // namespace
