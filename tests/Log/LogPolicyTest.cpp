#include "Tolvex/Log/LogPolicy.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <new>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/Namespaces.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SmallFileSystem.h"

namespace {

int appends = 0;     ///< calls of write() to a file so far
int watched = 0;     ///< while not 0, they are counted
int closeError = 0;  ///< of close() of a file that is appended to; 0: it works

bool IsAppendedTo(int descriptor)
{
    return (fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
}

}  // namespace

extern "C" int close(int descriptor)
{
    const int error = closeError != 0 && IsAppendedTo(descriptor) ? closeError : 0;
    const int result = Tolvex::Support::RealFunction<int(int)>("close")(descriptor);
    return error == 0 ? result : Tolvex::Support::FailWith(error);
}

extern "C" ssize_t write(int descriptor, const void* bytes, size_t size)
{
    static auto* const next =
        Tolvex::Support::RealFunction<ssize_t(int, const void*, size_t)>("write");
    if (watched != 0 && IsAppendedTo(descriptor)) {
        ++appends;
    }
    return next(descriptor, bytes, size);
}

namespace {

using Tolvex::Ilog::ColorCode;
using Tolvex::Ilog::ColoredLog;
using Tolvex::Ilog::ConsoleLogPolicy;
using Tolvex::Ilog::FileLogPolicy;
using Tolvex::Ilog::ILogPolicy;
using Tolvex::Ilog::LogDurability;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::ChildResult;
using Tolvex::Support::CountDescriptors;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;

class FileLogPolicyTest : public ::testing::Test
{
protected:
    FileLogPolicyTest() : path(directory.Path("log")) {}

    ScratchDirectory directory;
    std::string path;
    FileLogPolicy policy;
};

TEST_F(FileLogPolicyTest, WithoutAnOutputNothingIsWrittenAndNoFileMade)
{
    policy.Write("line\n");
    policy.WriteHeader(LogType::Error);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileLogPolicyTest, SetOutputNeitherOpensNorCreatesNorChecksTheFile)
{
    policy.SetOutput(path);
    policy.SetOutput("/no/such/directory/log");
    policy.SetOutput(path);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileLogPolicyTest, EmptyNameWritesNothing)
{
    policy.SetOutput("");
    policy.Write("line\n");
    policy.SetOutput(path);
    policy.Write("next\n");
    EXPECT_EQ(ReadFile(path), "next\n");
}

TEST_F(FileLogPolicyTest, LinesAreAppendedToWhatIsThereByteForByte)
{
    std::ofstream(path) << "before";
    policy.SetOutput(path);

    policy.Write("a\n");
    policy.Write("b\n");
    policy.Write("");
    policy.Write(std::string("\r\n\0no newline", 13));

    EXPECT_EQ(ReadFile(path), "beforea\nb\n" + std::string("\r\n\0no newline", 13));
}

TEST_F(FileLogPolicyTest, AfterCloseNothingIsWrittenUntilTheNextSetOutput)
{
    policy.SetOutput(path);
    policy.Write("a\n");
    policy.Close();
    policy.Write("b\n");
    EXPECT_EQ(ReadFile(path), "a\n");

    policy.SetOutput(path);
    policy.Write("c\n");
    EXPECT_EQ(ReadFile(path), "a\nc\n");
}

TEST_F(FileLogPolicyTest, NoDescriptorIsHeldBetweenLines)
{
    const std::ptrdiff_t before = CountDescriptors();
    policy.SetOutput(path);
    policy.Write("a\n");
    EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(FileLogPolicyTest, LineOfAnySizeIsOneAppend)
{
    policy.SetOutput(path);
    const std::string huge(1000000, 'h');
    watched = 1;
    policy.Write("a\n");
    policy.Write(huge);
    watched = 0;
    EXPECT_EQ(appends, 2);
    EXPECT_TRUE(ReadFile(path) == "a\n" + huge);
}

TEST_F(FileLogPolicyTest, NewFileHasThePermissionsThatTheMaskLeaves)
{
    const mode_t before = umask(027);
    policy.SetOutput(path);
    policy.Write("a\n");
    umask(before);
    EXPECT_EQ(static_cast<int>(std::filesystem::status(path).permissions()), 0640);
}

TEST_F(FileLogPolicyTest, DirectoryInPlaceOfTheFileLosesTheLineOnly)
{
    std::filesystem::create_directory(path);
    policy.SetOutput(path);
    policy.Write("lost\n");
    std::filesystem::remove(path);
    policy.Write("kept\n");
    EXPECT_EQ(ReadFile(path), "kept\n");
}

TEST_F(FileLogPolicyTest, MissingDirectoryLosesTheLinesMeanwhileAndReportsNothing)
{
    const std::string later = directory.Path("later");
    policy.SetOutput(later + "/log");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    policy.Write("lost\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::filesystem::create_directory(later);
    policy.Write("kept\n");
    EXPECT_EQ(ReadFile(later + "/log"), "kept\n");
}

TEST_F(FileLogPolicyTest, FailureToCloseTheFileIsIgnored)
{
    policy.SetOutput(path);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const int error : {EIO, ENOSPC, EINTR}) {
        closeError = error;
        policy.Write("a\n");
    }
    closeError = 0;
    policy.Write("b\n");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile(path), "a\na\na\nb\n");
}

TEST_F(FileLogPolicyTest, SetOutputWithoutMemoryThrowsAndLeavesTheOutputAsItWas)
{
    const std::string other = directory.Path("other" + std::string(100, 'r'));
    const auto setOther = [&](std::size_t allocations) {
        const AllocationBudget budget(allocations);
        try {
            policy.SetOutput(other);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    };
    EXPECT_FALSE(setOther(0));
    policy.Write("without an output\n");
    policy.SetOutput(path);

    std::string expected;
    std::size_t allocations = 0;
    for (; !setOther(allocations); ++allocations) {
        policy.Write("a\n");
        expected += "a\n";
    }
    policy.Write("b\n");

    EXPECT_GT(allocations, 0U);
    EXPECT_EQ(ReadFile(path), expected);
    EXPECT_EQ(ReadFile(other), "b\n");
}

TEST_F(FileLogPolicyTest, LackOfMemoryWhileFilesAreRenamedCostsNoLine)
{
    policy.SetSizeLimit(2, 10);  // each line begins a new file
    std::size_t allocations = 0;
    for (bool renamed = false; !renamed; ++allocations) {
        ASSERT_LT(allocations, 100U);
        const std::string file = path + std::to_string(allocations);
        policy.SetOutput(file);
        policy.Write("a\n");
        policy.Write("b\n");
        {
            const AllocationBudget budget(allocations);
            policy.Write("c\n");
        }
        policy.Write("d\n");

        std::string lines;
        for (const char* const number : {".3", ".2", ".1", ""}) {
            lines += std::filesystem::exists(file + number) ? ReadFile(file + number) : "";
        }
        EXPECT_EQ(lines, "a\nb\nc\nd\n");
        renamed = ReadFile(file) == "d\n";
    }
    EXPECT_GT(allocations, 1U);
}

TEST_F(FileLogPolicyTest, FullDiskCostsTheLinesMeanwhileAndTheNextBeginsOnALineOfItsOwn)
{
    Tolvex::Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string log = mounted + "/log";
        const std::string ballast = mounted + "/ballast";
        std::ofstream(ballast) << std::string(std::size_t{15} * 4096, 'b');
        FileLogPolicy logPolicy;
        logPolicy.SetOutput(log);
        const std::string line(999, 'x');
        for (int count = 0; count < 10; ++count) {
            logPolicy.Write(line + "\n");
        }
        const std::string full = ReadFile(log);
        EXPECT_LT(full.size(), 10000U);
        EXPECT_NE(full.back(), '\n');  // the disk was full in the middle of a line

        std::filesystem::remove(ballast);
        logPolicy.Write("next\n");
        logPolicy.Write("and next\n");
        EXPECT_EQ(ReadFile(log), full + "\nnext\nand next\n");
        return 0;
    });
}

TEST_F(FileLogPolicyTest, FileThatIsMadeNewAfterAFullDiskBeginsWithTheLine)
{
    Tolvex::Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string log = mounted + "/log";
        FileLogPolicy logPolicy;
        logPolicy.SetOutput(log);
        logPolicy.Write(std::string(100000, 'x') + "\n");
        EXPECT_GT(ReadFile(log).size(), 0U);
        std::filesystem::remove(log);
        logPolicy.Write("next\n");
        EXPECT_EQ(ReadFile(log), "next\n");
        return 0;
    });
}

TEST_F(FileLogPolicyTest, ReadOnlyDirectoryLosesTheLinesMeanwhile)
{
    Tolvex::Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        FileLogPolicy logPolicy;
        logPolicy.SetOutput(mounted + "/log");
        EXPECT_EQ(mount("none", mounted.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        logPolicy.Write("lost\n");
        EXPECT_EQ(mount("none", mounted.c_str(), "tmpfs", MS_REMOUNT, nullptr), 0);
        logPolicy.Write("kept\n");
        EXPECT_EQ(ReadFile(mounted + "/log"), "kept\n");
        return 0;
    });
}

// ------------------------------------------------------------------------------ a torn line

/// Lets no file of the process grow beyond so many bytes: a longer line is torn.
void LimitFiles(rlim_t bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limit.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

void LiftLimitOfFiles()
{
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(FileLogPolicyTest, TornLineOfOneFilePutsNoNewlineIntoAnother)
{
    const std::string other = directory.Path("other");
    std::ofstream(other) << "of another process";
    const ChildResult child = RunInChild([&] {
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        LiftLimitOfFiles();
        policy.SetOutput(other);
        policy.Write(" and this\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(path), "torn");
    EXPECT_EQ(ReadFile(other), "of another process and this\n");
}

TEST_F(FileLogPolicyTest, TornLinePutsNoNewlineIntoAFileThatTookThePlaceOfItsOwn)
{
    const std::string other = directory.Path("other");
    std::ofstream(other) << "of another process";
    const ChildResult child = RunInChild([&] {
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        LiftLimitOfFiles();
        std::filesystem::rename(other, path);
        policy.Write(" and this\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(path), "of another process and this\n");
}

TEST_F(FileLogPolicyTest, TornLineIsStillKnownWhenTheSameFileIsSetAgain)
{
    const ChildResult child = RunInChild([&] {
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        policy.Write("lost\n");
        LiftLimitOfFiles();
        policy.Close();
        policy.SetOutput(path);
        policy.Write("next\n");
        policy.Write("and next\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(path), "torn\nnext\nand next\n");
}

TEST_F(FileLogPolicyTest, TornLineIsStillKnownAfterLinesInAnotherFile)
{
    const std::string other = directory.Path("other");
    std::ofstream(other) << "of another process";
    const ChildResult child = RunInChild([&] {
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        LiftLimitOfFiles();
        policy.SetOutput(other);
        policy.Write(" and this\n");
        policy.SetOutput(path);
        policy.Write("next\n");
        policy.Write("and next\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(other), "of another process and this\n");
    EXPECT_EQ(ReadFile(path), "torn\nnext\nand next\n");
}

TEST_F(FileLogPolicyTest, TornLineIsStillKnownWhenItsFileComesBack)
{
    const std::string away = directory.Path("away");
    const ChildResult child = RunInChild([&] {
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        LiftLimitOfFiles();
        std::filesystem::rename(path, away);
        policy.Write("meanwhile\n");
        std::filesystem::rename(away, path);
        policy.Write("next\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(ReadFile(path), "torn\nnext\n");
}

TEST(FileLogPolicyMountTest, FileOfAnotherDeviceWithTheNumberOfATornOneGetsNoNewline)
{
    Tolvex::Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string path = mounted + "/log";
        const auto numberOf = [&path] {
            struct stat status = {};
            EXPECT_EQ(stat(path.c_str(), &status), 0);
            return status.st_ino;
        };
        FileLogPolicy policy;
        policy.SetOutput(path);
        LimitFiles(4);
        policy.Write("torn line\n");
        LiftLimitOfFiles();
        const ino_t number = numberOf();

        // Each tmpfs counts its files on its own.
        EXPECT_EQ(mount("none", mounted.c_str(), "tmpfs", 0, "size=64k"), 0);
        std::ofstream(path) << "of another process";
        EXPECT_EQ(numberOf(), number);
        policy.Write(" and this\n");

        EXPECT_EQ(ReadFile(path), "of another process and this\n");
    });
}

/// A file that is found, and what it holds after one line.
struct FoundFile
{
    const char* name;
    std::string before;
    std::string repaired;
};

class RepairedFileTest : public FileLogPolicyTest, public ::testing::WithParamInterface<FoundFile>
{
};

TEST_P(RepairedFileTest, FirstLineBeginsOnALineOfItsOwnIfTheRepairIsAskedFor)
{
    const FoundFile& file = GetParam();
    std::ofstream(path) << file.before;

    policy.SetOutput(path);
    policy.RepairEnd();
    EXPECT_EQ(ReadFile(path), file.before);
    policy.Write("line\n");
    policy.Write("next");
    policy.Write(" piece\n");

    EXPECT_EQ(ReadFile(path), file.repaired + "line\nnext piece\n");
}

TEST_P(RepairedFileTest, SetOutputAlonePutsNothingIn)
{
    const FoundFile& file = GetParam();
    std::ofstream(path) << file.before;

    policy.SetOutput(path);
    policy.Write("line\n");

    EXPECT_EQ(ReadFile(path), file.before + "line\n");
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(Ends, RepairedFileTest,
                         ::testing::Values(FoundFile{"InTheMiddleOfALine", "a\nb", "a\nb\n"},
                                           FoundFile{"InNulBytes", "a\nb\0\0\0"s, "a\nb\0\0\0\n"s},
                                           FoundFile{"InANulByteAfterALine", "a\n\0"s, "a\n\0\n"s},
                                           FoundFile{"InANewline", "a\nb\n", "a\nb\n"},
                                           FoundFile{"OneNewline", "\n", "\n"},
                                           FoundFile{"OneByte", "a", "a\n"},
                                           FoundFile{"Empty", "", ""}),
                         [](const auto& found) { return std::string(found.param.name); });

TEST_F(FileLogPolicyTest, RepairMakesNoFileBeforeTheFirstLineAndAddsNothingToANewOne)
{
    policy.SetOutput(path);
    policy.RepairEnd();
    EXPECT_FALSE(std::filesystem::exists(path));

    policy.Write("line\n");

    EXPECT_EQ(ReadFile(path), "line\n");
}

TEST_F(FileLogPolicyTest, RepairOutlastsADirectoryInPlaceOfTheFile)
{
    std::filesystem::create_directory(path);
    policy.SetOutput(path);
    policy.RepairEnd();
    policy.Write("lost\n");
    std::filesystem::remove(path);
    std::ofstream(path) << "torn";

    policy.Write("line\n");

    EXPECT_EQ(ReadFile(path), "torn\nline\n");
}

TEST_F(FileLogPolicyTest, RepairIsForgottenWithTheFile)
{
    const std::string other = directory.Path("other");
    std::ofstream(other) << "half";
    policy.SetOutput(path);
    policy.RepairEnd();
    policy.SetOutput(other);

    policy.Write(" a line\n");

    EXPECT_EQ(ReadFile(other), "half a line\n");
}

TEST_F(FileLogPolicyTest, RepairDoesNotReadAFifoWhichWouldBlock)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    const ChildResult child = RunInChild([&] {
        alarm(20);  // ends the child if it blocks
        policy.SetOutput(path);
        policy.RepairEnd();
        policy.Write("line\n");
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output << child.Signal();
    char text[16];
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(
                                    std::max<ssize_t>(0, read(reader, text, sizeof(text))))),
              "line\n");
    close(reader);
}

// -------------------------------------------------------------------------------------- console

/// What the console policy prints for a line of a type.
std::string Printed(LogType type, const std::string& line)
{
    return RunInChild([&] {
               ConsoleLogPolicy policy;
               policy.WriteHeader(type);
               policy.Write(line);
               return 0;
           })
        .output;
}

TEST(ConsoleLogPolicyTest, ColourSurroundsTheWholeLineWithItsNewline)
{
    EXPECT_EQ(Printed(LogType::Error, "line\n"), "\x1B[31mline\n\x1B[39m");
    EXPECT_EQ(Printed(LogType::Warning, "line\n"), "\x1B[33mline\n\x1B[39m");
    EXPECT_EQ(Printed(LogType::Notice, "line\n"), "\x1B[32mline\n\x1B[39m");
}

TEST(ConsoleLogPolicyTest, AnyOtherTypeHasNoEscapeBytes)
{
    EXPECT_EQ(Printed(LogType::Info, "line\n"), "line\n");
    EXPECT_EQ(Printed(static_cast<LogType>(7), "line\n"), "line\n");
    EXPECT_EQ(Printed(static_cast<LogType>(-2), "line\n"), "line\n");
}

TEST(ConsoleLogPolicyTest, BeforeAnyHeaderThereIsNoColourAndTheTypeLasts)
{
    const ChildResult child = RunInChild([] {
        ConsoleLogPolicy policy;
        policy.Write("plain\n");
        policy.WriteHeader(LogType::Error);
        policy.SetOutput("ignored");
        policy.Write("a\n");
        policy.Close();
        policy.Write("b\n");
        return 0;
    });
    EXPECT_EQ(child.output, "plain\n\x1B[31ma\n\x1B[39m\x1B[31mb\n\x1B[39m");
}

TEST(ConsoleLogPolicyTest, FormatOfStandardOutputDoesNotChangeTheBytes)
{
    const ChildResult child = RunInChild([] {
        std::cout << std::hex << std::showpos << std::setfill('*') << std::setw(20);
        ConsoleLogPolicy policy;
        policy.WriteHeader(LogType::Error);
        policy.Write(std::string("a\0b\n", 4));
        return 0;
    });
    EXPECT_EQ(child.output, std::string("\x1B[31ma\0b\n\x1B[39m", 14));
}

TEST(ConsoleLogPolicyTest, StandardOutputIsNotFlushed)
{
    const ChildResult child = RunInChild([] {
        ConsoleLogPolicy policy;
        policy.Write("kept back\n");
        policy.WriteHeader(LogType::Error);
        policy.Write("kept back in colour\n");
        _exit(0);  // a pipe is buffered, and _exit() writes nothing
        return 0;
    });
    EXPECT_EQ(child.output, "");
}

TEST(ConsoleLogPolicyTest, StandardErrorGetsNothingWhateverHappens)
{
    const ScratchDirectory directory;
    const ChildResult child = RunInChild([&directory] {
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        EXPECT_GE(full, 0);
        dup2(full, STDOUT_FILENO);
        testing::internal::CaptureStderr();
        ConsoleLogPolicy console;
        FileLogPolicy file;
        file.SetSizeLimit(1, 0);
        for (const char* const name : {"", "/no/such/directory/log", "/dev/full", "/", "log"}) {
            file.SetOutput(name[0] == 'l' ? directory.Path(name) : name);
            file.RepairEnd();
            for (int type = -1; type <= 4; ++type) {
                file.SetDurability(static_cast<LogDurability>(type));
                for (ILogPolicy* const policy :
                     {static_cast<ILogPolicy*>(&file), static_cast<ILogPolicy*>(&console)}) {
                    policy->WriteHeader(static_cast<LogType>(type));
                    policy->Write("line\n");
                    std::cout.flush();
                }
            }
            file.Close();
            console.Close();
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(ConsoleLogPolicyTest, FailureOfStandardOutputThatHasPassedCostsNothingLater)
{
    const ChildResult child = RunInChild([] {
        std::cout.setstate(std::ios_base::badbit);
        ConsoleLogPolicy policy;
        policy.Write("line\n");
        return 0;
    });
    EXPECT_EQ(child.output, "line\n");
}

TEST(ConsoleLogPolicyTest, LineIsWrittenInAFailedStateThatTheApplicationHasSetAndLeavesIt)
{
    const ChildResult child = RunInChild([] {
        ConsoleLogPolicy policy;
        for (const std::ios_base::iostate state :
             {std::ios_base::failbit, std::ios_base::eofbit, std::ios_base::badbit}) {
            std::cout.setstate(state);
            policy.WriteHeader(LogType::Warning);
            policy.Write("line\n");
            EXPECT_EQ(std::cout.rdstate(), state);
            std::cout.clear();
        }
        return 0;
    });
    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "\x1B[33mline\n\x1B[39m\x1B[33mline\n\x1B[39m\x1B[33mline\n\x1B[39m");
}

TEST(ConsoleLogPolicyTest, DeviceThatTakesNothingCostsTheLinesMeanwhile)
{
    const ChildResult child = RunInChild([] {
        const int working = dup(STDOUT_FILENO);
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        EXPECT_GE(full, 0);
        dup2(full, STDOUT_FILENO);
        ConsoleLogPolicy policy;
        policy.Write(std::string(100000, 'x') + "lost\n");  // more than the buffer holds
        EXPECT_TRUE(std::cout.good());
        policy.Write("lost\n");
        std::cout.flush();
        EXPECT_FALSE(std::cout.good());

        dup2(working, STDOUT_FILENO);
        policy.Write("kept\n");
        EXPECT_FALSE(std::cout.good());
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_TRUE(child.output.ends_with("kept\n")) << child.output;
}

TEST(ConsoleLogPolicyTest, UnitBufferedStandardOutputIsFlushedAfterEachLine)
{
    const ChildResult child = RunInChild([] {
        std::cout << std::unitbuf;
        ConsoleLogPolicy policy;
        policy.Write("line\n");
        _exit(0);  // flushes nothing
        return 0;
    });
    EXPECT_EQ(child.output, "line\n");
}

TEST(ConsoleLogPolicyTest, StandardOutputWithoutABufferCostsTheLine)
{
    const ChildResult child = RunInChild([] {
        std::streambuf* const buffer = std::cout.rdbuf(nullptr);
        ConsoleLogPolicy policy;
        policy.Write("lost\n");
        std::cout.rdbuf(buffer);
        policy.Write("kept\n");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "kept\n");
}

TEST(ColoredLogTest, IsTheEscapeSequenceOfItsNumber)
{
    std::ostringstream stream;
    const ColoredLog red = ColorCode::Red;
    stream << red << ColoredLog(ColorCode::Green) << ColoredLog(ColorCode::Yellow)
           << ColoredLog(ColorCode::Default) << ColoredLog(static_cast<ColorCode>(-2147483647 - 1));
    EXPECT_EQ(stream.str(), "\x1B[31m\x1B[32m\x1B[33m\x1B[39m\x1B[-2147483648m");
}

}  // namespace
