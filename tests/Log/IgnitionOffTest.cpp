// What the file holds and how long the call takes when the ignition goes off under load.
#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

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
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::Gate;
using Tolvex::Support::late;
using Tolvex::Support::LinesWithoutDate;
using Tolvex::Support::Log;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunInTime;
using Tolvex::Support::Scaled;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::WriteLine;
using Clock = std::chrono::steady_clock;

// Every test works in a child process, so that it finds the one logger of a process fresh.

constexpr unsigned hangSeconds = 20;  // ends a child that hangs, by SIGALRM
const std::string notice = "All triggers have been stopped";

/// Threads that log all the time, in both ways, until they are stopped.
class Load
{
public:
    explicit Load(int count)
    {
        for (int thread = 0; thread < count; ++thread) {
            threads.emplace_back([this, thread] {
                while (running) {
                    if (thread % 2 == 0) {
                        WriteLine("load");
                    } else {
                        LogLine(LogType::Info) << "load";
                    }
                }
            });
        }
    }
    ~Load()
    {
        running = false;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
};

TEST(IgnitionOffTest, NoticeIsTheLastLineOfTheFileHoweverManyThreadsLog)
{
    const std::size_t rounds = std::max<std::size_t>(20, Scaled(100));
    const ScratchDirectory directory;
    const ChildResult child = RunInChild([&] {
        std::vector<std::string> texts;
        std::vector<bool> inTime;  // On a starved machine the bound may pass before the notice.
        {
            const Load load(8);
            for (std::size_t round = 0; round < rounds; ++round) {
                const std::string path = directory.Path(std::to_string(round));
                EXPECT_TRUE(Log().EnableFile(path));
                const bool begun =
                    Eventually([&path] { return ReadFile(path).ends_with("load\n"); });
                const std::string before = begun ? "" : ReadFile(path);
                const auto start = std::chrono::steady_clock::now();
                Log().RunIgnitionOff();
                inTime.push_back(std::chrono::steady_clock::now() - start < longestLogWait);
                EXPECT_TRUE(begun)
                    << "round " << round << ", in time " << inTime.back() << ", " << before.size()
                    << " bytes before: "
                    << before.substr(before.size() - std::min<std::size_t>(before.size(), 200));
                EXPECT_FALSE(Log().IsFileEnabled());
                texts.push_back(ReadFile(path));
            }
        }

        for (std::size_t round = 0; round < rounds; ++round) {
            std::vector<std::string> lines = LinesWithoutDate(texts[round]);
            if (inTime[round]) {
                EXPECT_EQ(lines.back(), notice) << "round " << round;
                EXPECT_EQ(std::count(lines.begin(), lines.end(), notice), 1) << "round " << round;
                // Nothing came after the call has returned.
                EXPECT_EQ(ReadFile(directory.Path(std::to_string(round))), texts[round]);
            }
        }
        EXPECT_GT(std::count(inTime.begin(), inTime.end(), true), 0);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(IgnitionOffTest, LinesThatWaitBehindTheNoticeReachTheConsoleOnly)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInTime([&path] {
        std::filesystem::remove(path);
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        Log().WriteHeader(LogType::Info);
        std::vector<std::thread> threads;
        for (const char* const text : {"before 1", "before 2"}) {
            threads.push_back(SleepingThread([text] { WriteLine(text); }));
        }
        const auto start = Clock::now();
        threads.push_back(SleepingThread([] { Log().RunIgnitionOff(); }));
        for (const char* const text : {"behind 1", "behind 2", "behind 3", "behind 4"}) {
            threads.push_back(SleepingThread([text] { WriteLine(text); }));
        }

        Log() << "open" << std::endl;
        for (std::thread& thread : threads) {
            thread.join();
        }
        const auto took = Clock::now() - start;
        EXPECT_TRUE(Log().IsConsoleEnabled());
        Log().CloseConsole();
        return took < longestLogWait ? 0 : late;  // Later, the notice would be given up.
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)),
                ElementsAre("open", "before 1", "before 2", notice));
    for (const char* const text : {"open\n", "before 1\n", "before 2\n", notice.c_str(),
                                   "behind 1\n", "behind 2\n", "behind 3\n", "behind 4\n"}) {
        EXPECT_THAT(child.output, ::testing::HasSubstr(text));
    }
}

TEST(IgnitionOffTest, OpenLineOfTheCallerIsWrittenBeforeTheNotice)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        Log().WriteHeader(LogType::Info);
        Log() << "open";
        Log().RunIgnitionOff();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("open", notice));
}

std::atomic<bool> manipulatorHangs = false;

std::ostream& Hang(std::ostream& stream)
{
    manipulatorHangs = true;
    Eventually([] { return !manipulatorHangs; });
    return stream;
}

TEST(IgnitionOffTest, ManipulatorThatHangsDelaysTheCallByOneBoundOnly)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInTime([&path] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(path));
        std::thread composing([] {
            Log().WriteHeader(LogType::Info);
            Log() << Hang;
        });
        EXPECT_TRUE(Eventually([] { return manipulatorHangs.load(); }));

        const auto start = Clock::now();
        Log().RunIgnitionOff();
        const auto took = Clock::now() - start;
        EXPECT_GE(took, longestLogWait);
        EXPECT_FALSE(Log().IsFileEnabled());

        manipulatorHangs = false;
        composing.join();
        return took < 2 * longestLogWait - std::chrono::milliseconds(200) ? 0 : late;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
}

TEST(IgnitionOffTest, LineThatIsNeverEndedCostsTheNoticeAndNotTheLinesOfTheNextStart)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(path));
        Gate begun;
        Gate closed;
        std::thread composing([&] {
            Log().WriteHeader(LogType::Info);
            Log() << "half";
            begun.Open();
            closed.Pass();
            Log() << "a line" << std::endl;
        });
        EXPECT_TRUE(begun.Pass());

        const auto start = Clock::now();
        Log().RunIgnitionOff();
        EXPECT_GE(Clock::now() - start, longestLogWait);
        EXPECT_FALSE(Log().IsFileEnabled());

        closed.Open();
        composing.join();
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("next");
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("next"));
}

TEST(IgnitionOffTest, TwoThreadsAtOnceWriteOneNotice)
{
    const std::size_t rounds = std::max<std::size_t>(20, Scaled(100));
    const ScratchDirectory directory;
    const ChildResult child = RunInChild([&] {
        std::size_t inTime = 0;  // On a starved machine the bound may pass before the notice.
        for (std::size_t round = 0; round < rounds; ++round) {
            const std::string path = directory.Path(std::to_string(round));
            EXPECT_TRUE(Log().EnableFile(path));
            std::barrier start(2);
            const auto run = [&start] {
                start.arrive_and_wait();
                Log().RunIgnitionOff();
            };
            const auto begin = std::chrono::steady_clock::now();
            std::thread other(run);
            run();
            other.join();
            if (std::chrono::steady_clock::now() - begin < longestLogWait) {
                ++inTime;
                EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre(notice)) << round;
            }
        }
        EXPECT_GT(inTime, 0U);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

/// Runs the ignition-off on so many threads while the writer hangs, and then logs to a real file.
void RunWithHangingWriter(int threadCount)
{
    const ScratchDirectory directory;
    const std::string pipe = directory.Path("pipe");
    const std::string path = directory.Path("log");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const ChildResult child = RunInChild([&] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(pipe));  // without a reader: opening it hangs
        WriteLine("hangs");
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([] {
                const auto start = Clock::now();
                Log().RunIgnitionOff();
                EXPECT_GE(Clock::now() - start, longestLogWait);
                EXPECT_FALSE(Log().IsFileEnabled());
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }

        const int reader = open(pipe.c_str(), O_RDONLY);  // lets the writer continue
        EXPECT_GE(reader, 0);
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("line");
        Log().CloseFile();
        close(reader);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("line"));
}

TEST(IgnitionOffTest, WriterThatHangsDelaysTheCallAndDoesNotKeepIt)
{
    RunWithHangingWriter(1);
}

TEST(IgnitionOffTest, WriterThatHangsDelaysTwoCallsAndKeepsNone)
{
    RunWithHangingWriter(2);
}

TEST(IgnitionOffTest, WriterThatHangsLetsNoThreadWaitForTheLineForEver)
{
    const ScratchDirectory directory;
    const std::string pipe = directory.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const ChildResult child = RunInChild([&] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(pipe));
        WriteLine("hangs");
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.push_back(SleepingThread([] { WriteLine("lost"); }));
        }

        Log().RunIgnitionOff();
        for (std::thread& thread : threads) {
            thread.join();
        }
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
}

TEST(IgnitionOffTest, ThreadsThatEnableTheFileBehindAWriterThatHangsDelayTheCallByOneBoundOnly)
{
    const ScratchDirectory directory;
    const std::string pipe = directory.Path("pipe");
    const std::string path = directory.Path("log");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const ChildResult child = RunInTime([&] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(pipe));  // without a reader: opening it hangs
        WriteLine("hangs");
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 3; ++thread) {  // Each of them fails after the whole wait.
            threads.push_back(SleepingThread([&path] { EXPECT_FALSE(Log().EnableFile(path)); }));
        }

        const auto start = Clock::now();
        Log().RunIgnitionOff();
        const auto took = Clock::now() - start;
        EXPECT_GE(took, longestLogWait);
        EXPECT_FALSE(Log().IsFileEnabled());

        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(Log().IsFileEnabled());
        const int reader = open(pipe.c_str(), O_RDONLY);  // lets the writer continue
        EXPECT_GE(reader, 0);
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("line");
        Log().CloseFile();
        close(reader);
        return took < 2 * longestLogWait - std::chrono::milliseconds(200) ? 0 : late;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("line"));
}

TEST(IgnitionOffTest, EnableFileThatOutlastsTheCallSaysWhetherTheFileIsEnabled)
{
    const ScratchDirectory directory;
    const std::string pipe = directory.Path("pipe");
    const std::string path = directory.Path("log");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const ChildResult child = RunInTime([&] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableFile(pipe));  // without a reader: opening it hangs
        WriteLine("hangs");
        std::thread first = SleepingThread([&path] { EXPECT_FALSE(Log().EnableFile(path)); });
        bool enabled = false;
        // Has its turn when the first one gives up, just before the call below does.
        std::thread second = SleepingThread([&] { enabled = Log().EnableFile(path); });
        Log().RunIgnitionOff();

        const int reader = open(pipe.c_str(), O_RDONLY);  // lets the writer continue
        first.join();
        second.join();
        EXPECT_EQ(enabled, Log().IsFileEnabled());
        close(reader);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
}

TEST(IgnitionOffTest, NoticeThatFindsNoFreeLineLeavesTheOpenLineAsItIs)
{
    const ChildResult child = RunInChild([] {
        alarm(hangSeconds);
        EXPECT_TRUE(Log().EnableConsole());
        Gate begun;
        Gate noticed;
        std::thread composing([&begun, &noticed] {
            Log().WriteHeader(LogType::Info);
            Log() << "be";
            begun.Open();
            EXPECT_TRUE(noticed.Pass());
            Log() << "gun" << std::endl;
        });
        EXPECT_TRUE(begun.Pass());
        Log().RunIgnitionOff();
        noticed.Open();
        composing.join();
        WriteLine("next");
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_THAT(LinesWithoutDate(child.output), ElementsAre("begun", "next"));
}

TEST(IgnitionOffTest, ConsoleThatHangsCostsTheNoticeOfTheConsoleOnly)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        alarm(hangSeconds);
        signal(SIGPIPE, SIG_IGN);
        const int output = dup(STDOUT_FILENO);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        WriteLine(std::string(1000000, 'x'));  // No process reads the pipe, so the console hangs.

        const auto start = Clock::now();
        Log().RunIgnitionOff();
        const auto duration = Clock::now() - start;
        const bool consoleEnabled = Log().IsConsoleEnabled();

        close(ends[0]);  // The write of the console fails.
        dup2(output, STDOUT_FILENO);
        Log().CloseConsole();
        EXPECT_GE(duration, longestLogWait);
        EXPECT_TRUE(consoleEnabled);
        EXPECT_FALSE(Log().IsFileEnabled());
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_EQ(LinesWithoutDate(ReadFile(path)).back(), notice);
}

}  // namespace
