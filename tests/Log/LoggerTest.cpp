#include "Tolvex/Log/Logger.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProcessLog.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SleepingThread.h"
#include "tests/Support/ThermalZone.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using ::testing::ElementsAre;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Interfaces::IgnitionOffMode;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::ChildResult;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasThread;
using Tolvex::Support::late;
using Tolvex::Support::LinesWithoutDate;
using Tolvex::Support::Log;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::RunInTime;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::Sleeps;
using Tolvex::Support::ThermalZone;
using Tolvex::Support::ThreadNames;
using Tolvex::Support::ThreadsBusyAtFork;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;

// Every test works in a child process, so that it finds the one logger of a process fresh.

/// @return whether the file comes to end in text.
bool AwaitEnd(const std::string& path, const std::string& text)
{
    return Eventually([&] { return ReadFile(path).ends_with(text); });
}

TEST(LoggerTest, IsAnIgnitionOffMode)
{
    const ScratchDirectory directory;
    const ChildResult child = RunInChild([&directory] {
        EXPECT_TRUE(Log().EnableFile(directory.Path("log")));
        IgnitionOffMode* const mode = Logger::GetInstance();
        mode->RunIgnitionOff();
        EXPECT_FALSE(Log().IsFileEnabled());
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerTest, FirstCallsFromManyThreadsGiveOneObject)
{
    const ChildResult child = RunInChild([] {
        std::atomic<bool> start = false;
        std::vector<Logger*> found(8);
        std::vector<std::thread> threads;
        for (Logger*& result : found) {
            threads.emplace_back([&] {
                while (!start) {
                }
                result = Logger::GetInstance();
            });
        }
        start = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_NE(found[0], nullptr);
        EXPECT_THAT(found, ::testing::Each(Logger::GetInstance()));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerTest, BothLoggersAreDisabledAtFirstAndWriteNothing)
{
    const ChildResult child = RunInChild([] {
        EXPECT_FALSE(Log().IsFileEnabled());
        EXPECT_FALSE(Log().IsConsoleEnabled());
        WriteLine("nowhere");
        Log().WriteHeader(LogType::Error);
        Log() << LogModule::WNET << 1 << 1.5 << "left open";
        WriteLine("nowhere");
        Log().RunIgnitionOff();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "");
}

TEST(LoggerTest, EmptyFileNameEnablesNothing)
{
    const ChildResult child = RunInChild([] {
        EXPECT_FALSE(Log().EnableFile(""));
        EXPECT_FALSE(Log().IsFileEnabled());
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerTest, EmptyFileNameChangesNothingOnAnEnabledLog)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_FALSE(Log().EnableFile(""));
        EXPECT_TRUE(Log().IsFileEnabled());
        WriteLine("line");
        Log().CloseFile();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("line"));
}

TEST(LoggerTest, EachLineReachesTheFileAndTheConsole)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        EXPECT_TRUE(Log().IsFileEnabled());
        EXPECT_TRUE(Log().IsConsoleEnabled());

        char text[] = " writable ";
        Log().WriteHeader(LogType::Error);
        Log() << LogModule::WNET << "eth0" << text << std::string("is down ") << 3 << " " << 0.25
              << std::endl;
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    const std::string line = "[ERROR][#WNET]eth0 writable is down 3 0.25";
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre(line));
    // The console has the same bytes in colour. Its header is of its own: a second may have passed.
    ASSERT_TRUE(child.output.starts_with("\x1B[31m"));
    EXPECT_EQ(WithoutDate(child.output.substr(5)), line + "\n\x1B[39m");
}

TEST(LoggerTest, FileAloneAndConsoleAloneGetTheirLines)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("file");
        Log().CloseFile();
        EXPECT_TRUE(Log().EnableConsole());
        WriteLine("console");
        Log().CloseConsole();
        WriteLine("nowhere");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded());
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("file"));
    EXPECT_THAT(LinesWithoutDate(child.output), ElementsAre("console"));
}

TEST(LoggerTest, WritersBearTheNamesOfTheLoggers)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        const std::vector<std::string> names = ThreadNames();
        EXPECT_THAT(names, ::testing::Contains("LOG_FILE\n"));
        EXPECT_THAT(names, ::testing::Contains("LOG_CONSOLE\n"));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerTest, EnabledFileLogContinuesInAnotherFile)
{
    const ScratchDirectory directory;
    const std::string first = directory.Path("first");
    const std::string second = directory.Path("second");
    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Log().EnableFile(first));
        WriteLine("one");
        EXPECT_TRUE(Log().EnableFile(second));
        WriteLine("two");
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(first)), ElementsAre("one"));
    EXPECT_THAT(LinesWithoutDate(ReadFile(second)), ElementsAre("two"));
}

TEST(LoggerTest, FirstLineOfAProcessDoesNotJoinTheTornEndOfTheLastOne)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    std::ofstream(path) << "torn";
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_EQ(ReadFile(path), "torn");  // as long as there is no line
        WriteLine("one");
        WriteLine("two");
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("?torn", "one", "two"));
}

TEST(LoggerTest, DirectoryInPlaceOfTheFileLosesTheLinesUntilAnotherFileIsChosen)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Log().EnableFile(directory.Path("")));
        WriteLine("lost");
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("kept");
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("kept"));
}

TEST(LoggerTest, LoggingContinuesAfterTheFileIsDeletedMovedOrTruncated)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("one");
        EXPECT_TRUE(AwaitEnd(path, "one\n"));
        std::filesystem::remove(path);
        WriteLine("two");
        EXPECT_TRUE(AwaitEnd(path, "two\n"));
        std::filesystem::rename(path, path + ".old");
        WriteLine("three");
        EXPECT_TRUE(AwaitEnd(path, "three\n"));
        std::filesystem::resize_file(path, 0);
        WriteLine("four");
        EXPECT_TRUE(AwaitEnd(path, "four\n"));
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path + ".old")), ElementsAre("two"));
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("four"));
}

TEST(LoggerTest, LineLeftOpenOnTheConsoleDoesNotReverseTheOrderOfTheLocks)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableConsole());
        Log().WriteHeader(LogType::Info);
        Log() << "left open";
        EXPECT_TRUE(Log().EnableFile(path));
        // Takes the file's lock and waits for the console's, which this thread holds.
        std::thread other([] { WriteLine("other"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        WriteLine("own");
        other.join();
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ::testing::UnorderedElementsAre("own", "other"));
    EXPECT_THAT(LinesWithoutDate(child.output),
                ::testing::UnorderedElementsAre("left open", "own", "other"));
}

TEST(LoggerTest, DropLineDropsItInBoth)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        Log().WriteHeader(LogType::Info);
        Log() << "half";
        Log().DropLine();
        std::thread([] { WriteLine("whole"); }).join();
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("whole"));
    EXPECT_THAT(LinesWithoutDate(child.output), ElementsAre("whole"));
}

std::ostream& EnableTheFileAndLog(std::ostream& stream)
{
    const std::string path = std::getenv("LOGGER_TEST_FILE");
    EXPECT_TRUE(Log().EnableFile(path));
    try {
        Log().WriteHeader(LogType::Info);
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
    }
    std::thread([] {
        // The console's line is still this test's: only the file's lock is free.
        Log().CloseConsole();
        WriteLine("whole");
    }).join();
    return stream;
}

int refusals = 0;  ///< how many times LoggingWithCare() got the error

/// A manipulator must not log. This one tries, in both ways.
std::ostream& LoggingWithCare(std::ostream& stream)
{
    LogLine(LogType::Info) << "lost";
    try {
        WriteLine("lost");
    } catch (const std::system_error& error) {
        refusals += error.code() == std::errc::resource_deadlock_would_occur ? 1 : 0;
    }
    return stream;
}

std::ostream& Logging(std::ostream& stream)
{
    WriteLine("lost");
    return stream;
}

TEST(LoggerTest, ManipulatorThatLogsGetsAnErrorAndTheLineStaysWholeInEachOutput)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        EXPECT_TRUE(Log().EnableBlackBox(10));
        Log().WriteHeader(LogType::Info);
        Log() << "one " << LoggingWithCare << "line" << std::endl;
        EXPECT_EQ(refusals, 3);
        WriteLine("next");
        EXPECT_THAT(Log().GetLastLines(), ::testing::SizeIs(2));
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("one line", "next"));
    EXPECT_THAT(LinesWithoutDate(child.output), ElementsAre("one line", "next"));
}

TEST(LoggerTest, ErrorOfAManipulatorThatLogsDropsTheLineInEachOutput)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        alarm(20);  // ends the child if a lock stays taken
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        Log().WriteHeader(LogType::Info);
        EXPECT_THROW(Log() << "half a line" << Logging << std::endl, std::system_error);
        std::thread([] { WriteLine("next"); }).join();
        Log().CloseFile();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("next"));
    EXPECT_THAT(LinesWithoutDate(child.output), ElementsAre("next"));
}

TEST(LoggerTest, LineOfTheFileIsGivenBackWhenTheLockOfTheConsoleCannotBeTaken)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        setenv("LOGGER_TEST_FILE", path.c_str(), 1);
        EXPECT_TRUE(Log().EnableConsole());
        Log().WriteHeader(LogType::Info);
        Log() << "half" << EnableTheFileAndLog << std::endl;
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("whole"));
}

struct HeaderRow
{
    const char* name;
    const char* zone;  ///< text of the thermal zone; null: there is none
    LogType type;
    const char* fields;  ///< what stands between the date and the text
};

class LoggerHeaderTest : public ::testing::TestWithParam<HeaderRow>
{
};

TEST_P(LoggerHeaderTest, TemperatureStandsBetweenTheDateAndTheTagWhenItIsKnown)
{
    if (!ThermalZone::MayEnter()) {
        GTEST_SKIP() << ThermalZone::whyNot;
    }
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(ThermalZone::Enter());
        if (GetParam().zone != nullptr) {
            ThermalZone::Write(GetParam().zone);
        }
        EXPECT_TRUE(Log().EnableFile(path));
        WriteLine("text", GetParam().type);
        Log().CloseFile();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    const std::string line = ReadFile(path);
    const std::size_t dateLength = sizeof("[2024-05-01 12:00:07]") - 1;
    ASSERT_GE(line.size(), dateLength);
    EXPECT_EQ(line.substr(dateLength), std::string(GetParam().fields) + "text\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, LoggerHeaderTest,
    ::testing::Values(HeaderRow{"Error", "47123\n", LogType::Error, "[47C][ERROR]"},
                      HeaderRow{"Warning", "47123\n", LogType::Warning, "[47C][WARNING]"},
                      HeaderRow{"Notice", "47123\n", LogType::Notice, "[47C]"},
                      HeaderRow{"OneDegree", "1\n", LogType::Info, "[1C]"},
                      HeaderRow{"Frost", "-5000\n", LogType::Error, "[-5C][ERROR]"},
                      HeaderRow{"ZeroIsKnown", "0\n", LogType::Error, "[0C][ERROR]"},
                      HeaderRow{"EmptyZone", "", LogType::Error, "[ERROR]"},
                      HeaderRow{"NoZone", nullptr, LogType::Error, "[ERROR]"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(LoggerTest, DestroyedLoggerIsClosedAndStaysTheInstance)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        Logger* const logger = Logger::GetInstance();
        EXPECT_TRUE(logger->EnableFile(path));
        WriteLine("last");
        CapturingLogger other;
        EXPECT_TRUE(other.Enable());
        logger->~Logger();  // its memory stays, so no new logger gets the same address
        EXPECT_EQ(Logger::GetInstance(), logger);
        // The library's own lines do not touch it any more, whatever other loggers there are.
        LogLine(LogType::Info) << "nowhere";
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("last"));
}

TEST(LoggerTest, OutputThatWasEnabledAndClosedTwiceTakesLinesWhenEnabledAgain)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        for (const char* const line : {"first", "second"}) {
            EXPECT_TRUE(Log().EnableFile(path));
            EXPECT_TRUE(Log().EnableFile(path));
            EXPECT_TRUE(Log().EnableBlackBox(10));
            Log().CloseBlackBox();
            Log().CloseBlackBox();
            WriteLine(line);
            Log().CloseFile();
            Log().CloseFile();
            Log().CloseConsole();
            EXPECT_FALSE(Log().EnableFile(""));
            EXPECT_FALSE(Log().EnableBlackBox(0));
            WriteLine("nowhere");
        }
        const ChildResult forked = RunInChild([&path] {
            EXPECT_TRUE(Log().EnableFile(path));
            WriteLine("child");
            Log().CloseFile();
            return 0;
        });
        EXPECT_TRUE(forked.Succeeded()) << forked.output;
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("first", "second", "child"));
}

TEST(LoggerTest, DestroyedLoggerClosesTheFileBeforeTheConsole)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const ChildResult child = RunInTime([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        WriteLine("hangs");  // in the file's writer, for which the destructor waits 2.1 s
        const auto start = std::chrono::steady_clock::now();
        std::thread destroying =
            SleepingThread([logger = Logger::GetInstance()] { logger->~Logger(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const bool hasConsole = HasThread("LOG_CONSOLE");
        const bool inTime = std::chrono::steady_clock::now() - start < longestLogWait;
        destroying.join();
        EXPECT_TRUE(Eventually([] { return !HasThread("LOG_CONSOLE"); }));
        if (!inTime) {
            return late;
        }
        EXPECT_TRUE(hasConsole);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(LoggerTest, NothingIsWrittenToStandardError)
{
    const ScratchDirectory directory;
    const std::string errors = directory.Path("errors");
    const ChildResult child = RunInChild([&] {
        const int file = open(errors.c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(dup2(file, STDERR_FILENO), STDERR_FILENO);
        EXPECT_TRUE(Log().EnableConsole());
        EXPECT_TRUE(Log().EnableBlackBox(1));
        for (const char* const path : {"/no/such/directory/log", "/", "/dev/full"}) {
            EXPECT_TRUE(Log().EnableFile(path));
            for (const LogType type :
                 {LogType::Info, LogType::Warning, LogType::Error, LogType::Notice}) {
                WriteLine("line", type);
            }
        }
        EXPECT_FALSE(Log().EnableFile(""));
        EXPECT_FALSE(Log().SaveLastLines("/no/such/directory/lines"));
        Log().RunIgnitionOff();
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(errors), "");
}

// ---------------------------------------------------------------------------------- ignition off

TEST(LoggerTest, IgnitionOffWritesAGreenNoticeWithoutModuleAndClosesTheFileOnly)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        EXPECT_TRUE(Log().EnableFile(path));
        EXPECT_TRUE(Log().EnableConsole());
        Log().RunIgnitionOff();
        EXPECT_FALSE(Log().IsFileEnabled());
        EXPECT_TRUE(Log().IsConsoleEnabled());
        WriteLine("after");
        Log().CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded());
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("All triggers have been stopped"));
    ASSERT_TRUE(child.output.starts_with("\x1B[32m"));
    const std::string rest = WithoutDate(child.output.substr(5));
    const std::string notice = "All triggers have been stopped\n\x1B[39m";
    ASSERT_TRUE(rest.starts_with(notice)) << child.output;
    EXPECT_EQ(WithoutDate(rest.substr(notice.size())), "after\n");
}

TEST(LoggerTest, IgnitionOffWithoutALoggerReturnsAtOnce)
{
    const ChildResult child = RunInChild([] {
        const auto start = std::chrono::steady_clock::now();
        for (int round = 0; round < 1000; ++round) {
            Log().RunIgnitionOff();
        }
        // One sleep of 100 ms a round would make 100 seconds.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(child.output, "");
}

// ------------------------------------------------------------------------------------------ exit

TEST(LoggerTest, LineThatIsEndedBeforeExitIsWritten)
{
    const ScratchDirectory directory;
    for (int round = 0; round < 50; ++round) {
        const std::string path = directory.Path(std::to_string(round));
        const ChildResult child = RunInChild([&path]() -> int {
            Log().EnableFile(path);
            Log().EnableConsole();
            WriteLine("one");
            WriteLine("last");
            std::exit(0);
        });

        EXPECT_TRUE(child.Succeeded());
        ASSERT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("one", "last"));
        ASSERT_THAT(LinesWithoutDate(child.output), ElementsAre("one", "last"));
    }
}

TEST(LoggerTest, LineThatIsEndedBeforeQuickExitIsWritten)
{
    const ScratchDirectory directory;
    for (int round = 0; round < 50; ++round) {
        const std::string path = directory.Path(std::to_string(round));
        const ChildResult child = RunInChild([&path]() -> int {
            Log().EnableFile(path);
            WriteLine("one");
            WriteLine("last");
            std::quick_exit(0);
        });

        EXPECT_TRUE(child.Succeeded());
        ASSERT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("one", "last"));
    }
}

TEST(LoggerTest, ThreadThatHoldsALineOpenDoesNotKeepTheProcessFromExiting)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path]() -> int {
        Log().EnableFile(path);
        std::atomic<bool> begun = false;
        std::thread([&begun] {
            WriteLine("whole");
            Log().WriteHeader(LogType::Info);
            Log() << "half";
            begun = true;
            for (;;) {
                std::this_thread::sleep_for(std::chrono::seconds(1));
            }
        }).detach();
        Eventually([&] { return begun.load(); });
        std::exit(0);
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(LinesWithoutDate(ReadFile(path)), ElementsAre("whole"));
}

/// Expects that leave(0) ends a process at the earliest after 2.1 s while its writer hangs.
void ExpectDelayedBy(void (*leave)(int))
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto start = std::chrono::steady_clock::now();
    const ChildResult child = RunInChild([&path, leave]() -> int {
        Log().EnableFile(path);  // No process reads the pipe, so opening it hangs.
        WriteLine("lost");
        leave(0);
        return 1;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_GE(std::chrono::steady_clock::now() - start, longestLogWait);
}

TEST(LoggerTest, WriterThatHangsDelaysTheExitByTwoSecondsOnly)
{
    ExpectDelayedBy([](int code) { std::exit(code); });
}

TEST(LoggerTest, WriterThatHangsDelaysAQuickExitByTwoSecondsOnly)
{
    ExpectDelayedBy([](int code) { std::quick_exit(code); });
}

TEST(LoggerTest, LineOnTheConsoleIsFlushedAtExitAlsoWhileStdCoutHasFailed)
{
    const ChildResult child = RunInChild([]() -> int {
        std::ios_base::sync_with_stdio(false);
        std::cout.setstate(std::ios_base::badbit);
        Log().EnableConsole();
        WriteLine("last");
        std::exit(0);
    });

    EXPECT_TRUE(child.Succeeded());
    EXPECT_NE(child.output.find("last"), std::string::npos) << child.output;
}

std::atomic<bool> exiting = false;
std::chrono::steady_clock::time_point exitBegan;
CapturingLogger* loggerAtExit = nullptr;

TEST(LoggerTest, ExitDoesNotWaitForALineThatIsEndedLater)
{
    const ChildResult child = RunInTime([]() -> int {
        std::atexit([] {  // registered first: runs after the log has waited
            const auto took = std::chrono::steady_clock::now() - exitBegan;
            const bool waited = loggerAtExit->GetPolicy().LineCount() != 0;
            _exit(took >= longestLogWait ? late : waited ? 0 : 1);
        });
        loggerAtExit = new CapturingLogger;
        loggerAtExit->GetPolicy().onWrite = [process = getpid()](const std::string& line) {
            if (line.ends_with("first\n")) {
                // The number of a process is that of its first thread, which then waits in exit().
                Eventually([process] { return exiting && Sleeps(process); });
                return;
            }
            for (;;) {  // The second line hangs.
                std::this_thread::sleep_for(std::chrono::seconds(1));
            }
        };
        EXPECT_TRUE(loggerAtExit->Enable());
        WriteLine(*loggerAtExit, "first");
        SleepingThread([] { WriteLine(*loggerAtExit, "second"); }).detach();

        std::atexit([] {  // registered last: runs first
            exitBegan = std::chrono::steady_clock::now();
            exiting = true;
        });
        std::exit(1);
    });
    EXPECT_TRUE(child.Succeeded()) << child.output << child.ExitCode();
}

TEST(LoggerTest, ThreadsMayLogWhileTheProcessExits)
{
    const ScratchDirectory directory;
    for (int round = 0; round < 20; ++round) {
        const std::string path = directory.Path(std::to_string(round));
        const ChildResult child = RunInChild([&path]() -> int {
            Log().EnableFile(path);
            for (int thread = 0; thread < 4; ++thread) {
                std::thread([] {
                    for (;;) {
                        Log().WriteHeader(LogType::Warning);
                        Log() << LogModule::Accelerometer << "text" << std::endl;
                    }
                }).detach();
            }
            EXPECT_TRUE(AwaitEnd(path, "text\n"));
            std::exit(0);
        });

        ASSERT_TRUE(child.Succeeded()) << child.output;
        for (const std::string& line : LinesWithoutDate(ReadFile(path))) {
            ASSERT_EQ(line, "[WARNING][#Accelerometer]text");
        }
    }
}

// ------------------------------------------------------------------------------------------ fork

TEST(LoggerTest, ForkedChildrenOfALoggingProcessLogToFilesOfTheirOwn)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("parent");
    const ChildResult result = RunInChild([&] {
        EXPECT_TRUE(Log().EnableFile(path));
        std::atomic<bool> running = true;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < ThreadsBusyAtFork(3); ++thread) {
            threads.emplace_back([&running] {
                while (running) {
                    Log().WriteHeader(LogType::Error);
                    Log() << LogModule::Event << "parent" << std::endl;
                }
            });
        }
        for (int round = 0; round < 20; ++round) {
            const std::string own = directory.Path(std::to_string(round));
            const ChildResult child = RunInChild([&own] {
                EXPECT_FALSE(Log().IsFileEnabled());
                WriteLine("nowhere");
                EXPECT_TRUE(Log().EnableFile(own));
                Log().WriteHeader(LogType::Error);
                Log() << LogModule::CELL << "child" << std::endl;
                EXPECT_TRUE(AwaitEnd(own, "child\n"));
                return 0;
            });
            EXPECT_TRUE(child.Succeeded()) << child.output;
            EXPECT_THAT(LinesWithoutDate(ReadFile(own)), ElementsAre("[ERROR][#CELL]child"));
        }
        running = false;
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(Log().IsFileEnabled());
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    for (const std::string& line : LinesWithoutDate(ReadFile(path))) {
        ASSERT_EQ(line, "[ERROR][#Event]parent");
    }
}

}  // namespace
