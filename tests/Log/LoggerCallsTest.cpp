// What the loggers ask of the C library, and what they do when it refuses or lies. Not for the
// thread sanitizer, whose own threads would call the functions that stand in here.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/Private/AdaptiveSpin.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Log/LoggerBase.h"
#include "Tolvex/Log/LoggerCore.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/EnumString.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/BlackBox.h"
#include "tests/Support/CancellableStack.h"
#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Gate.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SleepingThread.h"

namespace {

using Tolvex::Support::Gate;
using Tolvex::Support::RealFunction;

std::atomic<int> creationError = 0;
std::atomic<int> syncs = 0;  // calls of fdatasync()
std::atomic<time_t> clockOffset = 0;
std::atomic<bool> timerBlocks = false;
std::atomic<bool> timerIsBlocked = false;
std::atomic<pthread_t> createdLast = 0;

// So many mutexes of this thread can still be locked before one cannot; negative: all can.
thread_local int locksBeforeFailure = -1;

/// Where a thread is held up.
struct Halt
{
    /// Lets the other threads go on until it is left.
    void Wait()
    {
        reached.Open();
        left.Pass();
    }

    Gate reached;
    Gate left;
};

// The next mutex is locked by this thread only after the halt.
thread_local Halt* haltBeforeLock = nullptr;

// This thread begins its next line only after the halt.
thread_local Halt* haltBeforeLine = nullptr;

// This thread is told the time only after the halt.
thread_local Halt* haltBeforeTime = nullptr;

// This thread is told the local time only after the halt.
thread_local Halt* haltBeforeLocalTime = nullptr;

// This thread is told the monotonic time only after the halt.
thread_local Halt* haltBeforeClock = nullptr;
thread_local int clockReadings = 0;  // of this thread, since that halt

// Called by this thread when it has created another one.
thread_local std::function<void()> afterCreation;

// Sleeps of this thread take no time and are noted, in nanoseconds.
thread_local std::vector<long long>* sleeps = nullptr;

/// The sleeps during exit() when the thread that called it notes them here: with some, the process
/// ends by 3. Made before the library has anything to do at exit, so it comes after that.
struct ExitSleeps
{
    ~ExitSleeps()
    {
        if (sleeps == &noted && !noted.empty()) {
            _exit(3);
        }
    }

    std::vector<long long> noted;
};
ExitSleeps exitSleeps;

}  // namespace

extern "C" {

int fdatasync(int)
{
    ++syncs;
    return 0;
}

int nanosleep(const timespec* asked, timespec* remaining)
{
    if (sleeps != nullptr) {
        sleeps->push_back(static_cast<long long>(asked->tv_sec) * 1000000000 + asked->tv_nsec);
        return 0;
    }
    return clock_nanosleep(CLOCK_MONOTONIC, 0, asked, remaining) == 0 ? 0 : -1;
}

int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    static auto* const real = RealFunction<int(pthread_mutex_t*)>("pthread_mutex_lock");
    if (Halt* const halt = std::exchange(haltBeforeLock, nullptr)) {
        halt->Wait();
    }
    return locksBeforeFailure >= 0 && locksBeforeFailure-- == 0 ? EAGAIN : real(mutex);
}

int pthread_setspecific(pthread_key_t key, const void* value)
{
    if (Halt* const halt = std::exchange(haltBeforeLine, nullptr)) {
        halt->Wait();
    }
    return RealFunction<int(pthread_key_t, const void*)>("pthread_setspecific")(key, value);
}

// Fails as the lock would that it is tried before.
int pthread_mutex_trylock(pthread_mutex_t* mutex)
{
    static auto* const real = RealFunction<int(pthread_mutex_t*)>("pthread_mutex_trylock");
    if (locksBeforeFailure == 0) {
        return EAGAIN;
    }
    const int error = real(mutex);
    if (error == 0 && locksBeforeFailure > 0) {
        --locksBeforeFailure;
    }
    return error;
}

time_t time(time_t* result)
{
    if (Halt* const halt = std::exchange(haltBeforeTime, nullptr)) {
        halt->Wait();
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t shown = now.tv_sec + clockOffset;
    if (result != nullptr) {
        *result = shown;
    }
    return shown;
}

tm* localtime_r(const time_t* time, tm* result)
{
    if (Halt* const halt = std::exchange(haltBeforeLocalTime, nullptr)) {
        halt->Wait();
    }
    return RealFunction<tm*(const time_t*, tm*)>("localtime_r")(time, result);
}

int clock_gettime(clockid_t clock, timespec* reading)
{
    static auto* const real = RealFunction<int(clockid_t, timespec*)>("clock_gettime");
    if (clock == CLOCK_MONOTONIC) {
        if (Halt* const halt = std::exchange(haltBeforeClock, nullptr)) {
            halt->Wait();
            clockReadings = 0;
        }
        ++clockReadings;
    }
    return real(clock, reading);
}

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument)
{
    if (creationError != 0) {
        return creationError;
    }
    const int error = RealFunction<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
        "pthread_create")(handle, attributes, entry, argument);
    createdLast = *handle;
    if (afterCreation) {
        afterCreation();
    }
    return error;
}

int timer_create(clockid_t clock, sigevent* event, timer_t* timer)
{
    if (timerBlocks) {
        timerIsBlocked = true;
        Tolvex::Support::Eventually([] { return !timerBlocks; });
    }
    return RealFunction<int(clockid_t, sigevent*, timer_t*)>("timer_create")(clock, event, timer);
}

}  // extern "C"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::CapturingPolicy;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasThread;
using Tolvex::Support::LastLines;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunInTime;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::Threads;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;
using Tolvex::Util::TemperatureMonitor;

/// @return the sleeps of this thread during work, a void(), in nanoseconds.
template <typename Work>
std::vector<long long> SleepsOf(Work work)
{
    std::vector<long long> noted;
    sleeps = &noted;
    work();
    sleeps = nullptr;
    return noted;
}

// First: the parent must not have made the logger yet.
TEST(LoggerCallsTest, ThreadThatMakesTheLoggerTooLateStopsNoOutput)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        const CapturingLogger first;  // After it the first lock of another one is the registry's.
        Halt halt;
        std::thread late([&halt] {
            haltBeforeLock = &halt;
            Logger::GetInstance();
        });
        EXPECT_TRUE(halt.reached.Pass());
        EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
        EXPECT_TRUE(Logger::GetInstance()->EnableBlackBox(10));
        halt.left.Open();
        late.join();

        LogLine(LogType::Info) << "line";
        EXPECT_EQ(Logger::GetInstance()->GetLastLines().size(), 1U);
        Logger::GetInstance()->CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(path)), "line\n");
}

// First, while there is no monitor in this process.
TEST(LoggerCallsTest, LineThatBeginsWhileOneOutputReplacesAnotherGetsItsText)
{
    const auto child = RunInChild([] {
        const ScratchDirectory directory;
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(directory.Path("log")));

        Halt beforeLine;
        std::thread logging([&] {
            haltBeforeLine = &beforeLine;
            logger.WriteHeader(LogType::Info);
            logger << "text" << std::endl;
        });
        EXPECT_TRUE(beforeLine.reached.Pass());
        logger.CloseFile();

        EXPECT_TRUE(logger.EnableBlackBox(10));
        beforeLine.left.Open();
        logging.join();

        EXPECT_THAT(LastLines(), ElementsAre("text"));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerCallsTest, ChildForkedWhileTheTemperatureMonitorIsMadeMakesOneOfItsOwn)
{
    const ChildResult result = RunInChild([] {
        timerBlocks = true;
        // Not std::thread: in the fork its state on the heap would have no owner left, a leak.
        pthread_t maker{};
        const auto make = [](void*) -> void* { return TemperatureMonitor::GetInstance(); };
        EXPECT_EQ(pthread_create(&maker, nullptr, make, nullptr), 0);
        EXPECT_TRUE(Eventually([] { return timerIsBlocked.load(); }));
        const ChildResult child = RunInChild([] {
            timerBlocks = false;
            EXPECT_NE(TemperatureMonitor::GetInstance(), nullptr);
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
        timerBlocks = false;
        EXPECT_EQ(pthread_join(maker, nullptr), 0);
        return 0;
    });
    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST(LoggerCallsTest, EnableFailsWithoutAThreadAndLeavesTheLoggerDisabled)
{
    CapturingLogger logger;

    creationError = EAGAIN;
    EXPECT_FALSE(logger.Enable());
    EXPECT_FALSE(logger.Enable());
    creationError = 0;

    EXPECT_FALSE(logger.IsEnabled());
    WriteLine(logger, "nowhere");
    EXPECT_THAT(SleepsOf([&] { logger.Close(); }), IsEmpty());
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "line");
    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "line\n");
}

TEST(LoggerCallsTest, LinesAreSyncedAtOnceWithoutAThreadForTheInterval)
{
    const Tolvex::Support::ScratchDirectory directory;
    Tolvex::Ilog::FileLogPolicy policy;
    policy.SetOutput(directory.Path("log"));
    policy.SetDurability(Tolvex::Ilog::LogDurability::Interval, std::chrono::hours(1));
    syncs = 0;

    creationError = EAGAIN;
    policy.Write("a\n");
    EXPECT_EQ(syncs, 1);
    policy.Write("b\n");
    EXPECT_EQ(syncs, 2);
    creationError = 0;
    policy.Write("c\n");
    EXPECT_EQ(syncs, 2);  // a thread has it
    policy.SetDurability(Tolvex::Ilog::LogDurability::Interval, std::chrono::milliseconds(1));
    EXPECT_TRUE(Tolvex::Support::Eventually([] { return syncs == 3; }));
}

TEST(LoggerCallsTest, EnableThatFailsWithoutAThreadLeavesTheOutputAsItWas)
{
    CapturingPolicy policy;
    Tolvex::Ilog::LoggerCore core(Tolvex::Ilog::policyCallsOf<CapturingPolicy>, &policy);
    const std::string old = "old";
    const std::string other = "other";
    ASSERT_TRUE(core.Enable(&old));
    core.Close();

    creationError = EAGAIN;
    EXPECT_FALSE(core.Enable(&other));
    creationError = 0;

    EXPECT_FALSE(core.IsEnabled());
    EXPECT_TRUE(core.Enable(nullptr));
    core.Close();
    EXPECT_THAT(policy.Outputs(), ElementsAre("old"));
}

TEST(LoggerCallsTest, EnableFileThatFailsWithoutAThreadMakesNoFileAndTheNextOneWorks)
{
    const ScratchDirectory directory;
    const std::string old = directory.Path("old");
    const std::string other = directory.Path("other");
    const ChildResult child = RunInChild([&] {
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(old));
        LogLine(LogType::Info) << "one";
        logger.CloseFile();

        creationError = EAGAIN;
        EXPECT_FALSE(logger.EnableFile(other));
        EXPECT_FALSE(logger.IsFileEnabled());
        LogLine(LogType::Info) << "nowhere";
        creationError = 0;

        EXPECT_TRUE(logger.EnableFile(old));
        LogLine(LogType::Info) << "two";
        logger.CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(other), "");
    EXPECT_EQ(WithoutDate(ReadFile(old).substr(0, ReadFile(old).find('\n'))), "one");
    EXPECT_TRUE(ReadFile(old).ends_with("]two\n"));
}

TEST(LoggerCallsTest, EnabledFileLogGoesToAnotherFileWithoutANewThread)
{
    const ScratchDirectory directory;
    const std::string first = directory.Path("first");
    const std::string second = directory.Path("second");
    const ChildResult child = RunInChild([&] {
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(first));
        LogLine(LogType::Info) << "one";
        creationError = EAGAIN;
        EXPECT_TRUE(logger.EnableFile(second));
        LogLine(LogType::Info) << "two";
        creationError = 0;
        logger.CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(first)), "one\n");
    EXPECT_EQ(WithoutDate(ReadFile(second)), "two\n");
}

TEST(LoggerCallsTest, CloseSleepsTwentyOneTenthsOfASecondForAWriterThatHangsAndClosesThePolicy)
{
    CapturingLogger logger;
    std::atomic<bool> hanging = false;
    std::atomic<bool> released = false;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        hanging = true;
        Eventually([&] { return released.load(); });
    };
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "line");
    ASSERT_TRUE(Eventually([&] { return hanging.load(); }));

    const auto first = SleepsOf([&] { logger.Close(); });
    EXPECT_EQ(logger.GetPolicy().Closes(), 1);
    const auto second = SleepsOf([&] { logger.Close(); });
    EXPECT_EQ(logger.GetPolicy().Closes(), 2);
    released = true;

    const std::vector<long long> expected(21, 100000000);
    EXPECT_EQ(first, expected);
    EXPECT_EQ(second, expected);
}

TEST(LoggerCallsTest, CloseWithoutAWriterDoesNotSleep)
{
    CapturingLogger logger;

    EXPECT_THAT(SleepsOf([&] { logger.Close(); }), IsEmpty());

    ASSERT_TRUE(logger.Enable());
    logger.Close();
    EXPECT_THAT(SleepsOf([&] { logger.Close(); }), IsEmpty());
}

TEST(LoggerCallsTest, IgnitionOffWithBothLoggersDisabledDoesNotSleep)
{
    EXPECT_THAT(SleepsOf([] { Logger::GetInstance()->RunIgnitionOff(); }), IsEmpty());
}

/// Calls close, a void(), while another thread is about to write the notice of the ignition.
template <typename Close>
void CloseDuringTheNotice(Close close)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
        Halt beforeHeader;
        std::thread ignition([&beforeHeader] {
            haltBeforeTime = &beforeHeader;
            Logger::GetInstance()->RunIgnitionOff();
        });
        EXPECT_TRUE(beforeHeader.reached.Pass());
        std::thread closing = SleepingThread(close);
        beforeHeader.left.Open();
        ignition.join();
        closing.join();
        EXPECT_FALSE(Logger::GetInstance()->IsFileEnabled());
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(path)), "All triggers have been stopped\n");
}

TEST(LoggerCallsTest, SecondIgnitionOffDoesNotDropTheNoticeOfTheFirst)
{
    CloseDuringTheNotice([] { Logger::GetInstance()->RunIgnitionOff(); });
}

TEST(LoggerCallsTest, CloseOfTheFileDoesNotDropTheNotice)
{
    CloseDuringTheNotice([] { Logger::GetInstance()->CloseFile(); });
}

TEST(LoggerCallsTest, TextOfAModuleMayHaveAnyLength)
{
    const std::string text(1000, 'm');
    constexpr auto module = static_cast<Tolvex::LogModule>(1000);
    Tolvex::Util::EnumString<Tolvex::LogModule>::RegisterEnumerator(module, text);
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    logger.WriteHeader(LogType::Info);
    logger << module << "text" << std::endl;

    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "[#" + text + "]text\n");
}

TEST(LoggerCallsTest, LineThatHasWaitedShowsTheTimeAtWhichItBegan)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    std::thread waiting = SleepingThread([&logger] { WriteLine(logger, "waiting"); });

    clockOffset = 86400;
    const std::string earliest = Tolvex::Util::Date(time(nullptr), "[%Y-%m-%d %H:%M:%S");
    logger << "before" << std::endl;
    waiting.join();
    clockOffset = 0;

    const auto lines = AwaitLines(logger, 2);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_GE(lines[1].substr(0, earliest.size()), earliest);
}

// A spin reads the clock when it begins, and from time to time while the line stays taken. Here the
// line becomes free during the first reading. Two waits: a spin that leaves its flag set is the
// last.
TEST(LoggerCallsTest, ThreadThatWaitsForALineSpinsUntilTheLineIsFree)
{
    if (Tolvex::Base::HasOneProcessor()) {
        GTEST_SKIP() << "on one processor no thread spins";
    }
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    for (int wait = 0; wait < 2; ++wait) {
        logger.WriteHeader(LogType::Info);
        Halt halt;
        int readings = 0;
        std::thread waiting([&] {
            haltBeforeClock = &halt;
            logger.WriteHeader(LogType::Info);
            readings = clockReadings;
            logger.DropLine();
        });

        EXPECT_TRUE(halt.reached.Pass());
        logger.DropLine();
        halt.left.Open();
        waiting.join();

        EXPECT_EQ(readings, 1);
    }
}

// In the child a lock of the C library would stay taken.
TEST(LoggerCallsTest, ForkWaitsWhileALineReadsTheLocalTime)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    Halt halt;
    std::thread logging([&logger, &halt] {
        haltBeforeLocalTime = &halt;
        WriteLine(logger, "line");
    });
    EXPECT_TRUE(halt.reached.Pass());

    std::atomic<pid_t> child = -1;
    std::thread forking = SleepingThread([&child] {
        child = fork();
        if (child == 0) {
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    });
    EXPECT_EQ(child, -1);
    halt.left.Open();
    logging.join();
    forking.join();
    EXPECT_GT(child, 0);
}

TEST(LoggerCallsTest, WallClockThatIsSetShowsInTheNextLineForwardsAndBack)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    const time_t earliest = time(nullptr);
    WriteLine(logger, "now");
    clockOffset = 86400;
    WriteLine(logger, "tomorrow");
    clockOffset = -86400;
    WriteLine(logger, "yesterday");
    clockOffset = 0;
    WriteLine(logger, "now");
    const time_t latest = time(nullptr);

    const auto lines = AwaitLines(logger, 4);
    ASSERT_THAT(lines, SizeIs(4));
    const time_t offsets[] = {0, 86400, -86400, 0};
    for (std::size_t line = 0; line < 4; ++line) {
        const std::string shown = lines[line].substr(0, 21);
        const char* const format = "[%Y-%m-%d %H:%M:%S]";
        EXPECT_GE(shown, Tolvex::Util::Date(earliest + offsets[line], format));
        EXPECT_LE(shown, Tolvex::Util::Date(latest + offsets[line], format));
    }
}

TEST(LoggerCallsTest, LineThatTheWriterCannotBeToldOfIsLostWithAnErrorUnlessItHasSeenIt)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    std::vector<std::string> expected;
    for (int line = 0; line < 100; ++line) {
        const std::string text = std::to_string(line);
        logger.WriteHeader(LogType::Info);
        logger << text;
        // The writer looks for lines at first, and later sleeps until it is told of one.
        std::this_thread::sleep_for(std::chrono::microseconds(line));
        locksBeforeFailure = 0;
        try {
            logger << std::endl;
            expected.push_back(text + "\n");
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EAGAIN);
            EXPECT_EQ(locksBeforeFailure, -1);
        }
        locksBeforeFailure = -1;
    }

    std::thread([&logger] { WriteLine(logger, "last"); }).join();
    expected.emplace_back("last\n");
    logger.Close();
    std::vector<std::string> lines;
    for (const std::string& line : logger.GetPolicy().Lines()) {
        lines.push_back(WithoutDate(line));
    }
    EXPECT_EQ(lines, expected);
}

/// Enables file and console, leaves a line open in both, and runs the call, which ends the file's
/// line and cannot tell the writer.
/// @param call  bool(Logger&); false: the writer was looking for a line, and has seen it.
/// @return whether another thread can log to the console after it.
template <typename Call>
bool ConsoleLogsAfterAFailureInTheFile(const std::string& path, Call call)
{
    const ChildResult child = RunInTime([&] {
        alarm(60);  // ends the child if it hangs
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(path));
        EXPECT_TRUE(logger.EnableConsole());
        logger.WriteHeader(LogType::Info);
        logger << "open";
        Tolvex::Support::AwaitSleepOfOtherThreads();
        locksBeforeFailure = 0;
        const bool failed = call(logger);
        EXPECT_EQ(locksBeforeFailure, -1);
        if (!failed) {
            return Tolvex::Support::late;
        }

        std::thread([] { LogLine(LogType::Info) << "next"; }).join();
        logger.CloseConsole();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    return child.output.ends_with("next\n");
}

TEST(LoggerCallsTest, LineThatCannotBeEndedInTheFileIsNotLeftOpenOnTheConsole)
{
    const ScratchDirectory directory;
    EXPECT_TRUE(ConsoleLogsAfterAFailureInTheFile(directory.Path("log"), [](Logger& logger) {
        try {
            logger.WriteHeader(LogType::Info);
            return false;
        } catch (const std::system_error&) {
            return true;
        }
    }));
}

TEST(LoggerCallsTest, IgnitionOffClosesTheFileThoughALineCannotBeEnded)
{
    const ScratchDirectory directory;
    EXPECT_TRUE(ConsoleLogsAfterAFailureInTheFile(directory.Path("log"), [](Logger& logger) {
        logger.RunIgnitionOff();
        EXPECT_FALSE(logger.IsFileEnabled());
        return true;
    }));
}

/// Starts a thread that hands over the line "first". Returns when the line is complete and its
/// writer has not been woken yet.
std::thread ComposeUpToTheToken(CapturingLogger& logger, Halt& beforeToken)
{
    std::thread composing([&logger, &beforeToken] {
        logger.WriteHeader(LogType::Info);
        logger << "first";
        haltBeforeLock = &beforeToken;
        logger << std::endl;
    });
    EXPECT_TRUE(beforeToken.reached.Pass());
    return composing;
}

TEST(LoggerCallsTest, TokenThatComesLateDoesNotEndTheNextWriterBeforeItsFirstLine)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    Halt beforeToken;
    std::thread composing = ComposeUpToTheToken(logger, beforeToken);
    logger.Close();

    afterCreation = [&beforeToken, &composing] {
        afterCreation = nullptr;
        beforeToken.left.Open();
        composing.join();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // for the writer to take it
    };
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "second");

    std::vector<std::string> lines = AwaitLines(logger, 2);
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutDate);
    EXPECT_THAT(lines, ElementsAre("first\n", "second\n"));
}

TEST(LoggerCallsTest, DestructorKeepsToItselfThatTheLoggerCannotBeClosed)
{
    auto logger = std::make_unique<CapturingLogger>();

    locksBeforeFailure = 0;
    EXPECT_NO_THROW(logger.reset());
    EXPECT_EQ(locksBeforeFailure, -1);
}

TEST(LoggerCallsTest, DestructorEndsTheWriterThoughTheFirstLockCannotBeTaken)
{
    auto logger = std::make_unique<CapturingLogger>();
    ASSERT_TRUE(logger->Enable());

    locksBeforeFailure = 0;
    EXPECT_NO_THROW(logger.reset());
    EXPECT_EQ(locksBeforeFailure, -1);
}

TEST(LoggerCallsTest, DestructorWaitsForASlowWriteThoughTheFirstLockCannotBeTaken)
{
    static std::atomic<bool> writing = false;
    static std::atomic<bool> written = false;
    auto logger = std::make_unique<CapturingLogger>();
    logger->GetPolicy().onWrite = [](const std::string&) {
        writing = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        written = true;
    };
    ASSERT_TRUE(logger->Enable());
    WriteLine(*logger, "line");
    ASSERT_TRUE(Eventually([] { return writing.load(); }));

    locksBeforeFailure = 0;
    logger.reset();
    EXPECT_EQ(locksBeforeFailure, -1);
    EXPECT_TRUE(written);
}

TEST(LoggerCallsTest, LogLineThatFindsNoLockIsLostAndTheNextOneIsNot)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
        locksBeforeFailure = 0;
        LogLine(LogType::Info) << "lost";
        EXPECT_EQ(locksBeforeFailure, -1);
        LogLine(LogType::Info) << "next";
        Logger::GetInstance()->CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(path)), "next\n");
}

TEST(LoggerCallsTest, WriterThatIsCancelledWhileItWaitsDisablesTheLoggerWhichMayBeEnabledAgain)
{
    CapturingLogger logger;
    logger.SetTheadName("LOG_CANCELLED");
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "first");
    AwaitLines(logger, 1);

    pthread_cancel(createdLast);
    EXPECT_TRUE(Eventually([] { return !HasThread("LOG_CANCELLED"); }));
    EXPECT_FALSE(logger.IsEnabled());
    WriteLine(logger, "nowhere");
    EXPECT_THAT(SleepsOf([&] { logger.Close(); }), IsEmpty());

    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "second");
    const auto lines = AwaitLines(logger, 2);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(WithoutDate(lines[1]), "second\n");
}

TEST(LoggerCallsTest, EnableFailsWhenItsWriterIsCancelledBeforeTheFirstLine)
{
    CapturingLogger logger;
    std::vector<pid_t> before = Threads();
    std::sort(before.begin(), before.end());
    const auto isNew = [&before](pid_t thread) {
        return !std::binary_search(before.begin(), before.end(), thread);
    };
    afterCreation = [&isNew] {
        pthread_cancel(createdLast);
        EXPECT_TRUE(Eventually([&isNew] {
            const std::vector<pid_t> now = Threads();
            return std::none_of(now.begin(), now.end(), isNew);
        }));
    };
    EXPECT_FALSE(logger.Enable());
    afterCreation = nullptr;
    EXPECT_FALSE(logger.IsEnabled());
    WriteLine(logger, "nowhere");

    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "line");
    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "line\n");
}

TEST(LoggerCallsTest, LineThatIsCompleteWhenItsWriterIsCancelledLeavesNoLineLockTaken)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    const pthread_t writer = createdLast;
    Halt beforeToken;
    std::thread composing = ComposeUpToTheToken(logger, beforeToken);

    pthread_cancel(writer);
    EXPECT_TRUE(Eventually([&] { return !logger.IsEnabled(); }));
    beforeToken.left.Open();
    composing.join();

    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "next");
    logger.Close();
    // The first line is there if the writer saw it before it slept.
    ASSERT_THAT(logger.GetPolicy().Lines(), ::testing::Not(IsEmpty()));
    EXPECT_EQ(WithoutDate(logger.GetPolicy().Lines().back()), "next\n");
}

TEST(LoggerCallsTest, WriterThatIsCancelledInThePolicyLeavesNoLineLockTaken)
{
    CapturingLogger logger;
    std::atomic<bool> hanging = false;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        if (!hanging.exchange(true)) {
            const Tolvex::Support::CancellableStack stack;
            pause();  // a cancellation point
        }
    };
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "lost");
    ASSERT_TRUE(Eventually([&] { return hanging.load(); }));
    const pthread_t writer = createdLast;
    std::thread waiting = SleepingThread([&] { WriteLine(logger, "lost too"); });
    std::thread waitingNext = SleepingThread([&] { WriteLine(logger, "lost too"); });

    pthread_cancel(writer);
    waiting.join();
    waitingNext.join();

    EXPECT_TRUE(Eventually([&] { return !logger.IsEnabled(); }));
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "line");
    logger.Close();
    EXPECT_EQ(WithoutDate(logger.GetPolicy().Lines().back()), "line\n");
}

TEST(LoggerCallsTest, ExitDoesNotWaitForALineThatTheWriterCouldNotBeToldOf)
{
    const ChildResult child = RunInChild([]() -> int {
        static CapturingLogger& logger = *new CapturingLogger;  // not closed at exit
        EXPECT_TRUE(logger.Enable());
        WriteLine(logger, "first");
        bool told = true;
        for (int attempt = 0; told && attempt < 100; ++attempt) {
            logger.WriteHeader(LogType::Info);
            // A writer that still looks for lines sees this one without being told.
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            locksBeforeFailure = 0;
            try {
                logger << std::endl;
            } catch (const std::system_error&) {
                told = false;
            }
            locksBeforeFailure = -1;
        }
        EXPECT_FALSE(told);

        sleeps = &exitSleeps.noted;
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    });

    EXPECT_TRUE(child.Succeeded()) << child.ExitCode() << child.output;
}

TEST(LoggerCallsTest, ExitDoesNotWaitForTheLineOfAWriterThatWasCancelledInThePolicy)
{
    const ChildResult child = RunInChild([]() -> int {
        static CapturingLogger& logger = *new CapturingLogger;  // not closed at exit
        static std::atomic<bool> first = true;
        static std::atomic<bool> hanging = false;
        logger.GetPolicy().onWrite = [](const std::string&) {
            if (!first.exchange(false)) {
                hanging = true;
                const Tolvex::Support::CancellableStack stack;
                pause();  // a cancellation point
            }
        };
        EXPECT_TRUE(logger.Enable());
        WriteLine(logger, "first");
        WriteLine(logger, "lost");
        EXPECT_TRUE(Eventually([] { return hanging.load(); }));
        pthread_cancel(createdLast);
        EXPECT_TRUE(Eventually([] { return !logger.IsEnabled(); }));

        sleeps = &exitSleeps.noted;
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    });

    EXPECT_TRUE(child.Succeeded()) << child.ExitCode() << child.output;
}

}  // namespace
