// What a log must stand: many threads at once, a process that is killed, an ignition that is
// switched off again and again.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProcessLog.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasThread;
using Tolvex::Support::Log;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::Scaled;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;
using Tolvex::Support::StartChild;
using Tolvex::Support::WithoutDate;

/// While not 0: the library's sleeps end as soon as the process has so many threads only, so that
/// thousands of closings do not take a tenth of a second each.
std::atomic<int> wakeAtThreads = 0;

/// @return the number of threads of this process.
int CountThreads()
{
    struct stat tasks = {};
    stat("/proc/self/task", &tasks);
    return static_cast<int>(tasks.st_nlink) - 2;
}

}  // namespace

extern "C" int nanosleep(const timespec* duration, timespec* rest)
{
    const timespec slice{0, 100000};
    for (int slices = 0; wakeAtThreads != 0 && slices < 1000; ++slices) {
        if (CountThreads() <= wakeAtThreads) {
            return 0;
        }
        clock_nanosleep(CLOCK_MONOTONIC, 0, &slice, nullptr);
    }
    return clock_nanosleep(CLOCK_MONOTONIC, 0, duration, rest) == 0 ? 0 : -1;
}

namespace {

constexpr int threadCount = 8;

void WriteNumberedLines(int thread, int count)
{
    for (int line = 0; line < count; ++line) {
        Log().WriteHeader(LogType::Warning);
        Log() << LogModule::FaceRec << "thread " << thread << " line " << line << " of "
              << std::string("many") << std::endl;
    }
}

/// Returns when each thread has written its lines.
void WriteFromAllThreads(int count)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back(WriteNumberedLines, thread, count);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Checks that lines are whole, and those of each thread complete and in order.
void ExpectAllLines(const std::vector<std::string>& lines, int count)
{
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(threadCount * count));
    std::vector<int> next(threadCount, 0);
    for (const std::string& line : lines) {
        int thread = -1;
        int number = -1;
        const std::size_t begin = line.find("[WARNING]");
        ASSERT_NE(begin, std::string::npos) << line;
        ASSERT_EQ(std::sscanf(line.c_str() + begin, "[WARNING][#FaceRec]thread %d line %d", &thread,
                              &number),
                  2)
            << line;
        ASSERT_EQ(number, next.at(static_cast<std::size_t>(thread))++) << line;
        ASSERT_EQ(line.substr(begin), "[WARNING][#FaceRec]thread " + std::to_string(thread) +
                                          " line " + std::to_string(number) + " of many");
    }
}

/// In one pass: the text has millions of bytes.
std::string WithoutColour(const std::string& text)
{
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, 5, "\x1B[33m") == 0 || text.compare(at, 5, "\x1B[39m") == 0) {
            at += 5;
        } else {
            plain += text[at++];
        }
    }
    return plain;
}

TEST(LoggerSoakTest, EveryLineOfEightThreadsReachesFileAndConsoleWholeAndInOrder)
{
    const int count = static_cast<int>(Scaled(50000));
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");

    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        WriteFromAllThreads(count);
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded());
    ExpectAllLines(SplitLines(ReadFile(path)), count);
    // The colours stand in front of the line that they belong to and behind its newline.
    ASSERT_EQ(child.output.substr(0, 5), "\x1B[33m");
    std::string console = WithoutColour(child.output);
    ExpectAllLines(SplitLines(console), count);
}

TEST(LoggerSoakTest, FileThatIsDeletedAndTruncatedAllTheTimeNeverHoldsATornLine)
{
    const int count = static_cast<int>(Scaled(20000));
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");

    const pid_t logging = StartChild([&] {
        Log().EnableFile(path);
        WriteFromAllThreads(count);
        Log().CloseFile();
        return 0;
    });
    std::size_t seen = 0;
    int status = 0;
    for (int round = 0; waitpid(logging, &status, WNOHANG) == 0; ++round) {
        std::error_code ignored;
        const std::string moved = directory.Path("moved");
        std::filesystem::rename(path, moved, ignored);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        for (const std::string& line : SplitLines(ReadFile(moved))) {
            ASSERT_TRUE(WithoutDate(line).starts_with("[WARNING][#FaceRec]thread ")) << line;
            ASSERT_TRUE(line.ends_with(" of many")) << line;
            ++seen;
        }
        std::filesystem::remove(moved, ignored);
        if (round % 3 == 0) {
            truncate(path.c_str(), 0);
        }
    }

    EXPECT_EQ(status, 0);
    EXPECT_GT(seen, 0U);
}

TEST(LoggerSoakTest, TwoProcessesThatLogToOneFileDoNotMixTheirLines)
{
    const int count = static_cast<int>(Scaled(20000));
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");

    std::vector<pid_t> processes;
    for (int process = 0; process < 2; ++process) {
        processes.push_back(StartChild([&, process] {
            Log().EnableFile(path);
            WriteNumberedLines(process, count);
            Log().CloseFile();
            return 0;
        }));
    }
    for (const pid_t process : processes) {
        int status = -1;
        ASSERT_EQ(waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }

    const auto lines = SplitLines(ReadFile(path));
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(2 * count));
    for (const std::string& line : lines) {
        ASSERT_TRUE(WithoutDate(line).starts_with("[WARNING][#FaceRec]thread ")) << line;
        ASSERT_TRUE(line.ends_with(" of many")) << line;
    }
}

/// Writes numbered lines and acknowledges each over the pipe, until it is killed.
[[noreturn]] void LogAndAcknowledge(const std::string& path, int pipeEnd)
{
    Log().EnableFile(path);
    for (std::int32_t line = 0;; ++line) {
        LogLine(LogType::Info) << "line " << line << " end";
        if (write(pipeEnd, &line, sizeof line) != sizeof line) {
            _exit(1);
        }
    }
}

TEST(LoggerSoakTest, KilledProcessLeavesWholeLinesAndLosesAtMostOneAcknowledged)
{
    const int rounds = std::max(20, static_cast<int>(Scaled(200)));
    const ScratchDirectory directory;
    std::mt19937 random(4711);
    std::uniform_int_distribution<int> moment(0, 20000);

    for (int round = 0; round < rounds; ++round) {
        const std::string path = directory.Path(std::to_string(round));
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = StartChild([&]() -> int {
            close(ends[0]);
            LogAndAcknowledge(path, ends[1]);
        });
        close(ends[1]);

        const auto killed =
            std::chrono::steady_clock::now() + std::chrono::microseconds(moment(random));
        std::int32_t acknowledged = -1;
        std::thread killer([&] {
            std::this_thread::sleep_until(killed);
            kill(child, SIGKILL);
        });
        for (std::int32_t number; read(ends[0], &number, sizeof number) == sizeof number;) {
            acknowledged = number;
        }
        killer.join();
        close(ends[0]);
        waitpid(child, nullptr, 0);

        // SIGKILL ends a write() early, where the kernel goes from one page of the file to the
        // next.
        std::string bytes = ReadFile(path);
        if (bytes.size() % static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) == 0) {
            bytes.erase(bytes.rfind('\n') + 1);
        }
        ASSERT_TRUE(bytes.empty() || bytes.back() == '\n') << bytes;
        const auto lines = SplitLines(bytes);
        for (std::size_t line = 0; line < lines.size(); ++line) {
            ASSERT_EQ(WithoutDate(lines[line]), "line " + std::to_string(line) + " end");
        }
        ASSERT_GE(static_cast<std::int32_t>(lines.size()), acknowledged) << "round " << round;
    }
}

void WriteLineOnce(const std::string& path)
{
    Log().EnableFile(path);
    Log().RunIgnitionOff();
    EXPECT_TRUE(std::filesystem::remove(path));
}

TEST(LoggerSoakTest, NoticeOfTheIgnitionIsInTheFileEachTime)
{
    const int rounds = std::max(500, static_cast<int>(Scaled(10000)));
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");

    const ChildResult child = RunInChild([&] {
        std::atomic<bool> running = true;
        std::vector<std::thread> load;
        for (int thread = 0; thread < 2; ++thread) {
            load.emplace_back([&running] {
                while (running) {
                    Log().WriteHeader(LogType::Info);
                    Log() << LogModule::Event << "load" << std::endl;
                }
            });
        }
        WriteLineOnce(path);  // makes the temperature monitor, and with it a thread of its timer
        EXPECT_TRUE(Eventually([] { return !HasThread("LOG_FILE"); }));
        wakeAtThreads = CountThreads();
        int roundsInTime = 0;
        for (int round = 0; round < rounds; ++round) {
            EXPECT_TRUE(Log().EnableFile(path));
            const auto start = std::chrono::steady_clock::now();
            Log().RunIgnitionOff();
            const bool inTime = std::chrono::steady_clock::now() - start < longestLogWait;
            roundsInTime += inTime ? 1 : 0;
            EXPECT_FALSE(Log().IsFileEnabled());
            const std::string text = ReadFile(path);
            std::filesystem::remove(path);
            if (inTime && !text.ends_with("]All triggers have been stopped\n")) {
                ADD_FAILURE() << "not in round " << round;
                break;
            }
        }
        EXPECT_GT(roundsInTime, 0);
        running = false;
        for (std::thread& thread : load) {
            thread.join();
        }
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace
