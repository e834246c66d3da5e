// When the lines of a log file reach the medium: which calls are made, when, and what a failure
// does.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

std::mutex callsMutex;           // guards calls
std::vector<std::string> calls;  // each with the name of its file, and the bytes in it
std::atomic<int> syncError = 0;  // of fdatasync(); 0: it works
std::atomic<int> directoryError = 0;
std::atomic<bool> directoryHangs = false;   // fsync() does not return
std::atomic<bool> directoryGoesOn = false;  // now it does
std::atomic<int> interruptions = 0;         // fdatasync() fails so often with EINTR
std::atomic<bool> hanging = false;          // fdatasync() does not return
std::atomic<int> hangingCalls = 0;

void Record(const char* call, int descriptor)
{
    struct stat status
    {
    };
    fstat(descriptor, &status);
    const std::string name = S_ISDIR(status.st_mode)
                                 ? "directory"
                                 : Tolvex::Support::PathOf(descriptor).filename().string() + ' ' +
                                       std::to_string(status.st_size);
    const std::lock_guard guard(callsMutex);
    calls.push_back(std::string(call) + ' ' + name);
}

}  // namespace

using Tolvex::Support::FailWith;

extern "C" {

// Nothing is synced really: the tests do not depend on the speed of a disk.
int fdatasync(int descriptor)
{
    Record("fdatasync", descriptor);
    ++hangingCalls;
    while (hanging) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    --hangingCalls;
    if (interruptions > 0) {
        --interruptions;
        return FailWith(EINTR);
    }
    return syncError == 0 ? 0 : FailWith(syncError);
}

int fsync(int descriptor)
{
    Record("fsync", descriptor);
    if (directoryHangs.exchange(false)) {  // for the first thread only
        Tolvex::Support::Eventually([] { return directoryGoesOn.load(); });
    }
    return directoryError == 0 ? 0 : FailWith(directoryError);
}

}  // extern "C"

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tolvex::Ilog::FileLogPolicy;
using Tolvex::Ilog::LogDurability;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasThread;
using Tolvex::Support::late;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunInTime;
using Tolvex::Support::ScratchDirectory;
using Clock = std::chrono::steady_clock;

constexpr milliseconds longTime = std::chrono::hours(1);

std::vector<std::string> TakeCalls()
{
    const std::lock_guard guard(callsMutex);
    return std::exchange(calls, {});
}

std::size_t CountCalls()
{
    const std::lock_guard guard(callsMutex);
    return calls.size();
}

class LogDurabilityTest : public ::testing::Test
{
protected:
    LogDurabilityTest() : path(directory.Path("log")), policy(std::make_unique<FileLogPolicy>())
    {
        policy->SetOutput(path);
        TakeCalls();
    }

    ScratchDirectory directory;
    std::string path;
    std::unique_ptr<FileLogPolicy> policy;
};

TEST_F(LogDurabilityTest, NothingIsSyncedUnlessItIsAskedFor)
{
    policy->Write("a\n");
    policy->BeginIgnitionOff();
    policy->Write("b\n");
    policy->SetDurability(LogDurability::None, longTime);
    policy->Write("c\n");

    EXPECT_THAT(TakeCalls(), IsEmpty());
}

TEST_F(LogDurabilityTest, EachLineIsSyncedAfterItWasWrittenAndTheDirectoryWithTheFirst)
{
    policy->SetDurability(LogDurability::EachLine);

    policy->Write("a\n");
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory"));
    policy->Write("b\n");
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 4"));
}

TEST_F(LogDurabilityTest, FileThatIsMadeAgainHasItsDirectorySyncedAgain)
{
    policy->SetDurability(LogDurability::EachLine);
    policy->Write("a\n");
    std::filesystem::remove(path);  // the next file may get the same inode
    TakeCalls();

    policy->Write("b\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory"));
}

TEST_F(LogDurabilityTest, DirectoryIsSyncedForAFileThatTookThePlaceOfTheOneBefore)
{
    policy->SetDurability(LogDurability::EachLine);
    policy->Write("a\n");
    std::ofstream(directory.Path("other")) << "other\n";
    std::filesystem::rename(directory.Path("other"), path);
    TakeCalls();

    policy->Write("b\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 8", "fsync directory"));
}

TEST_F(LogDurabilityTest, DirectoryIsSyncedForAFileThatAnotherProcessMayHaveMadeJustNow)
{
    std::ofstream(path) << "of another process\n";
    policy->SetDurability(LogDurability::EachLine);

    policy->Write("a\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 21", "fsync directory"));
}

TEST_F(LogDurabilityTest, FileInTheWorkingDirectoryHasThatDirectorySynced)
{
    const ChildResult child = RunInChild([this] {
        std::filesystem::current_path(std::filesystem::path(path).parent_path());
        policy->SetOutput("log");
        policy->SetDurability(LogDurability::EachLine);
        policy->Write("a\n");
        EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory"));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(LogDurabilityTest, FileThatIsAFifoKeepsItsLines)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    syncError = EINVAL;  // as the system answers
    policy->SetDurability(LogDurability::EachLine);

    policy->Write("a\n");

    syncError = 0;
    char text[16];
    EXPECT_EQ(read(reader, text, sizeof text), 2);
    close(reader);
    EXPECT_EQ(CountCalls(), 1U);  // The directory is synced for regular files only.
}

TEST_F(LogDurabilityTest, DirectoryThatAThreadIsSyncingIsSyncedForTheNoticeToo)
{
    directoryHangs = true;
    policy->SetDurability(LogDurability::Interval, milliseconds(1));
    policy->Write("a\n");
    EXPECT_TRUE(Eventually([] { return CountCalls() == 2; }));
    TakeCalls();

    policy->BeginIgnitionOff();
    policy->Write("notice\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 9", "fsync directory"));
    directoryGoesOn = true;
}

// ----------------------------------------------------------------------------------- failures

TEST_F(LogDurabilityTest, FailureKeepsTheLineIsNotReportedAndTheNextLineTriesAgain)
{
    policy->SetDurability(LogDurability::EachLine);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const int error : {EIO, ENOSPC, EROFS}) {
        syncError = error;
        policy->Write("a\n");
    }
    syncError = 0;
    policy->Write("b\n");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile(path), "a\na\na\nb\n");
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory", "fdatasync log 4",
                                         "fdatasync log 6", "fdatasync log 8"));
}

TEST_F(LogDurabilityTest, DirectoryThatCannotBeSyncedIsTriedAgainWithTheNextLine)
{
    policy->SetDurability(LogDurability::EachLine);
    directoryError = EIO;
    policy->Write("a\n");
    directoryError = 0;
    policy->Write("b\n");
    policy->Write("c\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory", "fdatasync log 4",
                                         "fsync directory", "fdatasync log 6"));
}

TEST_F(LogDurabilityTest, SyncThatASignalInterruptsIsRepeated)
{
    policy->SetDurability(LogDurability::EachLine);
    interruptions = 2;

    policy->Write("a\n");

    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fdatasync log 2", "fdatasync log 2",
                                         "fsync directory"));
}

// ----------------------------------------------------------------------------------- interval

TEST_F(LogDurabilityTest, IntervalSyncsAllLinesOfItsTimeOnceAndNotBefore)
{
    constexpr milliseconds interval(300);
    policy->SetDurability(LogDurability::Interval, interval);
    const auto start = Clock::now();

    policy->Write("a\n");
    policy->Write("b\n");
    policy->Write("c\n");
    const auto written = Clock::now();
    EXPECT_TRUE(Eventually([] { return CountCalls() >= 2; }));

    EXPECT_GE(Clock::now() - start, interval);
    if (written - start < interval) {  // the machine was fast enough
        EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 6", "fsync directory"));
        std::this_thread::sleep_for(3 * interval);
        EXPECT_THAT(TakeCalls(), IsEmpty());  // without lines there is nothing to sync
    }
}

TEST_F(LogDurabilityTest, LastLineBeforeSilenceIsSyncedAlsoIfItComesDuringASync)
{
    hanging = true;
    policy->SetDurability(LogDurability::Interval, milliseconds(1));
    policy->Write("a\n");
    EXPECT_TRUE(Eventually([] { return hangingCalls == 1; }));
    policy->Write("b\n");  // does not wait for the sync
    policy->Write("c\n");
    EXPECT_EQ(hangingCalls, 1);

    hanging = false;

    EXPECT_TRUE(Eventually([] { return CountCalls() == 3; }));
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory", "fdatasync log 6"));
}

TEST_F(LogDurabilityTest, IntervalHoldsAfterCloseAndAfterTheEndOfThePolicy)
{
    policy->SetDurability(LogDurability::Interval, milliseconds(100));
    policy->Write("a\n");
    policy->Close();
    policy.reset();

    EXPECT_TRUE(Eventually([] { return CountCalls() == 2; }));
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory"));
}

TEST_F(LogDurabilityTest, IntervalOfAFileHoldsAfterAnotherOneIsSet)
{
    policy->SetDurability(LogDurability::Interval, milliseconds(100));
    policy->Write("a\n");
    policy->SetOutput(directory.Path("other"));
    policy->Write("other\n");

    EXPECT_TRUE(Eventually([] { return CountCalls() == 4; }));
    EXPECT_THAT(TakeCalls(), ::testing::IsSupersetOf({"fdatasync log 2", "fdatasync other 6"}));
}

TEST_F(LogDurabilityTest, IntervalOfZeroOrLessSyncsEachLine)
{
    for (const milliseconds interval : {milliseconds(0), milliseconds(-5), milliseconds::min()}) {
        policy->SetDurability(LogDurability::Interval, interval);
        policy->Write("a\n");
    }
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory", "fdatasync log 4",
                                         "fdatasync log 6"));
}

TEST_F(LogDurabilityTest, ShorterIntervalAppliesToLinesThatWaitAlready)
{
    for (const milliseconds before : {longTime, milliseconds::max()}) {
        policy->SetDurability(LogDurability::Interval, before);
        policy->Write("a\n");
        policy->SetDurability(LogDurability::Interval, milliseconds(1));
        EXPECT_TRUE(Eventually([] { return CountCalls() != 0; }));
        EXPECT_TRUE(Eventually([] { return TakeCalls().empty(); }));
    }
}

TEST_F(LogDurabilityTest, FileThatIsGoneWhenItIsToBeSyncedIsNotMadeAgain)
{
    policy->SetDurability(LogDurability::Interval, longTime);
    policy->Write("a\n");
    std::filesystem::remove(path);
    policy->SetDurability(LogDurability::Interval, milliseconds(1));
    EXPECT_TRUE(Eventually([] { return !HasThread("LOG_SYNC"); }));
    EXPECT_FALSE(std::filesystem::exists(path));

    policy->Write("b\n");

    EXPECT_TRUE(Eventually([] { return CountCalls() == 2; }));
    EXPECT_THAT(TakeCalls(), ElementsAre("fdatasync log 2", "fsync directory"));
}

TEST_F(LogDurabilityTest, ChildSyncsItsOwnLinesThoughTheThreadRunsInTheParent)
{
    if (Tolvex::Support::underThreadSanitizer) {
        GTEST_SKIP() << "the thread sanitizer allows no threads in the child of a threaded process";
    }
    policy->SetDurability(LogDurability::Interval, longTime);
    policy->Write("a\n");
    const ChildResult child = RunInChild([this] {
        policy->SetDurability(LogDurability::Interval, milliseconds(1));
        policy->Write("b\n");
        EXPECT_TRUE(Eventually([] { return CountCalls() >= 1; }));
        EXPECT_EQ(TakeCalls().front(), "fdatasync log 4");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    policy->SetDurability(LogDurability::Interval, milliseconds(1));  // ends the thread
    EXPECT_TRUE(Eventually([] { return CountCalls() == 2; }));
}

// ------------------------------------------------------------------------------- ignition off

/// Logs three lines and turns the ignition off. @return the size of the log.
std::string LogUntilIgnitionOff(const std::string& path, LogDurability mode)
{
    Logger& logger = *Logger::GetInstance();
    logger.SetFileDurability(mode, longTime);
    EXPECT_TRUE(logger.EnableFile(path));
    for (int line = 0; line < 3; ++line) {
        LogLine(LogType::Info) << "line " << line;
    }
    logger.WriteHeader(LogType::Info);
    logger.DropLine();
    EXPECT_EQ(CountCalls(), mode == LogDurability::EachLine ? 4U : 0U);
    TakeCalls();
    logger.RunIgnitionOff();
    return std::to_string(ReadFile(path).size());
}

class IgnitionOffDurabilityTest : public LogDurabilityTest,
                                  public ::testing::WithParamInterface<LogDurability>
{
};

TEST_P(IgnitionOffDurabilityTest, NoticeIsOnTheMediumWhenTheCallReturns)
{
    const ChildResult child = RunInChild([this] {
        const std::string size = LogUntilIgnitionOff(path, GetParam());
        EXPECT_EQ(CountCalls(), GetParam() == LogDurability::EachLine ? 1U : 2U);
        EXPECT_EQ(TakeCalls().front(), "fdatasync log " + size);
        EXPECT_TRUE(ReadFile(path).ends_with("All triggers have been stopped\n"));

        EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
        LogLine(LogType::Info) << "after it";
        Logger::GetInstance()->CloseFile();
        EXPECT_EQ(CountCalls(), GetParam() == LogDurability::EachLine ? 1U : 0U);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

INSTANTIATE_TEST_SUITE_P(Modes, IgnitionOffDurabilityTest,
                         ::testing::Values(LogDurability::IgnitionOff, LogDurability::Interval,
                                           LogDurability::EachLine));

TEST_F(LogDurabilityTest, IgnitionOffSyncsNothingUnlessItIsAskedFor)
{
    const ChildResult child = RunInChild([this] {
        LogUntilIgnitionOff(path, LogDurability::None);
        EXPECT_THAT(TakeCalls(), IsEmpty());
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(LogDurabilityTest, IgnitionOffSyncsTheNoticeAloneHoweverManyThreadsLog)
{
    // On a starved machine the bound may pass before the notice.
    const ChildResult child = RunInTime([this] {
        std::filesystem::remove(path);
        Logger& logger = *Logger::GetInstance();
        logger.SetFileDurability(LogDurability::IgnitionOff);
        EXPECT_TRUE(logger.EnableFile(path));
        std::atomic<bool> logging = true;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 8; ++thread) {
            threads.emplace_back([&logging] {
                while (logging) {
                    LogLine(LogType::Info) << "line";
                }
            });
        }
        EXPECT_TRUE(Eventually([this] { return ReadFile(path).size() > 1000; }));

        const auto start = Clock::now();
        logger.RunIgnitionOff();
        const bool inTime = Clock::now() - start < longestLogWait;

        logging = false;
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (!inTime) {
            return late;
        }
        EXPECT_EQ(TakeCalls().size(), 2U);  // the file and its directory
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(LogDurabilityTest, SyncThatHangsDoesNotHoldIgnitionOffBeyondItsBound)
{
    const ChildResult child = RunInTime([this] {
        std::filesystem::remove(path);
        alarm(60);  // ends the child if it hangs
        Logger& logger = *Logger::GetInstance();
        logger.SetFileDurability(LogDurability::IgnitionOff);
        EXPECT_TRUE(logger.EnableFile(path));
        hanging = true;
        const auto start = Clock::now();

        logger.RunIgnitionOff();

        const auto took = Clock::now() - start;
        EXPECT_GE(took, longestLogWait);
        EXPECT_FALSE(logger.IsFileEnabled());
        const bool noticed = ReadFile(path).ends_with("All triggers have been stopped\n");
        hanging = false;
        return noticed && took < 2 * longestLogWait - milliseconds(200) ? 0 : late;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
}

TEST_F(LogDurabilityTest, LineBeforeThatHangsHoldsIgnitionOffForOneBoundOnly)
{
    const ChildResult child = RunInTime([this] {
        std::filesystem::remove(path);
        alarm(60);  // ends the child if it hangs
        Logger& logger = *Logger::GetInstance();
        logger.SetFileDurability(LogDurability::EachLine);
        EXPECT_TRUE(logger.EnableFile(path));
        hanging = true;
        LogLine(LogType::Info) << "line";
        const auto start = Clock::now();

        logger.RunIgnitionOff();

        const auto took = Clock::now() - start;
        EXPECT_GE(took, longestLogWait);
        EXPECT_TRUE(ReadFile(path).ends_with("line\n"));
        hanging = false;
        return took < 2 * longestLogWait - milliseconds(200) ? 0 : late;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
}

TEST_F(LogDurabilityTest, SettingsMayChangeWhileThreadsLog)
{
    const ChildResult child = RunInChild([this] {
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(path));
        std::atomic<bool> stop = false;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([&] {
                for (unsigned round = 0; !stop; ++round) {
                    logger.SetFileDurability(static_cast<LogDurability>(round % 4),
                                             milliseconds(round % 3));
                    logger.SetFileSizeLimit(round % 2 == 0 ? 0 : 1000, 2000);
                    std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
            });
        }
        constexpr std::size_t lines = 1000;
        for (std::size_t line = 0; line < lines; ++line) {
            LogLine(LogType::Info) << "line " << line;
        }
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        logger.CloseFile();

        std::size_t found = 0;
        for (const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
            const std::string text = ReadFile(file.path());
            found += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        }
        EXPECT_EQ(found, lines);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace
