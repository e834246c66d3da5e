// What the black box of the log asks of the system and of the C library for a line.
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/BlackBox.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::AllocationLimit;
using Tolvex::Support::LastLines;
using Tolvex::Support::OpenBlackBox;
using Tolvex::Support::ownAllocationCount;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RealFunction;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::StartChild;

Logger& logger = *Logger::GetInstance();
bool clockRuns = false;  // the time is one second later at every look
std::time_t secondsRun = 0;

void WriteBothWays(int count)
{
    for (int number = 0; number < count; ++number) {
        logger.WriteHeader(LogType::Error);
        logger << LogModule::WNET << "text of a line " << number << std::endl;
        LogLine(LogType::Warning, LogModule::CELL) << "text of a line " << number;
    }
}

/// @return whether a system call reads a clock. Some processors have no clock that a program may
/// read itself.
bool ReadsClock(std::uint64_t call)
{
#ifdef SYS_clock_gettime64
    if (call == SYS_clock_gettime64) {
        return true;
    }
#endif
    return call == SYS_clock_gettime || call == SYS_gettimeofday;
}

/// @return how many system calls a child makes for work, without those at its beginning and end,
/// and without those that read a clock; negative where a process may not be watched.
int SystemCallsOf(const std::function<void()>& work)
{
    const pid_t child = StartChild([&work] {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            return 1;
        }
        raise(SIGSTOP);
        work();
        raise(SIGSTOP);
        return 0;
    });
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) {
        return -1;
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD);
    int calls = 0;
    do {
        // Each call stops the child twice: before and after it.
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && !ReadsClock(info.entry.nr)) {
            ++calls;
        }
    } while (WIFSTOPPED(status) && WSTOPSIG(status) == (SIGTRAP | 0x80));
    EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP);
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return calls;
}

TEST(BlackBoxCallsTest, LineMakesNoSystemCall)
{
    const int calls = SystemCallsOf([] {
        EXPECT_TRUE(logger.EnableBlackBox(100));
        WriteBothWays(5000);
    });
    if (calls < 0) {
        GTEST_SKIP() << "needs the right to watch a process";
    }
    // Some for memory and for the time zone at the beginning; none depends on how long it takes.
    EXPECT_LT(calls, 200);
}

TEST(BlackBoxCallsTest, SystemCallsAreCounted)
{
    const int calls = SystemCallsOf([] {
        for (int call = 0; call < 1000; ++call) {
            getppid();
        }
    });
    if (calls < 0) {
        GTEST_SKIP() << "needs the right to watch a process";
    }
    EXPECT_GE(calls, 1000);
}

TEST(BlackBoxCallsTest, LineTakesItsHeaderFromTheLineOfTheFile)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(100);
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    clockRuns = true;
    WriteBothWays(20);
    clockRuns = false;
    logger.CloseFile();
    ASSERT_TRUE(logger.SaveLastLines(directory.Path("saved")));

    EXPECT_GE(secondsRun, 40);
    EXPECT_THAT(logger.GetLastLines(), SizeIs(40));
    EXPECT_EQ(ReadFile(directory.Path("log")), ReadFile(directory.Path("saved")));
}

TEST(BlackBoxCallsTest, LineAllocatesNothing)
{
    const OpenBlackBox box(100);
    clockRuns = true;  // also the first line of a second
    WriteBothWays(100);
    const std::size_t before = ownAllocationCount;
    {
        const AllocationBudget none(0);
        WriteBothWays(1000);
    }
    clockRuns = false;
    EXPECT_EQ(ownAllocationCount, before);
    EXPECT_TRUE(logger.GetLastLines().back().ends_with("[WARNING][#CELL]text of a line 999"));
}

TEST(BlackBoxCallsTest, WithoutMemoryNothingChanges)
{
    {
        const AllocationLimit limit(65536 - 1);
        EXPECT_FALSE(logger.EnableBlackBox(10));
        EXPECT_FALSE(logger.IsBlackBoxEnabled());
    }
    const OpenBlackBox box(2);
    for (const char* const text : {"one", "two"}) {
        LogLine(LogType::Info) << text;
    }
    for (std::size_t budget = 0; budget < 5; ++budget) {
        const AllocationBudget none(budget);
        EXPECT_FALSE(logger.EnableBlackBox(3)) << budget;
    }
    LogLine(LogType::Info) << "three";
    EXPECT_THAT(LastLines(), ElementsAre("two", "three"));
}

TEST(BlackBoxCallsTest, WithoutMemoryNothingIsSaved)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    const OpenBlackBox box(2);
    LogLine(LogType::Info) << "a line that is longer than what a string has room for";
    bool saved = false;
    for (std::size_t budget = 0; !saved; ++budget) {
        const AllocationBudget few(budget);
        errno = 0;
        saved = logger.SaveLastLines(path);
        EXPECT_EQ(errno, saved ? 0 : ENOMEM) << budget;
        EXPECT_EQ(access(path.c_str(), F_OK) == 0, saved) << budget;
    }
    const AllocationBudget none(0);
    EXPECT_THROW(static_cast<void>(logger.GetLastLines()), std::bad_alloc);
}

}  // namespace

extern "C" std::time_t time(std::time_t* result) noexcept
{
    static auto* const real = RealFunction<std::time_t(std::time_t*)>("time");
    const std::time_t now = real(nullptr) + (clockRuns ? ++secondsRun : 0);
    if (result != nullptr) {
        *result = now;
    }
    return now;
}
