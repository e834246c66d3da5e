// The size limit of a log file: which files there are after a line, and what a failure does.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogPolicy.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SmallFileSystem.h"

namespace {

std::vector<std::string> calls;   // of the functions below, with the names of the files
int renameError = 0;              // of rename() and unlink(); 0: they work
int flockError = 0;               // of flock(); 0: it works
std::vector<int> lockOperations;  // of flock()
std::function<void(int)> atLock;  // called before flock(), with the descriptor
bool allNamesAreTaken = false;    // lstat64() finds a file of any name

std::string NameOf(const std::filesystem::path& path)
{
    return path.filename().string();
}

}  // namespace

using Tolvex::Support::FailWith;

extern "C" {

int rename(const char* from, const char* to)
{
    calls.push_back("rename " + NameOf(from) + ' ' + NameOf(to));
    return renameError != 0
               ? FailWith(renameError)
               : Tolvex::Support::RealFunction<int(const char*, const char*)>("rename")(from, to);
}

int unlink(const char* path)
{
    return renameError != 0 ? FailWith(renameError)
                            : Tolvex::Support::RealFunction<int(const char*)>("unlink")(path);
}

int flock(int descriptor, int operation)
{
    lockOperations.push_back(operation);
    if (atLock && operation != LOCK_UN) {
        std::exchange(atLock, nullptr)(descriptor);
    }
    return flockError != 0
               ? FailWith(flockError)
               : Tolvex::Support::RealFunction<int(int, int)>("flock")(descriptor, operation);
}

int lstat64(const char* path, struct stat64* status)
{
    return allNamesAreTaken ? 0
                            : Tolvex::Support::RealFunction<int(const char*, struct stat64*)>(
                                  "lstat64")(path, status);
}

int fdatasync(int descriptor)
{
    calls.push_back("fdatasync " + NameOf(Tolvex::Support::PathOf(descriptor)));
    return 0;
}

int fsync(int)
{
    calls.emplace_back("fsync");
    return 0;
}

}  // extern "C"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Ilog::FileLogPolicy;
using Tolvex::Ilog::LogDurability;
using Tolvex::Support::ChildResult;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds longestWaitForLock(200);
constexpr std::chrono::milliseconds retryInterval(2000);
constexpr int mostReopenings = 20;

class LogRotationTest : public ::testing::Test
{
protected:
    LogRotationTest() : path(directory.Path("log"))
    {
        policy.SetOutput(path);
        calls.clear();
        lockOperations.clear();
    }
    ~LogRotationTest() override
    {
        renameError = 0;
        flockError = 0;
        atLock = nullptr;
    }

    /// The log, and the old files up to the first number without one.
    std::vector<std::string> Files() const
    {
        std::vector<std::string> texts{ReadFile(path)};
        for (std::string old; std::filesystem::exists(old = Old(texts.size()));) {
            texts.push_back(ReadFile(old));
        }
        return texts;
    }

    std::string Old(std::size_t number) const { return path + '.' + std::to_string(number); }

    void Write(const std::vector<std::string>& lines)
    {
        for (const std::string& line : lines) {
            policy.Write(line + '\n');
        }
    }

    ScratchDirectory directory;
    std::string path;
    FileLogPolicy policy;
};

TEST_F(LogRotationTest, WithoutALimitTheFileGrowsAndIsNotLocked)
{
    flockError = ENOLCK;
    bool asked = false;
    atLock = [&](int) { asked = true; };
    Write({"aaaa", "bbbb"});
    policy.SetSizeLimit(0, 3);
    Write({"cccc"});

    EXPECT_THAT(Files(), ElementsAre("aaaa\nbbbb\ncccc\n"));
    EXPECT_FALSE(asked);
}

TEST_F(LogRotationTest, LimitThatIsSwitchedOffEndsTheLocking)
{
    policy.SetSizeLimit(100, 3);
    Write({"aaaa"});
    policy.SetSizeLimit(0, 3);
    lockOperations.clear();

    Write({"bbbb"});

    EXPECT_THAT(Files(), ElementsAre("aaaa\nbbbb\n"));
    EXPECT_THAT(lockOperations, IsEmpty());
}

TEST_F(LogRotationTest, LineThatStillFitsStaysAndOneByteMoreGoesToANewFile)
{
    policy.SetSizeLimit(10, 5);
    Write({"aaaa", "bbbb"});
    EXPECT_THAT(Files(), ElementsAre("aaaa\nbbbb\n"));

    Write({"c"});
    EXPECT_THAT(Files(), ElementsAre("c\n", "aaaa\nbbbb\n"));
    Write({"ddddddd"});
    EXPECT_THAT(Files(), ElementsAre("c\nddddddd\n", "aaaa\nbbbb\n"));
    Write({""});
    EXPECT_THAT(Files(), ElementsAre("\n", "c\nddddddd\n", "aaaa\nbbbb\n"));
}

TEST_F(LogRotationTest, OldFilesMoveUpAndTheOldestIsRemoved)
{
    policy.SetSizeLimit(2, 3);
    Write({"a", "b", "c", "d"});
    EXPECT_THAT(Files(), ElementsAre("d\n", "c\n", "b\n", "a\n"));
    Write({"e", "f"});
    EXPECT_THAT(Files(), ElementsAre("f\n", "e\n", "d\n", "c\n"));
}

TEST_F(LogRotationTest, KeepingNoneRemovesTheFullFileAndKeepingOneReplacesIt)
{
    policy.SetSizeLimit(4, 0);
    Write({"a", "b", "c"});
    EXPECT_THAT(Files(), ElementsAre("c\n"));
    policy.SetSizeLimit(4, 1);
    Write({"d", "e", "f", "g"});
    EXPECT_THAT(Files(), ElementsAre("g\n", "e\nf\n"));
}

TEST_F(LogRotationTest, LineThatIsLongerThanTheLimitGetsAFileOfItsOwn)
{
    policy.SetSizeLimit(4, 5);
    Write({"a", std::string(100, 'l'), "b", "c"});
    EXPECT_THAT(Files(), ElementsAre("b\nc\n", std::string(100, 'l') + '\n', "a\n"));
    policy.SetSizeLimit(1, 5);
    Write({"d", "e"});
    EXPECT_THAT(Files(), ElementsAre("e\n", "d\n", "b\nc\n", std::string(100, 'l') + '\n', "a\n"));
}

TEST_F(LogRotationTest, LargestLimitAndLargestNumberAreAccepted)
{
    policy.SetSizeLimit(std::numeric_limits<std::uint64_t>::max(),
                        std::numeric_limits<unsigned>::max());
    Write({"a", "b"});
    EXPECT_THAT(Files(), ElementsAre("a\nb\n"));
    policy.SetSizeLimit(1, std::numeric_limits<unsigned>::max());
    Write({"c"});
    EXPECT_THAT(Files(), ElementsAre("c\n", "a\nb\n"));
}

TEST_F(LogRotationTest, AtMost65535OldFilesAreKept)
{
    policy.SetSizeLimit(2, 65536);
    Write({"a"});
    calls.clear();
    allNamesAreTaken = true;
    Write({"b"});
    allNamesAreTaken = false;
    EXPECT_THAT(calls, ElementsAre("rename log.65534 log.65535"));
}

TEST_F(LogRotationTest, FileOfMoreThanTwoGigabytesGrowsAndIsRenamed)
{
    constexpr std::uint64_t size = 3000000000;
    std::ofstream(path) << "begin\n";
    std::error_code failed;
    std::filesystem::resize_file(path, size, failed);  // without the blocks
    if (failed) {
        GTEST_SKIP() << "the file system takes no file of that size";
    }
    policy.RepairEnd();
    Write({"a"});
    EXPECT_EQ(std::filesystem::file_size(path), size + 3);
    policy.SetSizeLimit(size + 5, 1);
    Write({"b"});
    EXPECT_EQ(std::filesystem::file_size(path), size + 5);
    Write({"c"});
    EXPECT_EQ(std::filesystem::file_size(Old(1)), size + 5);
    EXPECT_EQ(ReadFile(path), "c\n");
}

TEST_F(LogRotationTest, FileThatIsFoundFullIsRenamedBeforeTheFirstLine)
{
    std::ofstream(path) << "of another process\n";
    policy.SetSizeLimit(10, 1);
    Write({"a"});
    EXPECT_THAT(Files(), ElementsAre("a\n", "of another process\n"));
}

TEST_F(LogRotationTest, FilesBeyondASmallerNumberStay)
{
    policy.SetSizeLimit(2, 4);
    Write({"a", "b", "c", "d", "e"});
    policy.SetSizeLimit(2, 2);
    Write({"f"});
    EXPECT_THAT(Files(), ElementsAre("f\n", "e\n", "d\n", "b\n", "a\n"));
}

TEST_F(LogRotationTest, NumberThatAKilledProcessHasLeftFreeIsFilledBeforeAFileIsReplaced)
{
    std::ofstream(path) << "full\n";
    std::ofstream(Old(1)) << "1\n";
    std::ofstream(Old(3)) << "3\n";
    policy.SetSizeLimit(2, 3);
    Write({"a"});
    EXPECT_THAT(Files(), ElementsAre("a\n", "full\n", "1\n", "3\n"));
    EXPECT_THAT(calls, ElementsAre("rename log.1 log.2", "rename log log.1"));
}

TEST_F(LogRotationTest, LinkIsRenamedAndItsFileStays)
{
    const std::string target = directory.Path("target");
    std::ofstream(target) << "full\n";
    std::filesystem::create_symlink(target, path);
    policy.SetSizeLimit(2, 1);
    Write({"a"});
    EXPECT_THAT(Files(), ElementsAre("a\n", "full\n"));
    EXPECT_EQ(ReadFile(target), "full\n");
}

TEST_F(LogRotationTest, FifoHasNoLimit)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    policy.SetSizeLimit(1, 1);
    Write({"a", "b"});
    char text[16];
    EXPECT_EQ(read(reader, text, sizeof text), 4);
    EXPECT_FALSE(std::filesystem::exists(Old(1)));
    close(reader);
}

// --------------------------------------------------------------------------------- a torn line

TEST_F(LogRotationTest, TornLineOfTheFullFilePutsNoNewlineIntoTheNewOne)
{
    std::ofstream(path) << "torn";
    policy.RepairEnd();
    policy.SetSizeLimit(5, 1);
    Write({"a", "b"});
    EXPECT_THAT(Files(), ElementsAre("a\nb\n", "torn"));
}

TEST_F(LogRotationTest, NewlineBehindATornLineCountsAgainstTheLimit)
{
    std::ofstream(path) << "torn";
    policy.RepairEnd();
    policy.SetSizeLimit(7, 1);
    Write({"a", "b"});
    EXPECT_THAT(Files(), ElementsAre("b\n", "torn\na\n"));
}

TEST_F(LogRotationTest, LineThatFitsWithoutThatNewlineOnlyGoesToANewFile)
{
    std::ofstream(path) << "torn";
    policy.RepairEnd();
    policy.SetSizeLimit(6, 1);
    Write({"a"});
    EXPECT_THAT(Files(), ElementsAre("a\n", "torn"));
}

// ----------------------------------------------------------------------------------- failures

TEST_F(LogRotationTest, RenameThatFailsCostsNoLineAndIsTriedAgainAfterSomeTimeOnly)
{
    policy.SetSizeLimit(2, 1);
    Write({"a"});
    renameError = EACCES;
    const auto start = Clock::now();
    Write({"b", "c", "d"});
    if (Clock::now() - start < retryInterval) {  // the machine was fast enough
        EXPECT_THAT(calls, ElementsAre("rename log log.1"));
    }
    renameError = 0;
    EXPECT_EQ(ReadFile(path), "a\nb\nc\nd\n");

    std::this_thread::sleep_until(Clock::now() + retryInterval);
    Write({"e"});
    EXPECT_THAT(Files(), ElementsAre("e\n", "a\nb\nc\nd\n"));
}

TEST_F(LogRotationTest, FullFileThatCannotBeRemovedGrows)
{
    policy.SetSizeLimit(2, 0);
    renameError = EROFS;
    Write({"a", "b", "c"});
    EXPECT_THAT(Files(), ElementsAre("a\nb\nc\n"));
}

TEST_F(LogRotationTest, DirectoryInPlaceOfAnOldFileCostsNoLine)
{
    std::filesystem::create_directory(Old(1));
    policy.SetSizeLimit(2, 1);
    Write({"a", "b", "c"});
    EXPECT_EQ(ReadFile(path), "a\nb\nc\n");
}

TEST_F(LogRotationTest, OldFileThatIsTheSameFileCostsNoLine)
{
    std::ofstream(path) << "full\n";
    std::filesystem::create_hard_link(path, Old(1));  // rename() then does nothing
    policy.SetSizeLimit(2, 1);
    Write({"a"});
    EXPECT_EQ(ReadFile(path), "full\na\n");
    Write({"b"});
    EXPECT_EQ(ReadFile(path), "full\na\nb\n");
    std::filesystem::remove(Old(1));
    std::this_thread::sleep_until(Clock::now() + retryInterval);
    Write({"c"});
    EXPECT_THAT(Files(), ElementsAre("c\n", "full\na\nb\n"));
}

TEST_F(LogRotationTest, DirectoryWithoutWritePermissionCostsNoLine)
{
    const std::string parent = std::filesystem::path(path).parent_path();
    std::ofstream(path) << "full\n";
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(parent.c_str(), 0555), 0);
    const ChildResult child = RunInChild([this] {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0) {
            EXPECT_EQ(seteuid(nobody), 0);
        }
        for (const unsigned kept : {0U, 1U}) {
            FileLogPolicy fresh;
            fresh.SetOutput(path);
            fresh.SetSizeLimit(2, kept);
            fresh.Write("a\n");
            fresh.Write("b\n");
        }
        return 0;
    });
    EXPECT_EQ(chmod(parent.c_str(), 0755), 0);

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_THAT(Files(), ElementsAre("full\na\nb\na\nb\n"));
}

TEST_F(LogRotationTest, NameThatIsTooLongWithANumberCostsNoLine)
{
    const std::string longest = directory.Path(std::string(255, 'n'));
    policy.SetOutput(longest);
    policy.SetSizeLimit(2, 1);
    Write({"a", "b"});
    EXPECT_EQ(ReadFile(longest), "a\nb\n");
}

TEST_F(LogRotationTest, FileSystemWithoutLocksCostsNoLineAndHasNoLimit)
{
    flockError = ENOLCK;
    policy.SetSizeLimit(2, 1);
    const auto start = Clock::now();
    Write({"a", "b", "c"});
    if (Clock::now() - start < retryInterval) {  // the machine was fast enough
        EXPECT_THAT(lockOperations, SizeIs(3));  // no wait where none helps
    }
    EXPECT_THAT(Files(), ElementsAre("a\nb\nc\n"));
}

TEST_F(LogRotationTest, LockThatASignalInterruptsIsTriedAgain)
{
    policy.SetSizeLimit(2, 1);
    flockError = EINTR;
    atLock = [](int) { atLock = [](int) { flockError = 0; }; };
    Write({"a", "b"});
    EXPECT_THAT(Files(), ElementsAre("b\n", "a\n"));
}

TEST_F(LogRotationTest, DirectoryThatHasVanishedLosesTheLinesMeanwhile)
{
    const std::string later = directory.Path("later");
    policy.SetOutput(later + "/log");
    policy.SetSizeLimit(2, 1);
    Write({"lost"});
    std::filesystem::create_directory(later);
    Write({"a", "b"});
    EXPECT_EQ(ReadFile(later + "/log"), "b\n");
    EXPECT_EQ(ReadFile(later + "/log.1"), "a\n");
}

TEST_F(LogRotationTest, FullDiskIsFreedByTheOldestFileAndLosesTheLinesThatFindNoRoomOnly)
{
    Tolvex::Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string log = mounted + "/log";
        FileLogPolicy small;
        small.SetOutput(log);
        small.SetSizeLimit(4096, 100);  // more than the disk holds
        const std::string line(1023, 'x');
        for (int count = 0; count < 200; ++count) {
            small.Write(line + '\n');
        }
        for (const auto& file : std::filesystem::directory_iterator(mounted)) {
            EXPECT_EQ(file.file_size() % 1024, 0U) << file.path();  // no part of a line
        }
        small.SetSizeLimit(4096, 1);
        for (int count = 0; count < 8; ++count) {
            small.Write(line + '\n');
        }
        EXPECT_EQ(ReadFile(log + ".1").size(), 4096U);
        return 0;
    });
}

// -------------------------------------------------------------------------- several processes

/// A lock as another process has it.
class ForeignLock
{
public:
    ForeignLock(const std::string& path, int operation)
        : descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_EQ(flock(descriptor, operation | LOCK_NB), 0);
    }
    ~ForeignLock() { close(descriptor); }
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

private:
    const int descriptor;
};

TEST_F(LogRotationTest, ProcessThatHangsInTheMiddleOfALineDelaysOneLineAndKeepsTheFileFromItsName)
{
    policy.SetSizeLimit(2, 1);
    Write({"a"});
    {
        const ForeignLock lock(path, LOCK_SH);
        const auto start = Clock::now();
        Write({"b"});
        EXPECT_GE(Clock::now() - start, longestWaitForLock);
        lockOperations.clear();
        Write({"c"});
        if (Clock::now() - start < retryInterval) {  // the machine was fast enough
            EXPECT_THAT(lockOperations, ElementsAre(LOCK_SH | LOCK_NB, LOCK_UN));
        }
        EXPECT_THAT(Files(), ElementsAre("a\nb\nc\n"));
    }
    std::this_thread::sleep_until(Clock::now() + retryInterval);
    Write({"d"});
    EXPECT_THAT(Files(), ElementsAre("d\n", "a\nb\nc\n"));
}

TEST_F(LogRotationTest, LinesOfSeveralProcessesBelowTheLimitDoNotWaitForEachOther)
{
    policy.SetSizeLimit(100, 1);
    Write({"a"});
    const ForeignLock lock(path, LOCK_SH);
    lockOperations.clear();
    Write({"b"});
    EXPECT_THAT(lockOperations, ElementsAre(LOCK_SH | LOCK_NB, LOCK_UN));
}

TEST_F(LogRotationTest, ProcessThatHangsWhileItRenamesDelaysOneLineOnly)
{
    policy.SetSizeLimit(100, 1);
    Write({"a"});
    const ForeignLock lock(path, LOCK_EX);
    const auto start = Clock::now();
    Write({"b"});
    EXPECT_GE(Clock::now() - start, longestWaitForLock);
    for (int line = 0; line < 100; ++line) {
        lockOperations.clear();
        Write({""});
        if (Clock::now() - start < retryInterval) {  // the machine was fast enough
            EXPECT_THAT(lockOperations, SizeIs(1));  // one attempt, no wait
        }
    }
    EXPECT_EQ(ReadFile(path), "a\nb\n" + std::string(100, '\n'));
}

TEST_F(LogRotationTest, FileThatIsRenamedBeforeItIsLockedGetsNoLine)
{
    policy.SetSizeLimit(10, 1);
    Write({"a"});
    for (const bool full : {false, true}) {
        std::ofstream(path, std::ios::app) << (full ? "a full one\n" : "");
        const std::string before = ReadFile(path);
        atLock = [this](int) { std::filesystem::rename(path, Old(7)); };
        lockOperations.clear();
        Write({"b"});
        EXPECT_EQ(ReadFile(Old(7)), before);
        EXPECT_THAT(Files(), ElementsAre("b\n"));
        EXPECT_THAT(lockOperations, ElementsAre((full ? LOCK_EX : LOCK_SH) | LOCK_NB, LOCK_UN,
                                                LOCK_SH | LOCK_NB, LOCK_UN));
    }
}

// A child that is forked meanwhile has a copy of the descriptor: closing it here frees no lock.
TEST_F(LogRotationTest, LockOfTheRenamedFileIsFreedBeforeTheNewOneIsOpened)
{
    policy.SetSizeLimit(2, 1);
    Write({"a"});
    lockOperations.clear();
    Write({"b"});
    EXPECT_THAT(lockOperations,
                ElementsAre(LOCK_EX | LOCK_NB, LOCK_UN, LOCK_SH | LOCK_NB, LOCK_UN));
}

TEST_F(LogRotationTest, FileThatIsRenamedDuringAWaitThatFailsGetsNoLine)
{
    policy.SetSizeLimit(100, 1);
    Write({"a"});
    flockError = EWOULDBLOCK;
    atLock = [this](int) { std::filesystem::rename(path, Old(1)); };

    Write({"b"});

    EXPECT_THAT(Files(), ElementsAre("b\n", "a\n"));
}

TEST_F(LogRotationTest, LimitThatIsSwitchedOffWhileTheFileIsRenamedRemovesNothing)
{
    policy.SetSizeLimit(2, 3);
    Write({"a"});
    atLock = [this](int) { policy.SetSizeLimit(0, 0); };

    Write({"b"});

    EXPECT_THAT(Files(), ElementsAre("b\n", "a\n"));
}

TEST_F(LogRotationTest, FileThatIsRenamedAllTheTimeStillGetsItsLine)
{
    policy.SetSizeLimit(10, 1);
    int renames = 0;
    const std::function<void(int)> renameAgain = [&](int) {
        ++renames;
        std::filesystem::rename(path, Old(7));
        atLock = renameAgain;
    };
    atLock = renameAgain;
    Write({"a"});
    atLock = nullptr;
    EXPECT_EQ(ReadFile(Old(7)), "a\n");
    EXPECT_EQ(renames, 1 + mostReopenings);
}

TEST_F(LogRotationTest, FileThatIsRemovedManyTimesBeforeItIsLockedLosesNoLine)
{
    for (const unsigned kept : {0U, 1U}) {
        policy.SetSizeLimit(10, kept);
        int removals = 0;
        const std::function<void(int)> removeAgain = [&](int) {
            std::filesystem::remove(path);
            if (++removals < 100) {
                atLock = removeAgain;
            }
        };
        atLock = removeAgain;
        Write({"a"});
        EXPECT_EQ(removals, 100);
        EXPECT_THAT(Files(), ElementsAre("a\n"));
    }
}

TEST_F(LogRotationTest, LockEndsWithTheLineAlsoWhenAForkedChildHasACopyOfTheDescriptor)
{
    policy.SetSizeLimit(100, 1);
    int copy = -1;
    atLock = [&](int descriptor) { copy = dup(descriptor); };
    Write({"a"});
    ASSERT_GE(copy, 0);
    const ForeignLock lock(path, LOCK_EX);
    close(copy);
}

// -------------------------------------------------------------------------------- durable modes

TEST_F(LogRotationTest, FullFileIsOnTheMediumBeforeItGetsAnotherName)
{
    policy.SetSizeLimit(2, 1);
    for (const LogDurability mode : {LogDurability::EachLine, LogDurability::Interval}) {
        policy.SetDurability(mode);
        Write({"a"});
        calls.clear();
        Write({"b"});
        EXPECT_THAT(calls, ElementsAre("fdatasync log", "fdatasync log", "rename log log.1",
                                       "fdatasync log", "fsync"));
    }
    policy.SetDurability(LogDurability::IgnitionOff);
    calls.clear();
    Write({"c"});
    EXPECT_THAT(calls, ElementsAre("fdatasync log", "fdatasync log", "rename log log.1"));
    policy.SetDurability(LogDurability::None);
    calls.clear();
    Write({"d"});
    EXPECT_THAT(calls, ElementsAre("rename log log.1"));
}

}  // namespace
