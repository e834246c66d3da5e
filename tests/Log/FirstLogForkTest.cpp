// Forks while another thread makes the logger. Not for the thread sanitizer
// (tests/Support/ForkRegistrations.h).
#include <atomic>
#include <ctime>
#include <functional>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"
#include "tests/Support/Gate.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

namespace {

using Tolvex::Support::Gate;

std::function<void()> inFork;                  // called by the next fork, before the child exists
thread_local Gate* gateToLocalTime = nullptr;  // this thread passes it before it gets the time

}  // namespace

extern "C" tm* localtime_r(const time_t* time, tm* result)
{
    if (Gate* const gate = std::exchange(gateToLocalTime, nullptr)) {
        gate->Pass();
    }
    return Tolvex::Support::RealFunction<tm*(const time_t*, tm*)>("localtime_r")(time, result);
}

namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::ExpectInChildren;
using Tolvex::Support::HaltRow;
using Tolvex::Support::LogFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunWhileHalted;
using Tolvex::Support::Sleeps;

void ExpectOneLine(const std::string& text)
{
    LogFile log;
    LogLine(LogType::Info, LogModule::CELL) << text;
    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre("[#CELL]" + text));
}

/// By where the thread is halted that makes the logger.
class FirstLogForkTest : public ::testing::TestWithParam<HaltRow>
{
};

TEST_P(FirstLogForkTest, ChildrenLogWhateverTheFirstLogWasHaltedIn)
{
    const ChildResult result = RunWhileHalted(GetParam().halt, Logger::GetInstance, [] {
        ExpectInChildren([] { ExpectOneLine("text"); });
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// The fork handlers are registered in this order: tables, time zone, loggers.
INSTANTIATE_TEST_SUITE_P(Halted, FirstLogForkTest,
                         ::testing::Values(HaltRow{"BeforeTheHandlersOfTheTables", {1, false}},
                                           HaltRow{"AfterTheHandlersOfTheTables", {1, true}},
                                           HaltRow{"BeforeTheHandlersOfTheTimeZone", {2, false}},
                                           HaltRow{"AfterTheHandlersOfTheTimeZone", {2, true}},
                                           HaltRow{"BeforeTheHandlersOfTheLoggers", {3, false}},
                                           HaltRow{"AfterTheHandlersOfTheLoggers", {3, true}}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(FirstTimeZoneForkTest, ChildrenLogWhateverTheFirstReadingOfTheTimeZoneWasHaltedIn)
{
    for (const bool afterwards : {false, true}) {
        const ChildResult result =
            RunWhileHalted({1, afterwards}, Tolvex::Util::RefreshTimeZone,
                           [] { ExpectInChildren([] { ExpectOneLine("text"); }); });

        EXPECT_TRUE(result.Succeeded()) << result.output;
    }
}

TEST(FirstLineForkTest, ForkThatBeginsBeforeTheFirstLineLeavesNoLockTakenInTheChild)
{
    const ChildResult result = RunInChild([] {
        const auto callInFork = [] {
            if (inFork) {
                std::exchange(inFork, nullptr)();
            }
        };
        // Registered before the library registers anything, so it is called last.
        EXPECT_EQ(pthread_atfork(callInFork, nullptr, nullptr), 0);
        LogFile log;
        Gate forking;
        Gate forked;
        std::atomic<pid_t> thread = 0;
        std::thread first([&] {
            forking.Pass();
            thread = gettid();
            gateToLocalTime = &forked;
            LogLine(LogType::Info) << "first";
        });
        inFork = [&] {
            forking.Open();
            // It holds the time zone and waits for the gate, or it waits for the end of the fork.
            EXPECT_TRUE(Eventually([&thread] { return thread != 0 && Sleeps(thread); }));
        };
        const ChildResult child = RunInChild([] {
            alarm(30);  // The child must not hang.
            ExpectOneLine("text");
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
        forked.Open();
        first.join();
        return 0;
    });
    EXPECT_TRUE(result.Succeeded()) << result.output;
}

}  // namespace
