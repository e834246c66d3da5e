#include "Tolvex/Util/DriveRecord.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Exception/IException.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SmallFileSystem.h"

namespace {

bool failDirectorySyncs = false;             // fsync() fails
std::vector<std::string> syncedDirectories;  // "path: the files that it held then"

}  // namespace

extern "C" int fsync(int descriptor)
{
    static auto* const real = Tolvex::Support::RealFunction<int(int)>("fsync");
    const std::filesystem::path directory = Tolvex::Support::PathOf(descriptor);
    std::string& line = syncedDirectories.emplace_back(directory.string() + ":");
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        line += " " + entry.path().filename().string();
    }
    return failDirectorySyncs ? Tolvex::Support::FailWith(EIO) : real(descriptor);
}

namespace Tolvex::Util {
namespace {

using Support::AllocationBudget;
using Support::ReadFile;
using Support::ScratchDirectory;
using Support::StartChild;

/// The text of the exception; empty for success.
std::string Write(const std::string& path, const DriveRecord& record)
{
    try {
        WriteDriveRecord(path, record);
        return "";
    } catch (const IException& problem) {
        return problem.what();
    }
}

DriveEnd EndIn(const std::string& path)
{
    const DriveRecord record = ReadDriveRecord(path);
    if (record.end == DriveEnd::Unreadable) {
        EXPECT_TRUE(record.overran.empty());
    }
    return record.end;
}

TEST(DriveRecordTest, RecordIsReadAsItWasWritten)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    for (const DriveEnd end : {DriveEnd::Died, DriveEnd::Stopped, DriveEnd::IgnitionOff}) {
        for (const std::vector<std::string>& names :
             {std::vector<std::string>{},
              {"Upload"},
              {"a b", "", "overran x", std::string(1, '\0')}}) {
            EXPECT_EQ(Write(path, {end, names}), "");
            const DriveRecord record = ReadDriveRecord(path);
            EXPECT_EQ(record.end, end);
            EXPECT_EQ(record.overran, names);
        }
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(DriveRecordTest, PathWithANulIsRefusedAndTheRecordStays)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    ASSERT_EQ(Write(path, {DriveEnd::Stopped, {}}), "");
    EXPECT_THAT(Write(path + '\0' + "x", {DriveEnd::Died, {}}),
                testing::EndsWith("Invalid argument"));
    EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
}

TEST(DriveRecordTest, NoFileIsNoDrive)
{
    const ScratchDirectory directory;
    EXPECT_EQ(EndIn(directory.Path("drive")), DriveEnd::None);
    EXPECT_EQ(EndIn(directory.Path("gone/drive")), DriveEnd::None);
}

TEST(DriveRecordTest, EveryDamagedByteAndEveryLengthIsNoticed)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    ASSERT_EQ(Write(path, {DriveEnd::IgnitionOff, {"Upload", "Encoder"}}), "");
    const std::string good = ReadFile(path);

    for (std::size_t i = 0; i < good.size(); ++i) {
        for (const unsigned bit : {1U, 0x80U}) {
            std::string bad = good;
            bad[i] = static_cast<char>(static_cast<unsigned char>(bad[i]) ^ bit);
            std::ofstream(path, std::ios::binary) << bad;
            EXPECT_EQ(EndIn(path), DriveEnd::Unreadable) << i;
        }
        std::ofstream(path, std::ios::binary) << good.substr(0, i);
        EXPECT_EQ(EndIn(path), DriveEnd::Unreadable) << i;
    }
    std::ofstream(path, std::ios::binary) << good << '\n';
    EXPECT_EQ(EndIn(path), DriveEnd::Unreadable);
    std::ofstream(path, std::ios::binary) << good;
    EXPECT_EQ(EndIn(path), DriveEnd::IgnitionOff);
}

TEST(DriveRecordTest, WhatIsNoRecordIsUnreadable)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    std::filesystem::create_directory(path);
    EXPECT_EQ(EndIn(path), DriveEnd::Unreadable);
    std::filesystem::remove(path);
    std::ofstream(path) << std::string(5000000, 'x') << std::string(5000000, 'x');
    EXPECT_EQ(EndIn(path), DriveEnd::Unreadable);
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(EndIn(path), DriveEnd::Unreadable);
    EXPECT_EQ(EndIn("/dev/zero"), DriveEnd::Unreadable);
}

TEST(DriveRecordTest, RecordThatCannotBeOpenedIsUnreadable)
{
    const ScratchDirectory directory;
    const std::string loop = directory.Path("loop");
    std::filesystem::create_symlink(loop, loop);
    EXPECT_EQ(EndIn(loop), DriveEnd::Unreadable);
    std::ofstream(directory.Path("file")) << "text";
    EXPECT_EQ(EndIn(directory.Path("file/drive")), DriveEnd::Unreadable);
    EXPECT_EQ(EndIn(directory.Path(std::string(300, 'x'))), DriveEnd::Unreadable);
}

TEST(DriveRecordTest, RecordIsNotUnreadableForLackOfMemory)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("record");
    ASSERT_EQ(Write(path, {DriveEnd::IgnitionOff, {"a participant with a long name"}}), "");
    int failures = 0;
    for (bool read = false; !read; ++failures) {
        ASSERT_LT(failures, 1000);
        try {
            const AllocationBudget budget(static_cast<std::size_t>(failures), 1);
            const DriveEnd end = ReadDriveRecord(path).end;
            EXPECT_EQ(end, DriveEnd::IgnitionOff) << failures;
            read = failures > 100;
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
}

TEST(DriveRecordTest, RecordWithAnInvalidEndIsRefused)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    for (const DriveEnd end :
         {DriveEnd::None, DriveEnd::Unreadable, DriveEnd{5}, DriveEnd{-1}, DriveEnd{INT32_MIN}}) {
        EXPECT_THAT(Write(path, {end, {}}),
                    testing::HasSubstr("the end is not Died, Stopped or IgnitionOff"));
    }
    EXPECT_THAT(Write(path, {DriveEnd::Died, {"a\nb"}}), testing::HasSubstr("line break"));
    EXPECT_THAT(Write(path, {DriveEnd::Died, {std::string(70000, 'x')}}),
                testing::HasSubstr("the names are too long"));
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path("")));
}

TEST(DriveRecordTest, RemovedDirectoryIsAnError)
{
    const ScratchDirectory directory;
    EXPECT_EQ(Write(directory.Path("gone/drive"), {DriveEnd::Died, {}}),
              "Failed to write the drive record: open: No such file or directory");
}

TEST(DriveRecordTest, DirectoryIsSyncedOnceAfterTheRename)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    syncedDirectories.clear();

    EXPECT_EQ(Write(path, {DriveEnd::Died, {}}), "");

    const std::string resolved = std::filesystem::canonical(directory.Path(""));
    EXPECT_THAT(syncedDirectories, testing::ElementsAre(resolved + ": drive"));
}

TEST(DriveRecordTest, FailureOfTheDirectoryOnlyIsToldAndLeavesTheNewRecord)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    ASSERT_EQ(Write(path, {DriveEnd::Died, {}}), "");

    failDirectorySyncs = true;
    EXPECT_EQ(Write(path, {DriveEnd::Stopped, {}}),
              "Failed to write the drive record: directory: Input/output error");
    failDirectorySyncs = false;

    EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(DriveRecordTest, CancellationWaitsUntilTheRecordIsWritten)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    std::string problem = "cancelled";
    std::thread([&] {
        const Support::CancellableStack stack;
        pthread_cancel(pthread_self());
        problem = Write(path, {DriveEnd::Stopped, {}});
    }).join();

    EXPECT_EQ(problem, "");
    EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
}

TEST(DriveRecordTest, FullAndReadOnlyFileSystemsKeepTheOldRecord)
{
    Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string path = mounted + "/drive";
        EXPECT_EQ(Write(path, {DriveEnd::Stopped, {}}), "");
        std::ofstream(mounted + "/ballast") << std::string(100000, 'x');

        EXPECT_EQ(Write(path, {DriveEnd::Died, {}}),
                  "Failed to write the drive record: write: No space left on device");
        EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
        EXPECT_FALSE(std::filesystem::exists(path + ".new"));

        std::filesystem::remove(mounted + "/ballast");
        Support::RemountSmallFileSystem(mounted, true);
        EXPECT_EQ(Write(path, {DriveEnd::Died, {}}),
                  "Failed to write the drive record: open: Read-only file system");
        EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
    });
}

TEST(DriveRecordTest, WriterThatIsKilledAtAnyMomentLeavesARecord)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    ASSERT_EQ(Write(path, {DriveEnd::Died, {}}), "");
    for (unsigned round = 0; round < 50; ++round) {
        const pid_t writer = StartChild([&path] {
            alarm(20);  // if the test itself is killed
            for (;;) {
                Write(path, {DriveEnd::Stopped, {}});
                Write(path, {DriveEnd::IgnitionOff, {std::string(20000, 'x'), "Upload"}});
            }
            return 0;
        });
        usleep(200 + round * 97);
        kill(writer, SIGKILL);
        ASSERT_EQ(waitpid(writer, nullptr, 0), writer);

        EXPECT_NE(EndIn(path), DriveEnd::Unreadable);
        EXPECT_NE(EndIn(path), DriveEnd::None);
    }
    EXPECT_EQ(Write(path, {DriveEnd::Stopped, {}}), "");
    EXPECT_EQ(EndIn(path), DriveEnd::Stopped);
}

}  // namespace
}  // namespace Tolvex::Util
