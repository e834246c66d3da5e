// Saving the last lines of the log to a file.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/BlackBox.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SmallFileSystem.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

std::atomic<bool> failDirectorySyncs = false;  // fsync() fails
std::atomic<int> directorySyncs = 0;           // while there was no file "saved.new"

}  // namespace

extern "C" int fsync(int descriptor)
{
    static auto* const real = Tolvex::Support::RealFunction<int(int)>("fsync");
    const auto directory = Tolvex::Support::PathOf(descriptor);
    directorySyncs += std::filesystem::exists(directory / "saved.new") ? 0 : 1;
    return failDirectorySyncs ? Tolvex::Support::FailWith(EIO) : real(descriptor);
}

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::SizeIs;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::InSmallFileSystem;
using Tolvex::Support::OpenBlackBox;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RemountSmallFileSystem;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;
using Tolvex::Support::StartChild;

Logger& logger = *Logger::GetInstance();

/// @return the reason why the lines cannot be saved; 0 if they can.
int Save(const std::string& path)
{
    return logger.SaveLastLines(path) ? 0 : errno;
}

std::vector<std::string> FilesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

TEST(BlackBoxSaveTest, FileHoldsTheLinesAndNothingElse)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    const OpenBlackBox box(2);

    ASSERT_EQ(Save(path), 0);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(ReadFile(path), "");
    for (const char* const text : {"one", "two", "three"}) {
        LogLine(LogType::Info) << text;
    }
    ASSERT_EQ(Save(path), 0);
    const std::vector<std::string> lines = logger.GetLastLines();
    EXPECT_EQ(ReadFile(path), lines[0] + '\n' + lines[1] + '\n');
    EXPECT_THAT(FilesIn(directory.Path("")), SizeIs(1));
}

TEST(BlackBoxSaveTest, RemnantOfAnInterruptedSaveIsOverwritten)
{
    const ScratchDirectory directory;
    std::ofstream(directory.Path("saved.new")) << std::string(5000, 'x');
    const OpenBlackBox box(2);
    LogLine(LogType::Info) << "text";

    ASSERT_EQ(Save(directory.Path("saved")), 0);

    EXPECT_EQ(ReadFile(directory.Path("saved")), logger.GetLastLines()[0] + '\n');
    EXPECT_THAT(FilesIn(directory.Path("")), SizeIs(1));
}

TEST(BlackBoxSaveTest, SaverThatHangsIsWaitedForForALimitedTime)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    std::ofstream(path) << "old\n";
    const OpenBlackBox box(2);
    LogLine(LogType::Info) << "line";
    const int hanging = open((path + ".new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(hanging, LOCK_EX), 0);

    EXPECT_EQ(Save(path), EWOULDBLOCK);
    EXPECT_EQ(ReadFile(path), "old\n");

    close(hanging);
    EXPECT_EQ(Save(path), 0);
}

TEST(BlackBoxSaveTest, PathThatCannotBeAFileIsAnErrorWithItsReason)
{
    const ScratchDirectory directory;
    std::filesystem::create_directory(directory.Path("directory"));
    ASSERT_EQ(mkfifo(directory.Path("fifo.new").c_str(), 0600), 0);
    const OpenBlackBox box(2);

    EXPECT_EQ(Save(directory.Path("directory")), EISDIR);
    EXPECT_EQ(Save(directory.Path("removed/saved")), ENOENT);
    EXPECT_EQ(Save(directory.Path(std::string(300, 'x'))), ENAMETOOLONG);
    EXPECT_EQ(Save(directory.Path("fifo")), ENXIO);
    EXPECT_EQ(Save(""), ENOENT);
    EXPECT_EQ(Save("/proc/self/saved"), ENOENT);
    EXPECT_THAT(FilesIn(directory.Path("")), SizeIs(2));
    EXPECT_FALSE(std::filesystem::exists(".new"));
    EXPECT_TRUE(logger.IsBlackBoxEnabled());
}

TEST(BlackBoxSaveTest, FullAndReadOnlyFileSystemsKeepTheEarlierFile)
{
    InSmallFileSystem("size=256k", [](const std::string& mounted) {
        const std::string path = mounted + "/saved";
        const OpenBlackBox box(1000);
        LogLine(LogType::Info) << "early";
        EXPECT_EQ(Save(path), 0);
        const std::string early = ReadFile(path);
        for (int line = 0; line < 1000; ++line) {
            LogLine(LogType::Info) << std::string(200, 'x');
        }
        std::ofstream(mounted + "/ballast") << std::string(100000, 'x');

        EXPECT_EQ(Save(path), ENOSPC);
        EXPECT_EQ(ReadFile(path), early);
        EXPECT_FALSE(std::filesystem::exists(path + ".new"));

        RemountSmallFileSystem(mounted, true);
        EXPECT_EQ(Save(path), EROFS);
        EXPECT_EQ(ReadFile(path), early);
    });
}

TEST(BlackBoxSaveTest, DirectoryIsSyncedAfterTheRenameAndItsFailureLeavesTheNewFile)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    const OpenBlackBox box(2);
    ASSERT_EQ(Save(path), 0);
    LogLine(LogType::Info) << "text";
    directorySyncs = 0;

    failDirectorySyncs = true;
    EXPECT_EQ(Save(path), EIO);
    failDirectorySyncs = false;

    EXPECT_EQ(directorySyncs, 1);
    EXPECT_THAT(SplitLines(ReadFile(path)), ElementsAre(EndsWith("text")));
    EXPECT_THAT(FilesIn(directory.Path("")), SizeIs(1));
}

TEST(BlackBoxSaveTest, ProcessThatIsKilledAtAnyMomentLeavesAWholeFile)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    const OpenBlackBox box(500);
    for (int line = 0; line < 500; ++line) {
        LogLine(LogType::Info) << line;
    }
    ASSERT_EQ(Save(path), 0);
    const std::string whole = ReadFile(path);

    for (int round = 0; round < 20; ++round) {
        const pid_t child = StartChild([&path] {
            while (logger.SaveLastLines(path)) {
            }
            return 1;
        });
        std::this_thread::sleep_for(std::chrono::microseconds(round * 500));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        ASSERT_EQ(ReadFile(path), whole);
    }
    EXPECT_EQ(Save(path), 0);
}

/// The end of a pipe that a handler of crashes writes to.
int crashed = -1;

TEST(BlackBoxSaveTest, ThreadThatACrashHandlerWakesSavesTheLines)
{
    const ScratchDirectory directory;
    const auto child = RunInChild([&directory] {
        EXPECT_TRUE(logger.EnableBlackBox(5));
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        crashed = ends[1];
        std::thread([&directory, from = ends[0]] {
            char byte = 0;
            if (read(from, &byte, 1) == 1 && logger.SaveLastLines(directory.Path("saved"))) {
                _exit(7);
            }
        }).detach();
        std::signal(SIGSEGV, [](int) {
            static_cast<void>(!write(crashed, "x", 1));
            sleep(60);
        });
        LogLine(LogType::Info) << "the last one";
        logger.WriteHeader(LogType::Info);
        logger << "never ended";
        raise(SIGSEGV);
        return 1;
    });

    EXPECT_EQ(child.ExitCode(), 7) << child.output;
    EXPECT_THAT(SplitLines(ReadFile(directory.Path("saved"))),
                ElementsAre(EndsWith("the last one")));
}

TEST(BlackBoxSaveTest, SavesAtTheSameTimeLeaveWholeLines)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("saved");
    const OpenBlackBox box(200);
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&running, number] {
            for (std::size_t length = 0; running; ++length) {
                LogLine(LogType::Info) << std::string(length % 300, 'x') << number << "end";
            }
        });
        threads.emplace_back([&running, &path] {
            while (running) {
                EXPECT_EQ(Save(path), 0);
            }
        });
    }

    for (int round = 0; round < 40; ++round) {
        EXPECT_EQ(Save(path), 0);
        const std::string text = ReadFile(path);
        EXPECT_TRUE(text.empty() || text.ends_with("end\n"));
        EXPECT_THAT(SplitLines(text), Each(EndsWith("end")));
        EXPECT_LE(SplitLines(text).size(), 200);
    }

    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(FilesIn(directory.Path("")), SizeIs(1));
}

}  // namespace
