// The main program of the dashcam, called as a function: a drive whose display has no memory, and
// one whose end cannot be timed. The functions of the C library that it waits with are replaced.
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/CountingNew.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"

int DashcamMain(int argc, char** argv);  // the main() of main.cpp; CMake renames it

namespace {

using Tolvex::Support::AllocationBudget;

constexpr std::size_t mostAllocations = 30;  ///< more than the line of the display takes

// Set by a test before the drive.
bool timersFail = false;
std::size_t passes = 0;  ///< of the program's loop, before the ignition goes off

std::size_t pass = 0;
std::unique_ptr<AllocationBudget> budget;  ///< of one pass

}  // namespace

extern "C" {

int sigtimedwait(const sigset_t* /*signals*/, siginfo_t* /*info*/, const timespec* /*limit*/)
{
    budget.reset();
    if (pass == passes) {
        return SIGTERM;
    }
    budget = std::make_unique<AllocationBudget>(pass++);
    return Tolvex::Support::FailWith(EAGAIN);
}

int isatty(int /*descriptor*/)
{
    return 1;  // the display shows every pass
}

int timer_create(clockid_t clock, sigevent* event, timer_t* timer)
{
    return timersFail ? Tolvex::Support::FailWith(EAGAIN)
                      : Tolvex::Support::RealFunction<decltype(timer_create)>("timer_create")(
                            clock, event, timer);
}

}  // extern "C"

namespace {

class MainTest : public ::testing::Test
{
protected:
    ~MainTest() override
    {
        timersFail = false;
        pass = passes = 0;
    }

    /// Drives until the ignition goes off. @return the exit code.
    int Drive(std::string seconds) const
    {
        std::string words[] = {"tolvex-dashcam", "--folder", directory.Path(""), "--seconds",
                               std::move(seconds)};
        char* arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                             words[3].data(), words[4].data(), nullptr};
        return DashcamMain(5, arguments);
    }

    const Tolvex::Support::ScratchDirectory directory;
};

TEST_F(MainTest, DriveWhoseEndCannotBeTimedIsRefused)
{
    timersFail = true;
    ::testing::internal::CaptureStderr();

    const int code = Drive("30");

    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "tolvex-dashcam: --seconds: the timer cannot be created\n");
    EXPECT_EQ(code, 1);
    EXPECT_FALSE(std::filesystem::exists(directory.Path("drive.json")));
}

// The last test: a drive is not destroyed, and a process has one only.
TEST_F(MainTest, DriveWhoseDisplayHasNoMemoryEndsWithIgnitionOff)
{
    passes = mostAllocations;
    timersFail = true;  // no matter: the drive has no end of its own

    ::testing::internal::CaptureStdout();

    Drive("0");

    EXPECT_NE(::testing::internal::GetCapturedStdout().find("Ignition off took"),
              std::string::npos);
    EXPECT_EQ(pass, passes);
    EXPECT_NE(Tolvex::Support::ReadFile(directory.Path("drive.json")), "");
}

}  // namespace
