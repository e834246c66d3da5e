// Which signals reach the threads that write lines and drive records.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <ios>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IgnitionOffSequence.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Log/LoggerBase.h"

#include "tests/Support/Board.h"
#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Gate.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogType;
using Tolvex::Interfaces::IgnitionOffSequence;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::Gate;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;

/// @return whether the writer of a logger has to block the signal.
bool IsToBeBlocked(int signal)
{
    switch (signal) {
        case SIGSEGV:
        case SIGBUS:
        case SIGFPE:
        case SIGILL:
        case SIGTRAP:
        case SIGSYS:  // these the kernel raises for a fault of the thread
        case SIGKILL:
        case SIGSTOP:  // these cannot be blocked
            return false;
        default:
            return signal < 32 || signal >= SIGRTMIN;  // The C library keeps those between.
    }
}

sigset_t BlockedHere()
{
    sigset_t blocked;
    sigemptyset(&blocked);
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return blocked;
}

TEST(WriterSignalsTest, WriterBlocksAllSignalsButThoseOfFaultsAndItsCreatorKeepsItsOwn)
{
    CapturingLogger logger;
    sigset_t ofWriter;
    logger.GetPolicy().onWrite = [&ofWriter](const std::string&) { ofWriter = BlockedHere(); };
    const sigset_t before = BlockedHere();
    ASSERT_TRUE(logger.Enable());
    const sigset_t after = BlockedHere();
    WriteLine(logger, "line");
    AwaitLines(logger, 1);
    logger.Close();

    // The user-mode emulator keeps the last two signals for itself.
    const bool inUserMode = Tolvex::Support::isEmulated && !Tolvex::Support::IsOnBoard();
    const int last = inUserMode ? SIGRTMAX - 2 : SIGRTMAX;
    for (int signal = 1; signal <= last; ++signal) {
        EXPECT_EQ(sigismember(&ofWriter, signal) == 1, IsToBeBlocked(signal)) << signal;
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
    }
}

/// @return the signals that the kernel keeps from a thread, by its folder: a bit for each.
unsigned long long BlockedBy(const std::filesystem::path& task)
{
    const std::string status = ReadFile(task / "status");
    const std::string field = "SigBlk:\t";
    const std::size_t at = status.find(field);
    return at == std::string::npos ? 0
                                   : std::stoull(status.substr(at + field.size(), 16), nullptr, 16);
}

unsigned long long ToBeBlocked()
{
    unsigned long long signals = 0;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        signals |= IsToBeBlocked(signal) ? 1ULL << static_cast<unsigned>(signal - 1) : 0;
    }
    return signals;
}

TEST(WriterSignalsTest, ThreadsThatWriteLinesAndRecordsBlockThem)
{
    if (Tolvex::Support::isEmulated && !Tolvex::Support::IsOnBoard()) {
        GTEST_SKIP() << "the kernel knows the signals of the emulator only";
    }
    const ScratchDirectory directory;
    const ChildResult child = RunInChild([&directory] {
        EXPECT_TRUE(Logger::GetInstance()->EnableFile(directory.Path("log")));
        EXPECT_TRUE(Logger::GetInstance()->EnableConsole());
        const IgnitionOffSequence sequence(directory.Path("drive"));

        int threads = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            const std::string name = ReadFile(task.path() / "comm");
            if (!name.starts_with("LOG_") && !name.starts_with("IGNITION_")) {
                continue;
            }
            ++threads;
            // While a thread starts, the C library blocks all signals for it.
            EXPECT_TRUE(Eventually([&task] { return BlockedBy(task.path()) == ToBeBlocked(); }))
                << std::hex << BlockedBy(task.path()) << " instead of " << ToBeBlocked();
        }
        EXPECT_EQ(threads, 4);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

std::atomic<pid_t> handledOn = 0;  ///< the thread that a handler ran on last

void NoteThread(int /*signal*/)
{
    handledOn = gettid();
}

TEST(WriterSignalsTest, HandlerOfAProcessWideSignalDoesNotRunOnAWriter)
{
    const ChildResult child = RunInChild([] {
        struct sigaction action
        {
        };
        action.sa_handler = NoteThread;
        EXPECT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
        CapturingLogger logger;
        std::atomic<pid_t> writer = 0;
        logger.GetPolicy().onWrite = [&writer](const std::string&) { writer = gettid(); };
        EXPECT_TRUE(logger.Enable());
        // Now the writer would be the only thread of ours that takes the signal.
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);

        for (std::size_t line = 1; line <= 100; ++line) {
            WriteLine(logger, "line");
            kill(getpid(), SIGUSR1);
            EXPECT_EQ(AwaitLines(logger, line).size(), line);
            EXPECT_NE(handledOn, writer);
        }
        logger.Close();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(WriterSignalsTest, FileThatReachesTheLimitOfTheProcessCostsLinesAndNotTheProcess)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(path));
        rlimit limit{};
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
        limit.rlim_cur = 100;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        for (int line = 0; line < 20; ++line) {
            logger.WriteHeader(LogType::Info);
            logger << "0123456789" << std::endl;
        }
        logger.CloseFile();

        limit.rlim_cur = limit.rlim_max;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(std::filesystem::file_size(path), 100U);
        EXPECT_TRUE(logger.EnableFile(path));
        logger.WriteHeader(LogType::Info);
        logger << "next" << std::endl;
        logger.CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    const std::vector<std::string> lines = SplitLines(ReadFile(path));
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(WithoutDate(lines.front()), "0123456789");
    EXPECT_EQ(WithoutDate(lines.back()), "next");
}

TEST(WriterSignalsTest, CloseWaitsInFullThoughSignalsInterruptItsSleeps)
{
    static std::atomic<int> signals = 0;
    Gate hanging;
    Gate released;
    CapturingLogger logger;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        hanging.Open();
        released.Pass();
    };
    struct sigaction counting = {};
    struct sigaction before = {};
    counting.sa_handler = [](int) { ++signals; };  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "line");
    ASSERT_TRUE(hanging.Pass());

    std::atomic<bool> closed = false;
    std::thread interrupting([&closed, closing = pthread_self()] {
        while (!closed) {
            pthread_kill(closing, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    const auto start = std::chrono::steady_clock::now();
    logger.Close();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2100));
    closed = true;
    interrupting.join();
    released.Open();
    EXPECT_GT(signals, 0);
    // The writer was left behind. It uses the policy and the gates until it has written the line.
    EXPECT_TRUE(Eventually([&logger] { return logger.GetPolicy().LineCount() == 1; }));
    sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
