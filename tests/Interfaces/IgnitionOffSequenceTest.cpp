#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/Gate.h"
#include "tests/Support/HangingFlushes.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

std::atomic<bool> failCreations = false;  // pthread_create() fails for lack of memory

}  // namespace

extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument)
{
    using Function = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static auto* const real = Tolvex::Support::RealFunction<Function>("pthread_create");
    return failCreations ? EAGAIN : real(handle, attributes, entry, argument);
}

namespace Tolvex::Interfaces {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Support::Eventually;
using Support::Gate;
using Support::hangFlushes;
using Support::LogFile;
using Support::RunInChild;
using Support::ScratchDirectory;
using Util::DriveEnd;

/// Does what the test says.
class Part : public IgnitionOffMode
{
public:
    explicit Part(std::function<void()> work) : action(std::move(work)) {}
    void RunIgnitionOff() override { action(); }

private:
    std::function<void()> action;
};

/// A participant that hangs until the object goes. Shared with its call, which may be left behind.
class Hanging
{
public:
    ~Hanging()
    {
        leave.Open();
        EXPECT_TRUE(Eventually([this] { return calls == ends; }));
    }

    std::atomic<int> calls = 0;
    std::atomic<int> ends = 0;
    Gate leave;
    Part part = Part([this] {
        ++calls;
        leave.Pass();
        ++ends;
    });
};

/// Keeps a sleeping thread of this process from running, however often it is woken, as an
/// overloaded machine does. A child process holds the thread with ptrace(); when the child is
/// killed, the kernel lets the thread go.
class HeldThread
{
public:
    explicit HeldThread(pid_t thread)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        child = Support::StartChild([thread, &ends] {
            char allowed = 0;
            if (read(ends[0], &allowed, 1) != 1 ||
                ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0 ||
                ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0 ||
                waitpid(thread, nullptr, __WALL) != thread) {
                return 1;
            }
            for (;;) {
                raise(SIGSTOP);  // tells the parent that the thread is held
            }
        });
        // Fails where the kernel lets every process trace: no permission is needed there.
        prctl(PR_SET_PTRACER, child, 0, 0, 0);
        EXPECT_EQ(write(ends[1], "", 1), 1);
        close(ends[0]);
        close(ends[1]);
        int status = 0;
        holds = waitpid(child, &status, WUNTRACED) == child && WIFSTOPPED(status);
    }

    ~HeldThread()
    {
        if (holds) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }

    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

    bool Holds() const { return holds; }

private:
    pid_t child = -1;
    bool holds = false;
};

// ------------------------------------------------------------------------------------- no memory

// The first test, so the log does not exist yet. A line without an enabled output must not create
// it: that needs memory.
TEST(IgnitionOffSequenceTest, ParticipantsAreCalledWithoutMemory)
{
    const ScratchDirectory directory;
    Hanging hanging;
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence(directory.Path("drive"));
    ASSERT_TRUE(sequence.Add("a participant whose name needs memory", &hanging.part, 1000ms));
    ASSERT_TRUE(sequence.Add("part", &part, 30s));
    {
        const Support::AllocationBudget none(0);
        sequence.RunIgnitionOff();
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sequence.GetOverrun().size(), 1U);
}

TEST(IgnitionOffSequenceTest, RecordThatLacksMemoryKeepsSayingDied)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    Part part([] {});
    DriveEnd end = DriveEnd::Died;
    for (std::size_t allocations = 0; end == DriveEnd::Died; ++allocations) {
        ASSERT_LT(allocations, 1000U);
        {
            IgnitionOffSequence sequence(record);
            ASSERT_TRUE(sequence.Add("a participant whose name needs memory", &part, 30s));
            const Support::AllocationBudget budget(allocations);
            sequence.RunIgnitionOff();
        }
        end = Util::ReadDriveRecord(record).end;
    }
    EXPECT_EQ(end, DriveEnd::IgnitionOff);

    auto sequence = std::make_unique<IgnitionOffSequence>(record);
    {
        const Support::AllocationBudget none(0);
        sequence.reset();
    }
    EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::Died);
}

// ------------------------------------------------------------------------------------- the order

TEST(IgnitionOffSequenceTest, ParticipantsAreCalledInTheOrderOfTheirAdditionOneAtATime)
{
    std::mutex mutex;
    std::string order;
    std::vector<std::unique_ptr<Part>> parts;
    IgnitionOffSequence sequence;
    for (const char name : std::string("abcdef")) {
        parts.push_back(std::make_unique<Part>([&mutex, &order, name] {
            const std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
            EXPECT_TRUE(lock.owns_lock());
            std::this_thread::sleep_for(2ms);
            order += name;
        }));
        EXPECT_TRUE(sequence.Add(std::string(1, name), parts.back().get(), 30s));
    }

    sequence.RunIgnitionOff();

    EXPECT_EQ(order, "abcdef");
    EXPECT_TRUE(sequence.GetOverrun().empty());
}

TEST(IgnitionOffSequenceTest, EmptySequenceDoesNothing)
{
    IgnitionOffSequence sequence;
    sequence.RunIgnitionOff();
    EXPECT_TRUE(sequence.GetOverrun().empty());
    EXPECT_EQ(sequence.GetLastDrive().end, DriveEnd::None);
    EXPECT_EQ(sequence.GetErrorText(), "");
}

TEST(IgnitionOffSequenceTest, SequenceCanBeAParticipantOfAnother)
{
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence inner;
    IgnitionOffSequence outer;
    ASSERT_TRUE(inner.Add("part", &part, 30s));
    ASSERT_TRUE(outer.Add("inner", &inner, 30s));

    outer.RunIgnitionOff();

    EXPECT_EQ(calls, 1);
}

TEST(IgnitionOffSequenceTest, BadArgumentsAreRefusedWithTheReason)
{
    const std::string begin =
        "[Namespace: Tolvex::Interfaces][Class: IgnitionOffSequence][Method: Add]";
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence;

    EXPECT_FALSE(sequence.Add("part", nullptr, 1ms));
    EXPECT_EQ(sequence.GetErrorText(), begin + "No participant");
    for (const char* name : {"", "a\nb", "\n"}) {
        EXPECT_FALSE(sequence.Add(name, &part, 1ms));
        EXPECT_EQ(sequence.GetErrorText(), begin + "Name not valid");
    }
    for (const auto budget : {0ms, -1ms, std::chrono::milliseconds(1h) + 1ms,
                              std::chrono::milliseconds::max(), std::chrono::milliseconds::min()}) {
        EXPECT_FALSE(sequence.Add("part", &part, budget));
        EXPECT_EQ(sequence.GetErrorText(), begin + "Budget not valid");
    }
    sequence.RunIgnitionOff();
    EXPECT_EQ(calls, 0);

    EXPECT_TRUE(sequence.Add("part", &part, 1h));
    EXPECT_EQ(sequence.GetErrorText(), "");
    sequence.RunIgnitionOff();
    EXPECT_EQ(calls, 1);
}

// -------------------------------------------------------------------------------------- overruns

TEST(IgnitionOffSequenceTest, ParticipantThatHangsIsLeftBehindAndNamed)
{
    LogFile log;
    Hanging hanging;
    int calls = 0;
    Part part([&calls] { ++calls; });
    {
        IgnitionOffSequence sequence;
        ASSERT_TRUE(sequence.Add("Upload", &hanging.part, 60ms));
        ASSERT_TRUE(sequence.Add("part", &part, 30s));
        const auto begin = steady_clock::now();

        sequence.RunIgnitionOff();

        EXPECT_GE(steady_clock::now() - begin, 60ms);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(sequence.GetOverrun(), std::vector<std::string>{"Upload"});
    }
    EXPECT_TRUE(Eventually([&log] {
        const auto lines = log.TakeLines();
        return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.ends_with(
                "Ignition off: Upload has not ended within 60 ms and is left behind");
        });
    }));
    EXPECT_EQ(hanging.ends, 0);
}

TEST(IgnitionOffSequenceTest, SequenceEndsThoughEveryParticipantHangs)
{
    std::vector<std::unique_ptr<Hanging>> all;
    IgnitionOffSequence sequence;
    std::vector<std::string> names;
    for (int count = 0; count < 20; ++count) {
        all.push_back(std::make_unique<Hanging>());
        names.push_back("part " + std::to_string(count));
        ASSERT_TRUE(sequence.Add(names.back(), &all.back()->part, 20ms));
    }
    const auto begin = steady_clock::now();

    sequence.RunIgnitionOff();

    EXPECT_GE(steady_clock::now() - begin, 400ms);
    EXPECT_LT(steady_clock::now() - begin, 10s);  // no hang; the limit itself is measured by hand
    EXPECT_EQ(sequence.GetOverrun(), names);
}

TEST(IgnitionOffSequenceTest, ParticipantThatIsStillBusyIsLeftOutOfTheNextRun)
{
    Hanging hanging;
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence;
    ASSERT_TRUE(sequence.Add("Upload", &hanging.part, 3000ms));  // enough to begin
    ASSERT_TRUE(sequence.Add("part", &part, 30s));
    sequence.RunIgnitionOff();
    ASSERT_TRUE(Eventually([&hanging] { return hanging.calls == 1; }));

    sequence.RunIgnitionOff();

    EXPECT_EQ(hanging.calls, 1);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(sequence.GetOverrun(), std::vector<std::string>{"Upload"});
}

TEST(IgnitionOffSequenceTest, LogThatHangsDoesNotKeepTheSequence)
{
    LogFile log;
    Hanging hanging;
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence;
    ASSERT_TRUE(sequence.Add("Upload", &hanging.part, 1000ms));
    ASSERT_TRUE(sequence.Add("Encoder", &hanging.part, 1000ms));
    ASSERT_TRUE(sequence.Add("part", &part, 30s));
    Ilog::Logger& logger = *Ilog::Logger::GetInstance();
    logger.WriteHeader(Ilog::LogType::Info);  // keeps every other thread from logging

    sequence.RunIgnitionOff();

    EXPECT_EQ(calls, 1);
    logger.DropLine();
    EXPECT_TRUE(Eventually([&log] { return !log.TakeLines().empty(); }));
}

TEST(IgnitionOffSequenceTest, LogThatHungNamesEachLateParticipantOnceLater)
{
    LogFile log;
    std::vector<std::unique_ptr<Hanging>> all;
    auto sequence = std::make_unique<IgnitionOffSequence>();
    for (const char* name : {"Upload", "Encoder", "Modem"}) {
        all.push_back(std::make_unique<Hanging>());
        ASSERT_TRUE(sequence->Add(name, &all.back()->part, 20ms));
    }
    Ilog::Logger& logger = *Ilog::Logger::GetInstance();
    logger.WriteHeader(Ilog::LogType::Info);  // keeps every other thread from logging
    {
        const Support::AllocationBudget none(0);
        sequence->RunIgnitionOff();
    }
    sequence->RunIgnitionOff();
    EXPECT_EQ(sequence->GetOverrun().size(), all.size());
    sequence.reset();  // The lines do not need it.

    logger.DropLine();

    std::vector<std::string> lines;
    EXPECT_TRUE(Eventually([&log, &lines] {
        const auto more = log.TakeLines();
        lines.insert(lines.end(), more.begin(), more.end());
        return lines.size() >= 3;
    }));
    EXPECT_THAT(lines, testing::ElementsAre(testing::HasSubstr("Upload has not ended"),
                                            testing::HasSubstr("Encoder has not ended"),
                                            testing::HasSubstr("Modem has not ended")));
}

TEST(IgnitionOffSequenceTest, CallThatHasNotBegunWithinItsBudgetIsNotMade)
{
    std::atomic<int> calls = 0;
    std::atomic<pid_t> thread = 0;
    Part part([&calls, &thread] {
        ++calls;
        thread = gettid();
    });
    auto sequence = std::make_unique<IgnitionOffSequence>();
    ASSERT_TRUE(sequence->Add("Upload", &part, 50ms));
    ASSERT_TRUE(Eventually([&sequence] {
        sequence->RunIgnitionOff();
        return sequence->GetOverrun().empty();
    }));
    const int callsBefore = calls;
    // Asleep it waits for the next call, and holds no lock.
    ASSERT_TRUE(Eventually([&thread] { return Support::Sleeps(thread); }));
    {
        const HeldThread held(thread);
        if (!held.Holds()) {
            GTEST_SKIP() << "needs the right to trace, and a system without emulation";
        }

        sequence->RunIgnitionOff();

        EXPECT_EQ(sequence->GetOverrun(), std::vector<std::string>{"Upload"});
        sequence.reset();
    }
    ASSERT_TRUE(Eventually([] { return !Support::HasThread("Upload"); }));
    EXPECT_EQ(calls, callsBefore);
}

TEST(IgnitionOffSequenceTest, LoggerCanBeTheLastParticipant)
{
    const ScratchDirectory directory;
    const auto child = RunInChild([&directory] {
        Ilog::Logger* const logger = Ilog::Logger::GetInstance();
        EXPECT_TRUE(logger->EnableFile(directory.Path("log")));
        auto hanging = std::make_shared<Hanging>();
        IgnitionOffSequence sequence;
        EXPECT_TRUE(sequence.Add("Upload", &hanging->part, 1000ms));
        EXPECT_TRUE(sequence.Add("log", logger, 30s));
        sequence.RunIgnitionOff();
        EXPECT_FALSE(logger->IsFileEnabled());
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    const auto lines = Support::SplitLines(Support::ReadFile(directory.Path("log")));
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.back(), testing::EndsWith("All triggers have been stopped"));
}

TEST(IgnitionOffSequenceTest, ExceptionOfAParticipantIsLoggedAndTheNextIsCalled)
{
    LogFile log;
    int calls = 0;
    Part bad([] { throw std::runtime_error("no disk"); });
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence;
    ASSERT_TRUE(sequence.Add("bad", &bad, 30s));
    ASSERT_TRUE(sequence.Add("part", &part, 30s));

    sequence.RunIgnitionOff();

    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(sequence.GetOverrun().empty());
    EXPECT_THAT(log.TakeLines(),
                testing::Contains(testing::HasSubstr("Ignition off: bad failed: no disk")));
}

TEST(IgnitionOffSequenceTest, CancellationWaitsUntilTheSequenceHasEnded)
{
    const ScratchDirectory directory;
    std::atomic<int> calls = 0;
    Part part([&calls] {
        std::this_thread::sleep_for(20ms);
        ++calls;
    });
    IgnitionOffSequence sequence(directory.Path("drive"));
    ASSERT_TRUE(sequence.Add("first", &part, 30s));
    ASSERT_TRUE(sequence.Add("second", &part, 30s));
    bool returned = false;

    std::thread([&sequence, &returned] {
        const Support::CancellableStack stack;
        pthread_cancel(pthread_self());
        sequence.RunIgnitionOff();
        returned = true;
    }).join();

    EXPECT_TRUE(returned);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(Util::ReadDriveRecord(directory.Path("drive")).end, DriveEnd::IgnitionOff);
}

// ------------------------------------------------------------------------------------- no thread

TEST(IgnitionOffSequenceTest, ParticipantWithoutAThreadIsNotAdded)
{
    int calls = 0;
    Part part([&calls] { ++calls; });
    IgnitionOffSequence sequence;
    failCreations = true;
    EXPECT_FALSE(sequence.Add("part", &part, 30s));
    EXPECT_THAT(sequence.GetErrorText(), testing::EndsWith("No thread"));
    failCreations = false;
    ASSERT_TRUE(sequence.Add("later", &part, 30s));

    failCreations = true;  // what was added needs no more threads
    sequence.RunIgnitionOff();
    failCreations = false;

    EXPECT_EQ(calls, 1);
}

TEST(IgnitionOffSequenceTest, WithoutAThreadForTheLogItSaysSoAndLogsNoLateParticipant)
{
    LogFile log;
    Hanging hanging;
    failCreations = true;
    IgnitionOffSequence sequence;
    failCreations = false;
    EXPECT_EQ(sequence.GetErrorText(),
              "[Namespace: Tolvex::Interfaces][Class: IgnitionOffSequence]"
              "[Method: IgnitionOffSequence]No thread for the log");
    ASSERT_TRUE(sequence.Add("Upload", &hanging.part, 1000ms));

    sequence.RunIgnitionOff();

    EXPECT_EQ(sequence.GetOverrun(), std::vector<std::string>{"Upload"});
    EXPECT_THAT(log.TakeLines(), testing::IsEmpty());
}

TEST(IgnitionOffSequenceTest, WithoutThreadsForLogAndRecordItSaysSoAndRuns)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    Hanging hanging;
    {
        failCreations = true;
        IgnitionOffSequence sequence(record);
        failCreations = false;
        EXPECT_THAT(sequence.GetErrorText(), testing::EndsWith("No thread for the record"));
        ASSERT_TRUE(sequence.Add("Upload", &hanging.part, 1000ms));
        sequence.RunIgnitionOff();
        EXPECT_EQ(sequence.GetOverrun(), std::vector<std::string>{"Upload"});
    }
    EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::Died);
}

// ------------------------------------------------------------------------------------ the record

TEST(IgnitionOffSequenceTest, NextStartLearnsHowTheDriveEnded)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    Hanging hanging;
    {
        IgnitionOffSequence first(record);
        EXPECT_EQ(first.GetLastDrive().end, DriveEnd::None);
        EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::Died);
    }
    {
        IgnitionOffSequence second(record);
        EXPECT_EQ(second.GetLastDrive().end, DriveEnd::Stopped);
        ASSERT_TRUE(second.Add("Upload", &hanging.part, 10ms));
        // A long budget: the disk may be slow, and gets what is left of the time.
        Part quick([] {});
        ASSERT_TRUE(second.Add("quick", &quick, 30s));
        second.RunIgnitionOff();
        EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::IgnitionOff);
    }
    const auto killed = RunInChild([&record] {
        const IgnitionOffSequence third(record);
        EXPECT_EQ(third.GetLastDrive().end, DriveEnd::IgnitionOff);
        EXPECT_EQ(third.GetLastDrive().overran, std::vector<std::string>{"Upload"});
        kill(getpid(), SIGKILL);
        return 1;
    });
    EXPECT_EQ(killed.Signal(), SIGKILL) << killed.output;
    const IgnitionOffSequence fourth(record);
    EXPECT_EQ(fourth.GetLastDrive().end, DriveEnd::Died);
    EXPECT_EQ(fourth.GetErrorText(), "");
}

TEST(IgnitionOffSequenceTest, DamagedRecordIsReportedAsUnreadableAndReplaced)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    std::ofstream(record) << "ignition off\n";
    {
        const IgnitionOffSequence sequence(record);
        EXPECT_EQ(sequence.GetLastDrive().end, DriveEnd::Unreadable);
    }
    EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::Stopped);
}

TEST(IgnitionOffSequenceTest, RecordThatCannotBeWrittenIsToldAndTheSequenceRuns)
{
    const ScratchDirectory directory;
    int calls = 0;
    Part part([&calls] { ++calls; });
    LogFile log;
    IgnitionOffSequence sequence(directory.Path("gone/drive"));
    EXPECT_THAT(
        sequence.GetErrorText(),
        testing::EndsWith("Failed to write the drive record: open: No such file or directory"));
    ASSERT_TRUE(sequence.Add("part", &part, 30s));

    sequence.RunIgnitionOff();

    EXPECT_EQ(calls, 1);
    EXPECT_THAT(log.TakeLines(),
                testing::Contains(testing::HasSubstr("Failed to write the drive record: open")));
}

TEST(IgnitionOffSequenceTest, RecordOfTheLastDriveIsNotTakenForThisOne)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("drive");
    Util::WriteDriveRecord(path, {DriveEnd::IgnitionOff, {"Upload"}});
    std::filesystem::create_directory(path + ".new");  // in the way of the next record
    {
        const IgnitionOffSequence sequence(path);
        EXPECT_THAT(sequence.GetErrorText(), testing::HasSubstr("Failed to write"));
        EXPECT_EQ(sequence.GetLastDrive().end, DriveEnd::IgnitionOff);
        EXPECT_EQ(Util::ReadDriveRecord(path).end, DriveEnd::None);
    }
    EXPECT_EQ(Util::ReadDriveRecord(path).end, DriveEnd::None);
}

TEST(IgnitionOffSequenceTest, WithoutMemoryNoParticipantIsAdded)
{
    IgnitionOffSequence sequence;
    int calls = 0;
    Part part([&calls] { ++calls; });
    bool added = false;
    for (std::size_t budget = 0; !added; ++budget) {
        ASSERT_LT(budget, 1000U);
        const Support::AllocationBudget limit(budget);
        try {
            added = sequence.Add("a name that is longer than the space in a string", &part, 30s);
        } catch (const std::bad_alloc&) {
            // The next budget is larger.
        }
    }
    sequence.RunIgnitionOff();
    EXPECT_EQ(calls, 1);
}

TEST(IgnitionOffSequenceTest, DiskThatHangsDoesNotKeepTheSequence)
{
    const ScratchDirectory directory;
    int calls = 0;
    Part part([&calls] { ++calls; });
    {
        IgnitionOffSequence sequence(directory.Path("drive"));
        ASSERT_TRUE(sequence.Add("part", &part, 1000ms));
        hangFlushes = true;
        sequence.RunIgnitionOff();
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(Util::ReadDriveRecord(directory.Path("drive")).end, DriveEnd::Died);
    }
    hangFlushes = false;
    EXPECT_TRUE(Eventually([&directory] {
        return Util::ReadDriveRecord(directory.Path("drive")).end == DriveEnd::IgnitionOff;
    }));
}

TEST(IgnitionOffSequenceTest, SecondRecordIsWrittenWhenTheFirstNoLongerHangs)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    Hanging hanging;
    bool hangs = false;
    Part part([&hanging, &hangs] {
        if (hangs) {
            hanging.part.RunIgnitionOff();
        }
    });
    auto sequence = std::make_unique<IgnitionOffSequence>(record);
    ASSERT_TRUE(sequence->Add("Upload", &part, 1000ms));
    hangFlushes = true;
    sequence->RunIgnitionOff();
    hangs = true;
    sequence->RunIgnitionOff();
    sequence.reset();  // The records do not need it.

    hangFlushes = false;

    EXPECT_TRUE(Eventually([&record] {
        return Util::ReadDriveRecord(record).overran == std::vector<std::string>{"Upload"};
    }));
}

TEST(IgnitionOffSequenceTest, DiskThatHangsDoesNotKeepTheDestructor)
{
    const ScratchDirectory directory;
    const std::string record = directory.Path("drive");
    auto sequence = std::make_unique<IgnitionOffSequence>(record);
    hangFlushes = true;
    const auto begin = steady_clock::now();

    sequence.reset();

    EXPECT_LT(steady_clock::now() - begin, 10s);  // no hang; the limit itself is 2 s
    EXPECT_EQ(Util::ReadDriveRecord(record).end, DriveEnd::Died);
    hangFlushes = false;
    EXPECT_TRUE(
        Eventually([&record] { return Util::ReadDriveRecord(record).end == DriveEnd::Stopped; }));
}

TEST(IgnitionOffSequenceTest, ForkedChildThatDestroysItLeavesTheRecordAlone)
{
    const ScratchDirectory directory;
    Hanging hanging;
    auto sequence = std::make_unique<IgnitionOffSequence>(directory.Path("drive"));
    ASSERT_TRUE(sequence->Add("Upload", &hanging.part, 3000ms));  // enough to begin
    const auto child = RunInChild([&sequence] {
        alarm(20);
        sequence.reset();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(Util::ReadDriveRecord(directory.Path("drive")).end, DriveEnd::Died);
    sequence->RunIgnitionOff();
    EXPECT_EQ(hanging.calls, 1);
}

}  // namespace
}  // namespace Tolvex::Interfaces
