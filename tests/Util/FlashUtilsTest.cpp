#include "Tolvex/Util/FlashUtils.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/RealFunction.h"

// ------------------------------------------------------- stand-ins for the C library's functions

namespace {

using Tolvex::Support::RealFunction;

/// Records the calls of the replaced functions and tells them what to do. Without a Recording they
/// call the real ones.
struct Recording
{
    std::vector<std::string> calls;  ///< "system: <command>", "popen: <command>", in their order
    int systemResult = 0;
    std::string pipeOutput;
    bool popenFails = false;

    Recording() { current = this; }
    ~Recording() { current = nullptr; }

    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    static inline Recording* current = nullptr;
};

std::atomic<int> openStreams = 0;      ///< calls of popen() minus calls of pclose()
std::atomic<bool> isInPclose = false;  ///< waiting for a command to end

}  // namespace

extern "C" int system(const char* command)
{
    if (Recording::current != nullptr) {
        Recording::current->calls.push_back(std::string("system: ") + command);
        return Recording::current->systemResult;
    }
    return RealFunction<decltype(system)>("system")(command);
}

extern "C" FILE* popen(const char* command, const char* mode)
{
    std::FILE* stream = nullptr;
    if (Recording::current == nullptr) {
        stream = RealFunction<decltype(popen)>("popen")(command, mode);
    } else {
        Recording::current->calls.push_back(std::string("popen: ") + command);
        if (!Recording::current->popenFails) {
            stream = std::tmpfile();
            std::fputs(Recording::current->pipeOutput.c_str(), stream);
            std::rewind(stream);
        }
    }
    openStreams += stream != nullptr;
    return stream;
}

extern "C" int pclose(FILE* stream)
{
    --openStreams;
    if (Recording::current != nullptr) {
        return std::fclose(stream);
    }
    isInPclose = true;
    const int status = RealFunction<decltype(pclose)>("pclose")(stream);
    isInPclose = false;
    pthread_testcancel();  // Some C libraries can be cancelled in here.
    return status;
}

namespace {

using Tolvex::Support::AllocationLimit;
using Tolvex::Support::CancellableStack;
using Tolvex::Support::ChildResult;
using Tolvex::Support::CountDescriptors;
using Tolvex::Support::RunInChild;
using Tolvex::Util::ExecCmd_Pipe;
using Tolvex::Util::ExecCmd_System;
using Tolvex::Util::ReadFlashVar;
using Tolvex::Util::WriteFlashConfigFile;
using Tolvex::Util::WriteFlashVar;
using Calls = std::vector<std::string>;

bool HasChildProcess()
{
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

std::string Line(std::size_t length)
{
    std::string text;
    while (text.size() < length) {
        text += static_cast<char>('a' + text.size() % 26);
    }
    return text;
}

// ---------------------------------------------------------------------------------- ExecCmd_Pipe

TEST(ExecCmdPipeTest, TextOfTheCommandComesBackWithItsTrailingNewlines)
{
    EXPECT_EQ(ExecCmd_Pipe("echo one; echo; echo two; echo"), "one\n\ntwo\n\n");
    EXPECT_EQ(ExecCmd_Pipe("printf 'no newline'"), "no newline");
}

TEST(ExecCmdPipeTest, LinesLongerThanTheBufferComeBackWhole)
{
    for (const std::size_t length : {1U, 198U, 199U, 200U, 201U, 398U, 399U, 1000U, 5000U}) {
        const std::string line = Line(length);
        EXPECT_EQ(ExecCmd_Pipe(("printf " + line).c_str()), line);
        EXPECT_EQ(ExecCmd_Pipe(("echo " + line).c_str()), line + "\n");
    }
}

TEST(ExecCmdPipeTest, OutputLargerThanAPipeComesBackWhole)
{
    const std::string text =
        ExecCmd_Pipe("i=0; while [ $i -lt 20000 ]; do echo $i; i=$((i+1)); done");

    EXPECT_EQ(text.size(), 108890U);
    EXPECT_EQ(text.substr(text.size() - 12), "19998\n19999\n");
}

TEST(ExecCmdPipeTest, SilentCommandGivesAnEmptyText)
{
    EXPECT_EQ(ExecCmd_Pipe("true"), "");
    EXPECT_EQ(ExecCmd_Pipe(""), "");
}

TEST(ExecCmdPipeTest, CommandThatCannotBeStartedGivesAnEmptyText)
{
    Recording recording;
    recording.popenFails = true;

    EXPECT_EQ(ExecCmd_Pipe("echo one"), "");

    EXPECT_EQ(recording.calls, Calls{"popen: echo one"});
    EXPECT_EQ(openStreams, 0);
}

TEST(ExecCmdPipeTest, ExitStatusIsIgnored)
{
    EXPECT_EQ(ExecCmd_Pipe("echo kept; exit 3"), "kept\n");
    EXPECT_EQ(ExecCmd_Pipe("echo kept; kill -9 $$"), "kept\n");
}

TEST(ExecCmdPipeTest, StandardErrorIsNotCollected)
{
    EXPECT_EQ(ExecCmd_Pipe("exec 2>/dev/null; echo wrong >&2; echo right"), "right\n");
}

TEST(ExecCmdPipeTest, TextBehindANulIsLostUpToTheEndOfTheLine)
{
    EXPECT_EQ(ExecCmd_Pipe(R"(printf 'ab\000cd\nef\n')"), "abef\n");
    EXPECT_EQ(ExecCmd_Pipe(R"(printf '\000')"), "");
}

TEST(ExecCmdPipeTest, TextBehindANulIsLostUpToTheEndOfAPieceOf199Characters)
{
    const std::string lost = Line(197);  // one piece, with the letter and the NUL before it

    EXPECT_EQ(ExecCmd_Pipe((R"(printf 'a\000)" + lost + "kept'").c_str()), "akept");
}

TEST(ExecCmdPipeTest, NullCommandIsAnEmptyOne)
{
    Recording recording;
    recording.pipeOutput = "text";

    EXPECT_EQ(ExecCmd_Pipe(nullptr), "text");

    EXPECT_EQ(recording.calls, Calls{"popen: "});
}

TEST(ExecCmdPipeTest, NeitherStreamNorProcessIsLeftBehind)
{
    const std::ptrdiff_t descriptors = CountDescriptors();

    for (int turn = 0; turn < 20; ++turn) {
        ExecCmd_Pipe("echo text");
        ExecCmd_Pipe("exec no-such-program 2>/dev/null");
    }

    EXPECT_EQ(openStreams, 0);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_FALSE(HasChildProcess());
}

TEST(ExecCmdPipeTest, ExhaustedMemoryLeavesNeitherStreamNorProcess)
{
    const std::ptrdiff_t descriptors = CountDescriptors();
    bool isThrown = false;

    try {
        const AllocationLimit limit(1000);
        ExecCmd_Pipe("i=0; while [ $i -lt 1000 ]; do echo $i; i=$((i+1)); done");
    } catch (const std::bad_alloc&) {
        isThrown = true;
    }

    EXPECT_TRUE(isThrown);
    EXPECT_EQ(openStreams, 0);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_FALSE(HasChildProcess());
}

void DoNothing(int) {}

TEST(ExecCmdPipeTest, SignalThatInterruptsTheReadingEndsTheText)
{
    const ChildResult child = RunInChild([] {
        struct sigaction action = {};
        action.sa_handler = DoNothing;  // and no SA_RESTART
        sigaction(SIGALRM, &action, nullptr);
        const itimerval every20Milliseconds = {{0, 20000}, {0, 20000}};
        setitimer(ITIMER_REAL, &every20Milliseconds, nullptr);

        const std::string text = ExecCmd_Pipe("echo first; sleep 1; echo second 2>/dev/null");

        EXPECT_EQ(text.find("second"), std::string::npos) << text;
        EXPECT_EQ(openStreams, 0);
        EXPECT_FALSE(HasChildProcess());
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(ExecCmdPipeTest, ThreadsGetEachItsOwnText)
{
    std::array<int, 4> differences{};
    std::vector<std::thread> threads;
    threads.reserve(differences.size());

    for (std::size_t number = 0; number < differences.size(); ++number) {
        threads.emplace_back([number, &differences] {
            const std::string text = std::string(300, static_cast<char>('a' + number)) + "\n";
            for (int turn = 0; turn < 10; ++turn) {
                differences.at(number) += ExecCmd_Pipe(("echo " + text).c_str()) != text;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(differences, (std::array<int, 4>{}));
}

void* ReadSlowCommand(void*)
{
    const CancellableStack stack;
    ExecCmd_Pipe("echo begun; exec sleep 1");
    return nullptr;
}

std::string DescriptorsOfAProgram()
{
    const std::string list = testing::TempDir() + "descriptors." + std::to_string(getpid());
    EXPECT_EQ(std::system(("exec ls /proc/self/fd > " + list).c_str()), 0);
    std::string text = ExecCmd_Pipe(("cat " + list).c_str());
    std::filesystem::remove(list);
    return text;
}

TEST(ExecCmdPipeTest, ProgramStartedByAnotherThreadDoesNotInheritThePipe)
{
    const std::string before = DescriptorsOfAProgram();
    std::thread reader(ReadSlowCommand, nullptr);
    while (openStreams == 0) {
        std::this_thread::yield();
    }

    const std::string meanwhile = DescriptorsOfAProgram();
    reader.join();

    EXPECT_NE(before, "");
    EXPECT_EQ(meanwhile, before);
}

TEST(ExecCmdPipeTest, CancelledThreadLeavesNeitherStreamNorProcess)
{
    const std::ptrdiff_t descriptors = CountDescriptors();
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, ReadSlowCommand, nullptr), 0);
    while (openStreams == 0) {
        std::this_thread::yield();
    }

    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);

    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(openStreams, 0);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_FALSE(HasChildProcess());
}

void* ReadWithACancellationPending(void*)
{
    const CancellableStack stack;
    pthread_cancel(pthread_self());
    ExecCmd_Pipe("echo text");
    pthread_testcancel();
    return nullptr;
}

TEST(ExecCmdPipeTest, CancellationThatIsPendingLeavesNeitherStreamNorProcess)
{
    const std::ptrdiff_t descriptors = CountDescriptors();
    pthread_t thread{};

    ASSERT_EQ(pthread_create(&thread, nullptr, ReadWithACancellationPending, nullptr), 0);
    void* result = nullptr;
    pthread_join(thread, &result);

    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(openStreams, 0);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_FALSE(HasChildProcess());
}

void* ReadCommandThatClosesItsOutput(void*)
{
    const CancellableStack stack;
    ExecCmd_Pipe("exec >&-; exec sleep 1");
    pthread_testcancel();
    return nullptr;
}

TEST(ExecCmdPipeTest, CancellationWhileTheCommandEndsWaitsForItsEnd)
{
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, ReadCommandThatClosesItsOutput, nullptr), 0);
    while (!isInPclose) {
        std::this_thread::yield();
    }

    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);

    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_FALSE(HasChildProcess());
}

// -------------------------------------------------------------------------------- ExecCmd_System

TEST(ExecCmdSystemTest, ResultIsTheRawWaitStatus)
{
    EXPECT_EQ(ExecCmd_System("true"), 0);
    EXPECT_EQ(ExecCmd_System("exit 3"), 3 << 8);
    EXPECT_EQ(ExecCmd_System("exec /no-such-program 2>/dev/null"), 127 << 8);
    EXPECT_EQ(ExecCmd_System("kill -9 $$"), 9);
}

TEST(ExecCmdSystemTest, ResultIsMinusOneWhenTheCLibrarySaysSo)
{
    const ChildResult child = RunInChild([] {
        std::signal(SIGCHLD, SIG_IGN);  // the status of the command is then lost
        EXPECT_EQ(ExecCmd_System("true"), -1);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(ExecCmdSystemTest, CommandWritesToTheStandardOutputOfTheProcess)
{
    const ChildResult child = RunInChild([] { return ExecCmd_System("echo seen"); });

    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "seen\n");
}

void* RunSlowCommand(void* readyFile)
{
    const CancellableStack stack;
    const std::string command = std::string("echo > ") + static_cast<char*>(readyFile) + "; read x";
    ExecCmd_System(command.c_str());
    return nullptr;
}

TEST(ExecCmdSystemTest, CancelledThreadKillsTheShell)
{
    const ChildResult child = RunInChild([] {
        int input[2];  // the shell waits for a line from it, forever
        EXPECT_EQ(pipe(input), 0);
        dup2(input[0], STDIN_FILENO);
        std::string readyFile = testing::TempDir() + "ready." + std::to_string(getpid());
        pthread_t thread{};
        EXPECT_EQ(pthread_create(&thread, nullptr, RunSlowCommand, readyFile.data()), 0);
        while (!std::filesystem::exists(readyFile)) {
            std::this_thread::yield();
        }

        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);

        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_FALSE(HasChildProcess());
        std::filesystem::remove(readyFile);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(ExecCmdSystemTest, NullCommandIsAnEmptyOne)
{
    EXPECT_EQ(ExecCmd_System(nullptr), 0);
    EXPECT_EQ(ExecCmd_System(""), 0);

    Recording recording;
    ExecCmd_System(nullptr);
    EXPECT_EQ(recording.calls, Calls{"system: "});
}

// ------------------------------------------------------------------------------- flash variables

TEST(FlashUtilsTest, ConfigFileIsWrittenByThisVeryCommand)
{
    Recording recording;
    recording.systemResult = 512;

    EXPECT_EQ(WriteFlashConfigFile(), 512);

    EXPECT_EQ(recording.calls,
              Calls{"system: echo \"/dev/mtd1   0x00000 0x2000  0x1000  2\" > /etc/fw_env.config"});
}

TEST(FlashUtilsTest, ReadRunsTheToolTwice)
{
    Recording recording;
    recording.pipeOutput = "3\n";
    std::string value;

    EXPECT_EQ(ReadFlashVar("bootdelay", value), 0);

    EXPECT_EQ(value, "3");
    EXPECT_EQ(recording.calls, (Calls{"system: /sbin/fw_printenv -n bootdelay",
                                      "popen: /sbin/fw_printenv -n bootdelay"}));
}

TEST(FlashUtilsTest, ReadThatFailsLeavesTheValueUntouchedAndRunsTheToolOnce)
{
    for (const int status : {-1, 1, 9, 256, 127 << 8}) {
        Recording recording;
        recording.systemResult = status;
        recording.pipeOutput = "3\n";
        std::string value = "x\r\n";

        EXPECT_EQ(ReadFlashVar("bootdelay", value), -1);

        EXPECT_EQ(value, "x\r\n");
        EXPECT_EQ(recording.calls, Calls{"system: /sbin/fw_printenv -n bootdelay"});
    }
}

TEST(FlashUtilsTest, ReadAppendsToWhatTheValueHolds)
{
    Recording recording;
    recording.pipeOutput = "1\n";
    std::string value = "x";

    EXPECT_EQ(ReadFlashVar("name", value), 0);

    EXPECT_EQ(value, "x1");
}

TEST(FlashUtilsTest, ReadRemovesLineEndsFromTheWholeOfTheValue)
{
    Recording recording;
    recording.pipeOutput = "a\r\nb\n\n\r\rc\r\n";
    std::string value = "\rx\ny\r\n";

    EXPECT_EQ(ReadFlashVar("name", value), 0);

    EXPECT_EQ(value, "xyabc");
}

TEST(FlashUtilsTest, ReadWhoseSecondRunCannotStartStillSucceeds)
{
    Recording recording;
    recording.popenFails = true;
    std::string value = "x\n";

    EXPECT_EQ(ReadFlashVar("name", value), 0);

    EXPECT_EQ(value, "x");
}

TEST(FlashUtilsTest, ReadTakesANameThatLiesInTheValue)
{
    Recording recording;
    recording.pipeOutput = std::string(1000, 'v');
    std::string value = "name";

    EXPECT_EQ(ReadFlashVar(value.c_str(), value), 0);

    EXPECT_EQ(value, "name" + std::string(1000, 'v'));
    EXPECT_EQ(recording.calls.back(), "popen: /sbin/fw_printenv -n name");
}

TEST(FlashUtilsTest, NameAndValueAreNeitherQuotedNorEscaped)
{
    Recording recording;
    std::string value;

    ReadFlashVar("a b;c", value);
    WriteFlashVar("a b;c", "say \"hi\" $x `y` \\");

    EXPECT_EQ(recording.calls,
              (Calls{"system: /sbin/fw_printenv -n a b;c", "popen: /sbin/fw_printenv -n a b;c",
                     "system: /sbin/fw_setenv a b;c \"say \"hi\" $x `y` \\\""}));
}

TEST(FlashUtilsTest, WriteQuotesTheValue)
{
    Recording recording;

    EXPECT_EQ(WriteFlashVar("bootdelay", "3"), 0);

    EXPECT_EQ(recording.calls, Calls{"system: /sbin/fw_setenv bootdelay \"3\""});
}

TEST(FlashUtilsTest, WriteHandsBackTheStatusUnchanged)
{
    for (const int status : {-1, 0, 1, 256, 127 << 8}) {
        Recording recording;
        recording.systemResult = status;

        EXPECT_EQ(WriteFlashVar("bootdelay", "3"), status);
        EXPECT_EQ(WriteFlashConfigFile(), status);
    }
}

TEST(FlashUtilsTest, NullTextsAreEmptyOnes)
{
    Recording recording;
    std::string value;

    ReadFlashVar(nullptr, value);
    WriteFlashVar(nullptr, nullptr);
    WriteFlashVar("name", nullptr);

    EXPECT_EQ(recording.calls,
              (Calls{"system: /sbin/fw_printenv -n ", "popen: /sbin/fw_printenv -n ",
                     "system: /sbin/fw_setenv  \"\"", "system: /sbin/fw_setenv name \"\""}));
}

}  // namespace
