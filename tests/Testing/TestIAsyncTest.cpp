// The calls of the driver. Its sleeps and its threads are replaced: a sleep takes no time, and the
// test itself runs the function of a new thread. Not for the thread sanitizer, whose own threads
// would call the replaced functions.
#include "Tolvex/Testing/Private/TestIAsync.h"

#include <bit>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <pthread.h>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Types/Export.h"

#include "tests/Support/ChildProcess.h"

namespace {

using Tolvex::Util::IAsync;

static_assert(std::is_empty_v<TestIAsync>);

/// Thrown to leave the endless loop of the driver.
struct EndOfLoop
{
};

std::vector<std::string> record;
std::vector<IAsync*> started;  ///< arguments of the new threads
int sleepsToCome = 0;          ///< the next sleep after them ends the loop

}  // namespace

extern "C" {

int nanosleep(const timespec* asked, timespec*)
{
    record.push_back("sleep " + std::to_string(asked->tv_sec) + "s " +
                     std::to_string(asked->tv_nsec) + "ns");
    if (sleepsToCome-- == 0) {
        throw EndOfLoop();
    }
    return 0;
}

int pthread_create(pthread_t*, const pthread_attr_t*, void* (*entry)(void*), void* argument)
{
    record.push_back(entry == IAsync::RunThread ? "start a callback" : "start something else");
    started.push_back(static_cast<IAsync*>(argument));
    return EAGAIN;
}

}  // extern "C"

/// The library's main with a driver whose constructor returns.
namespace Returning {

class TestIAsync
{
public:
    static void* operator new(std::size_t)
    {
        static char place;
        return &place;
    }
    static void operator delete(void*) {}
};

#define main Main
#include "Tolvex/Testing/main.cpp"  // NOLINT(bugprone-suspicious-include)
#undef main

}  // namespace Returning

namespace {

using Texts = std::vector<std::string>;

class TestIAsyncTest : public testing::Test
{
protected:
    void SetUp() override
    {
        record.clear();
        started.clear();
        sleepsToCome = 2;
    }

    void TearDown() override
    {
        for (const IAsync* async : started) {
            delete async;
        }
    }

    /// Runs the driver's loop up to the third sleep. @return what it printed.
    std::string RunThreePasses()
    {
        testing::internal::CaptureStdout();
        EXPECT_THROW(driver.RunTest(), EndOfLoop);
        return testing::internal::GetCapturedStdout();
    }

    TestIAsync driver = std::bit_cast<TestIAsync>('\0');  ///< its constructor would never return
};

TEST_F(TestIAsyncTest, EveryPassStartsACallbackThenSleepsOneSecondThenPrintsItsLine)
{
    const std::string printed = RunThreePasses();

    EXPECT_EQ(record, (Texts{"start a callback", "sleep 1s 0ns", "start a callback", "sleep 1s 0ns",
                             "start a callback", "sleep 1s 0ns"}));
    EXPECT_EQ(printed, "I'm on Main Thread.....\nI'm on Main Thread.....\n");
}

TEST_F(TestIAsyncTest, ConstructorRunsTheLoop)
{
    sleepsToCome = 0;

    EXPECT_THROW(TestIAsync(), EndOfLoop);

    EXPECT_EQ(record, (Texts{"start a callback", "sleep 1s 0ns"}));
}

TEST_F(TestIAsyncTest, EveryCallbackComesAfterSixSecondsWithoutUserData)
{
    RunThreePasses();
    ASSERT_EQ(started.size(), 3U);
    sleepsToCome = 3;

    for (IAsync* async : started) {
        record.clear();
        EXPECT_EQ(async->GetUserData(), nullptr);
        testing::internal::CaptureStdout();
        EXPECT_EQ(IAsync::RunThread(async), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "I'm on Async Thread.....\n");
        EXPECT_EQ(record, Texts{"sleep 6s 0ns"});
    }
    started.clear();  // deleted by their callbacks
}

TEST_F(TestIAsyncTest, DoCallbackPrintsItsLineAndDeletesTheObject)
{
    const auto token = std::make_shared<int>(0);
    auto* const async = new IAsync(
        std::chrono::milliseconds(0), [token](IAsync*) {}, nullptr);
    started.clear();
    ASSERT_EQ(token.use_count(), 2);

    testing::internal::CaptureStdout();
    driver.DoCallback(async);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "I'm on Async Thread.....\n");
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TestIAsyncTest, DoCallbackOfNullPrintsItsLineOnly)
{
    testing::internal::CaptureStdout();
    driver.DoCallback(nullptr);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "I'm on Async Thread.....\n");
}

TEST(DriverMainTest, SaysByeByeAndExitsThoughTheDriverNeverLetsItComeThere)
{
    const auto child = Tolvex::Support::RunInChild([] {
        Returning::Main();
        return 7;
    });

    EXPECT_EQ(child.ExitCode(), 0);
    EXPECT_EQ(child.output, "Bye Bye\n");
}

}  // namespace
