// Forks at the very moment in which another thread first uses the library. Not for the thread
// sanitizer, whose pthread_once() leaves the child waiting for that thread.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/EnumString.h"
#include "Tolvex/Util/Timer.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

namespace {

constexpr int timerStackBytes = 65536;

/// Where the thread that first uses the library is held up.
struct Halt
{
    int registration;  ///< the how manieth of the calls that prepare for forks
    bool afterwards;   ///< when it is done, and not before
};

Halt halt = {0, false};
std::atomic<int> registrations = 0;
std::atomic<bool> halted = false;

}  // namespace

// What pthread_atfork() calls.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* object)
{
    static auto* const real =
        Tolvex::Support::RealFunction<int(void (*)(), void (*)(), void (*)(), void*)>(
            "__register_atfork");
    const bool here = ++registrations == halt.registration;
    const auto stop = [here](bool afterwards) {
        if (here && halt.afterwards == afterwards) {
            halted = true;
            halted.wait(true);
        }
    };
    stop(false);
    const int error = real(prepare, parent, child, object);
    stop(true);
    return error;
}

namespace {

using namespace std::chrono_literals;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::LogFile;
using Tolvex::Support::RunInChild;
using Tolvex::Util::EnumStringMutex;
using Tolvex::Util::Timer;

/// Has a thread begin with firstUse, halts it, and calls work meanwhile; each in a process that has
/// not used the library before.
template <typename FirstUse, typename Work>
ChildResult RunWhileHalted(Halt where, FirstUse firstUse, Work work)
{
    return RunInChild([&] {
        halt = where;
        std::thread first(firstUse);
        halted.wait(false);
        work();
        halted = false;
        halted.notify_all();
        first.join();
        return 0;
    });
}

void ExpectOneLine(const std::string& text)
{
    LogFile log;
    LogLine(LogType::Info, LogModule::CELL) << text;
    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre("[#CELL]" + text));
}

void ExpectAnExpiry()
{
    std::atomic<bool> expired = false;
    const Timer timer(
        1, [&expired](Timer*) { expired = true; }, nullptr, timerStackBytes);
    EXPECT_TRUE(Tolvex::Support::Eventually([&expired] { return expired.load(); }));
}

/// A child and a child of that, which have to find all locks free, and expectation in both.
void ExpectInChildren(void (*expectation)())
{
    const ChildResult child = RunInChild([expectation] {
        expectation();
        const ChildResult grandchild = RunInChild([expectation] {
            expectation();
            return 0;
        });
        EXPECT_TRUE(grandchild.Succeeded()) << grandchild.output;
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

/// By where the thread is halted that makes the logger.
class FirstLogForkTest : public ::testing::TestWithParam<Halt>
{
};

TEST(FirstTextForkTest, NoThreadLocksTheTextsBeforeForksArePreparedFor)
{
    const ChildResult result = RunWhileHalted({1, false}, EnumStringMutex, [] {
        std::atomic<bool> locked = false;
        std::thread second([&locked] {
            const std::lock_guard lock(EnumStringMutex());
            locked = true;
        });
        std::this_thread::sleep_for(100ms);
        EXPECT_FALSE(locked);
        second.detach();
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_P(FirstLogForkTest, ChildrenLogWhateverTheFirstLogWasHaltedIn)
{
    const ChildResult result = RunWhileHalted(
        GetParam(), Logger::GetInstance, [] { ExpectInChildren([] { ExpectOneLine("text"); }); });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// The tables are prepared for first, the loggers then.
INSTANTIATE_TEST_SUITE_P(, FirstLogForkTest,
                         ::testing::Values(Halt{1, false}, Halt{1, true}, Halt{2, false},
                                           Halt{2, true}));

/// By whether the thread that makes the first timer is halted after forks are prepared for.
class FirstTimerForkTest : public ::testing::TestWithParam<bool>
{
};

TEST_P(FirstTimerForkTest, ChildrenHaveTimersWhateverTheFirstTimerWasHaltedIn)
{
    const ChildResult result = RunWhileHalted(
        {1, GetParam()},
        [] {
            const Timer timer(
                1000, [](Timer*) {}, nullptr, timerStackBytes);
        },
        [] { ExpectInChildren(ExpectAnExpiry); });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

INSTANTIATE_TEST_SUITE_P(, FirstTimerForkTest, ::testing::Bool());

}  // namespace
