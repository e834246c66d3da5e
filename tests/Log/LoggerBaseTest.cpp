#include "Tolvex/Log/LoggerBase.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <ios>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <ostream>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/Gate.h"
#include "tests/Support/Manipulators.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/SleepingThread.h"
#include "tests/Support/ThreadsInForks.h"
#include "tests/Support/TimeZone.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::LogModule;
using Tolvex::Ilog::ILogPolicy;
using Tolvex::Ilog::LoggerBase;
using Tolvex::Ilog::LogType;
using Tolvex::Support::AwaitLines;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::CapturingPolicy;
using Tolvex::Support::Closing;
using Tolvex::Support::Eventually;
using Tolvex::Support::Gate;
using Tolvex::Support::GivingItBack;
using Tolvex::Support::HasThread;
using Tolvex::Support::InTimeZone;
using Tolvex::Support::LinesOf;
using Tolvex::Support::loggerOfManipulator;
using Tolvex::Support::longestLogWait;
using Tolvex::Support::Scaled;
using Tolvex::Support::SleepingThread;
using Tolvex::Support::TakingTheBuffer;
using Tolvex::Support::ThreadNames;
using Tolvex::Support::WithoutDate;
using Tolvex::Support::WriteLine;

// ------------------------------------------------------------------------------------- the line

static_assert(!std::is_copy_constructible_v<CapturingLogger>);
static_assert(!std::is_copy_assignable_v<CapturingLogger>);
static_assert(!std::is_copy_constructible_v<LoggerBase<Tolvex::Ilog::FileLogPolicy>>);
static_assert(!std::is_copy_assignable_v<LoggerBase<Tolvex::Ilog::ConsoleLogPolicy>>);

TEST(LoggerBaseTest, DisabledLoggerTakesNoLockAndKeepsNoText)
{
    CapturingLogger logger;

    // Twice on one thread, and with a line left open: would block if the lock were taken.
    logger.WriteHeader(LogType::Error);
    logger << LogModule::WNET << "text" << 1 << 1.5 << std::string("s");
    logger.WriteHeader(LogType::Error);
    logger << std::endl;

    EXPECT_FALSE(logger.IsEnabled());
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "first");
    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
    EXPECT_EQ(WithoutDate(logger.GetPolicy().Lines()[0]), "first\n");
}

TEST(LoggerBaseTest, HeaderIsTheLocalTimeInBracketsAndTheTag)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    const std::string earliest = Tolvex::Util::NewDate("[%Y-%m-%d %H:%M:%S]");
    WriteLine(logger, "", LogType::Error);
    const std::string latest = Tolvex::Util::NewDate("[%Y-%m-%d %H:%M:%S]");

    const std::vector<std::string> lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_GE(lines[0].substr(0, earliest.size()), earliest);
    EXPECT_LE(lines[0].substr(0, latest.size()), latest);
    EXPECT_EQ(WithoutDate(lines[0]), "[ERROR]\n");
}

struct TypeRow
{
    const char* name;
    LogType type;
    const char* tag;
};

class LogTypeTest : public ::testing::TestWithParam<TypeRow>
{
};

TEST_P(LogTypeTest, HeaderHasTheTagOfTheTypeAndThePolicyIsToldTheType)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    WriteLine(logger, "x", GetParam().type);

    const std::vector<std::string> lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), std::string(GetParam().tag) + "x\n");
    EXPECT_THAT(logger.GetPolicy().Types(), ElementsAre(GetParam().type));
}

INSTANTIATE_TEST_SUITE_P(All, LogTypeTest,
                         ::testing::Values(TypeRow{"Info", LogType::Info, ""},
                                           TypeRow{"Warning", LogType::Warning, "[WARNING]"},
                                           TypeRow{"Error", LogType::Error, "[ERROR]"},
                                           TypeRow{"Notice", LogType::Notice, ""},
                                           TypeRow{"Seven", static_cast<LogType>(7), ""},
                                           TypeRow{"Negative", static_cast<LogType>(-1), ""}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(LoggerBaseTest, WholeLineIsHeaderModuleValuesAndNewline)
{
    char text[] = "writable";
    const auto lines = LinesOf(1, [&](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Error);
        logger << LogModule::WNET << "literal " << text << 42 << ' ' + std::string("string ") << 1.5
               << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("[ERROR][#WNET]literal writable42 string 1.5\n"));
}

TEST(LoggerBaseTest, NumbersHaveTheDefaultFormat)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << std::numeric_limits<int>::min() << " " << 1.0 / 3 << " " << 1e100 << " "
               << 1234567.0 << " " << 4.0 << " " << std::numeric_limits<double>::infinity()
               << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("-2147483648 0.333333 1e+100 1.23457e+06 4 inf\n"));
}

TEST(LoggerBaseTest, BytesOfAStringAreKeptWhateverTheyAre)
{
    const std::string bytes("a\0b\r\t\xFF", 6);
    const auto lines = LinesOf(1, [&](CapturingLogger& logger) { WriteLine(logger, bytes); });

    EXPECT_THAT(lines, ElementsAre(bytes + "\n"));
}

TEST(LoggerBaseTest, EmptyLineAndHugeLineAreWrittenWhole)
{
    const std::string huge(3000000, 'h');
    const auto lines = LinesOf(3, [&](CapturingLogger& logger) {
        WriteLine(logger, "");
        WriteLine(logger, huge);
        WriteLine(logger, "after");
    });

    EXPECT_TRUE(lines == (std::vector<std::string>{"\n", huge + "\n", "after\n"}));
}

TEST(LoggerBaseTest, ModuleWithoutTextGivesAnEmptyTag)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << static_cast<LogModule>(11) << static_cast<LogModule>(-1) << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("[#][#]\n"));
}

TEST(LoggerBaseTest, NewlineInTheMiddleEndsNothing)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "a\n"
               << "b" << std::flush << "c" << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("a\nbc\n"));
}

TEST(LoggerBaseTest, AnyManipulatorEndsTheLineWhenTheTextEndsInANewline)
{
    const auto lines = LinesOf(2, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "a\n" << std::flush;
        logger.WriteHeader(LogType::Info);
        logger << "b" << std::flush << "\n";
        logger.CheckEndOfStream();
    });

    EXPECT_THAT(lines, ElementsAre("a\n", "b\n"));
}

TEST(LoggerBaseTest, TextWithoutNewlineIsNotHandedOver)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    logger.WriteHeader(LogType::Info);
    logger << "abc";
    logger.CheckEndOfStream();
    logger << std::flush;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    EXPECT_THAT(logger.GetPolicy().Lines(), IsEmpty());
    logger.DropLine();
}

TEST(LoggerBaseTest, EveryEndlHandsOverOneLineAndASecondOneNothing)
{
    const auto lines = LinesOf(3, [](CapturingLogger& logger) {
        for (int line = 0; line < 3; ++line) {
            logger.WriteHeader(LogType::Info);
            logger << line << std::endl << std::endl << "late" << std::endl;
        }
    });

    EXPECT_THAT(lines, ElementsAre("0\n", "1\n", "2\n"));
}

TEST(LoggerBaseTest, ValuesWithoutAHeaderAreDropped)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger << LogModule::WNET << "dropped" << 1 << std::endl;
        WriteLine(logger, "line");
    });

    EXPECT_THAT(lines, ElementsAre("line\n"));
}

TEST(LoggerBaseTest, ValuesOfAThreadThatDidNotBeginTheLineAreDropped)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        std::thread([&logger] { logger << LogModule::WNET << "other" << std::endl; }).join();
        logger << "own" << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("own\n"));
}

TEST(LoggerBaseTest, NullPointerEndsTheTextOfItsLineAndOfNoOther)
{
    const char* const nothing = nullptr;
    char* const nothingWritable = nullptr;
    const auto lines = LinesOf(3, [&](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "before " << nothing << "after" << std::endl;
        logger.WriteHeader(LogType::Warning);
        logger << nothingWritable << std::endl;
        WriteLine(logger, "next");
    });

    EXPECT_THAT(lines, ElementsAre("before \n", "[WARNING]\n", "next\n"));
}

TEST(LoggerBaseTest, NullManipulatorDoesNothing)
{
    std::ostream& (*const nothing)(std::ostream&) = nullptr;
    const auto lines = LinesOf(1, [&](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "a" << nothing << "b" << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("ab\n"));
}

const int wordOfManipulators = std::ios_base::xalloc();

std::ostream& OddFormat(std::ostream& stream)
{
    stream.tie(&std::cerr);
    stream.iword(wordOfManipulators) = 1;
    stream.exceptions(std::ios_base::failbit);
    stream << std::hex << std::showbase;
    stream.precision(2);
    stream.fill('*');
    stream.width(9);
    stream.setstate(std::ios_base::eofbit);
    stream.clear();
    return stream;
}

std::ostream& ExpectNewStream(std::ostream& stream)
{
    EXPECT_EQ(stream.tie(), nullptr);
    EXPECT_EQ(stream.iword(wordOfManipulators), 0);
    EXPECT_EQ(stream.exceptions(), std::ios_base::goodbit);
    return stream;
}

TEST(LoggerBaseTest, FormatThatALineSetsEndsWithIt)
{
    const auto lines = LinesOf(2, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << OddFormat << 255 << " " << 3.14159 << OddFormat << std::endl;
        logger.WriteHeader(LogType::Info);
        logger << 255 << " " << 3.14159 << ExpectNewStream << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("*****0xff 3.1\n", "255 3.14159\n"));
}

TEST(LoggerBaseTest, InsertionsThatFindNoMemoryAreMissingInTheirLineOnly)
{
    const std::string huge(1000000, 'h');
    const auto lines = LinesOf(2, [&](CapturingLogger& logger) {
        {
            const Tolvex::Support::AllocationLimit limit(100000);
            logger.WriteHeader(LogType::Info);
            logger << "before " << huge << "after" << std::endl;
        }
        WriteLine(logger, "next");
    });

    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0].substr(0, 7), "before ");
    EXPECT_EQ(lines[0].find("after"), std::string::npos);
    EXPECT_EQ(lines[0].back(), '\n');
    EXPECT_EQ(lines[1], "next\n");
}

TEST(LoggerBaseTest, HeaderThatFindsNoMemoryLeavesNoLockTaken)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        {
            const Tolvex::Support::AllocationLimit limit(0);
            try {
                WriteLine(logger, "lost or not");
            } catch (const std::bad_alloc&) {
            }
        }
        std::thread([&logger] { WriteLine(logger, "next"); }).join();
    });

    EXPECT_EQ(lines.back(), "next\n");
}

TEST(LoggerBaseTest, EnableFailsWithoutMemoryAndLeavesTheLoggerDisabled)
{
    CapturingLogger logger;
    {
        const Tolvex::Support::AllocationLimit limit(0);
        EXPECT_FALSE(logger.Enable());
    }

    EXPECT_FALSE(logger.IsEnabled());
    EXPECT_TRUE(logger.Enable());
}

TEST(LoggerBaseTest, LinesAtSteadyStateAllocateNothing)
{
    LoggerBase<Tolvex::Ilog::FileLogPolicy> logger;  // without an output: writes nothing
    ASSERT_TRUE(logger.Enable());
    const std::string text = "a string that is longer than any in-place buffer of a string";
    const auto write = [&] {
        logger.WriteHeader(LogType::Error);
        logger << LogModule::Accelerometer << text << "literal" << 42 << 1.5 << std::endl;
    };
    for (int line = 0; line < 100; ++line) {
        write();
    }

    const std::size_t before = Tolvex::Support::allocationCount;
    for (int line = 0; line < 500; ++line) {
        write();
    }
    EXPECT_EQ(Tolvex::Support::allocationCount, before);
}

// ------------------------------------------------------------------------------- the time stamp

TEST(LoggerBaseTest, ChangedTimeZoneShowsInTheNextLine)
{
    InTimeZone("UTC0", [] {
        CapturingLogger logger;
        ASSERT_TRUE(logger.Enable());
        for (int attempt = 0; attempt < 10; ++attempt) {
            // Within one second, so that nothing but the zone differs; hence the attempts.
            setenv("TZ", "UTC0", 1);
            tzset();
            const time_t before = std::time(nullptr);
            WriteLine(logger, "utc");
            // Same names and same offset of the standard time: the rule alone differs.
            setenv("TZ", "UTC0", 1);
            tzset();
            WriteLine(logger, "utc");
            setenv("TZ", "XXX-5:30", 1);
            tzset();
            WriteLine(logger, "kolkata");
            const auto lines = AwaitLines(logger, static_cast<std::size_t>(3 * attempt) + 3);
            if (std::time(nullptr) != before) {
                continue;
            }
            EXPECT_EQ(lines[lines.size() - 1].substr(0, 21),
                      Tolvex::Util::Date(before, "[%Y-%m-%d %H:%M:%S]"));
            EXPECT_NE(lines[lines.size() - 1].substr(0, 21), lines[lines.size() - 2].substr(0, 21));
            return;
        }
        FAIL() << "no three lines within one second";
    });
}

// -------------------------------------------------------------------------------- the open line

TEST(LoggerBaseTest, OpenLineIsEndedByItsThreadsNextHeader)
{
    const auto lines = LinesOf(3, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "left open";
        logger.WriteHeader(LogType::Info);
        logger << "with newline\n";
        WriteLine(logger, "whole");
    });

    EXPECT_THAT(lines, ElementsAre("left open\n", "with newline\n", "whole\n"));
}

TEST(LoggerBaseTest, DroppedLineIsNotWrittenAndLeavesNoLockTaken)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.DropLine();
        logger.WriteHeader(LogType::Info);
        logger << "half";
        logger.DropLine();
        std::thread([&logger] { WriteLine(logger, "whole"); }).join();
    });

    EXPECT_THAT(lines, ElementsAre("whole\n"));
}

TEST(LoggerBaseTest, OpenLineOfAThreadThatEndsIsDropped)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        std::thread([&logger] {
            logger.WriteHeader(LogType::Info);
            logger << "half";
        }).join();
        std::thread([&logger] { WriteLine(logger, "whole"); }).join();
    });

    EXPECT_THAT(lines, ElementsAre("whole\n"));
}

std::ostream& Throwing(std::ostream&)
{
    throw std::runtime_error("manipulator");
}

TEST(LoggerBaseTest, ExceptionOutOfAManipulatorDropsTheLine)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        EXPECT_THROW(logger << "half" << Throwing, std::runtime_error);
        logger << "rest" << std::endl;
        std::thread([&logger] { WriteLine(logger, "whole"); }).join();
    });

    EXPECT_THAT(lines, ElementsAre("whole\n"));
}

std::ostream& Logging(std::ostream& stream)
{
    WriteLine(*loggerOfManipulator, "inner");
    return stream;
}

TEST(LoggerBaseTest, ManipulatorThatLogsGetsADeadlockErrorInsteadOfADeadlock)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        loggerOfManipulator = &logger;
        logger.WriteHeader(LogType::Info);
        try {
            logger << Logging;
            ADD_FAILURE() << "no exception";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
        }
        WriteLine(logger, "whole");
    });

    EXPECT_THAT(lines, ElementsAre("whole\n"));
}

TEST(LoggerBaseTest, ManipulatorThatClosesTheLoggerClosesThePolicyAndDropsItsLine)
{
    CapturingLogger logger;
    loggerOfManipulator = &logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    logger << "half" << Closing << "rest" << std::endl;

    EXPECT_EQ(logger.GetPolicy().Closes(), 1);
    EXPECT_FALSE(logger.IsEnabled());
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "whole");
    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "whole\n");
}

TEST(LoggerBaseTest, LineThatCannotBeEndedIsDroppedAndLeavesNoLockTaken)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "lost" << TakingTheBuffer << std::endl;
        std::thread([&logger] {
            logger.WriteHeader(LogType::Info);
            logger << GivingItBack;
            logger.DropLine();
            WriteLine(logger, "whole");
        }).join();
    });

    EXPECT_THAT(lines, ElementsAre("whole\n"));
}

// ----------------------------------------------------------------------------------- the policy

TEST(LoggerBaseTest, OutputIsForwardedToThePolicy)
{
    CapturingLogger logger;

    logger.SetOutput("one");
    ASSERT_TRUE(logger.Enable());
    logger.SetOutput("two");
    logger.WriteHeader(LogType::Info);
    logger.SetOutput("in the middle of an own line");
    logger << "x" << std::endl;

    EXPECT_THAT(logger.GetPolicy().Outputs(),
                ElementsAre("one", "two", "in the middle of an own line"));
    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

/// Notices that it is closed while it changes its output.
class SlowOutputPolicy : public ILogPolicy
{
public:
    void SetOutput(const std::string&) override
    {
        changing = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        changing = false;
    }
    void Write(const std::string&) override {}
    void Close() override { closedMeanwhile = changing.load(); }

    std::atomic<bool> changing = false;
    std::atomic<bool> closedMeanwhile = false;
};

TEST(LoggerBaseTest, PolicyIsNotClosedWhileAThreadWithAnOpenLineChangesItsOutput)
{
    LoggerBase<SlowOutputPolicy> logger;
    ASSERT_TRUE(logger.Enable());
    std::thread changing([&logger] {
        logger.WriteHeader(LogType::Info);
        logger.SetOutput("new");
        logger.DropLine();
    });
    EXPECT_TRUE(Eventually([&logger] { return logger.GetPolicy().changing.load(); }));

    logger.Close();

    changing.join();
    EXPECT_FALSE(logger.GetPolicy().closedMeanwhile);
}

/// Changes errno.
class FailingPolicy : public CapturingPolicy
{
public:
    void WriteHeader(LogType) override { errno = EIO; }
};

TEST(LoggerBaseTest, HeaderLeavesErrnoForTheTextOfTheLine)
{
    LoggerBase<FailingPolicy> logger;
    ASSERT_TRUE(logger.Enable());

    errno = ENOENT;
    logger.WriteHeader(LogType::Error);

    EXPECT_EQ(errno, ENOENT);
}

/// Knows no output.
class RefusingPolicy : public CapturingPolicy
{
public:
    void SetOutput(const std::string&) override { throw std::runtime_error("policy"); }
};

TEST(LoggerBaseTest, ExceptionOutOfTheChangeOfTheOutputDropsTheOwnOpenLine)
{
    LoggerBase<RefusingPolicy> logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    EXPECT_THROW(logger.SetOutput("new"), std::runtime_error);

    logger << "dropped" << std::endl;
    std::thread([&logger] {
        logger.WriteHeader(LogType::Info);
        logger << "whole" << std::endl;
    }).join();
    logger.Close();
    ASSERT_THAT(logger.GetPolicy().Lines(), SizeIs(1));
    EXPECT_EQ(WithoutDate(logger.GetPolicy().Lines()[0]), "whole\n");
}

TEST(LoggerBaseTest, OutputDoesNotChangeInTheMiddleOfAnotherThreadsLine)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    std::thread other = SleepingThread([&logger] { logger.SetOutput("new"); });
    EXPECT_THAT(logger.GetPolicy().Outputs(), IsEmpty());

    logger << std::endl;
    other.join();
    EXPECT_THAT(logger.GetPolicy().Outputs(), ElementsAre("new"));
}

TEST(LoggerBaseTest, OutputStaysAsItIsWhenALineIsOpenForLongerThanTheWait)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);

    std::thread([&logger] { EXPECT_FALSE(logger.ChangeOutput("new")); }).join();

    EXPECT_THAT(logger.GetPolicy().Outputs(), IsEmpty());
    logger << "whole" << std::endl;
    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

TEST(LoggerBaseTest, PolicyThatThrowsLosesThatLineOnly)
{
    CapturingLogger logger;
    logger.GetPolicy().onWrite = [](const std::string& line) {
        if (line.find("bad") != std::string::npos) {
            throw std::runtime_error("policy");
        }
    };
    ASSERT_TRUE(logger.Enable());

    WriteLine(logger, "bad");
    WriteLine(logger, "good");

    const auto lines = AwaitLines(logger, 1);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(WithoutDate(lines[0]), "good\n");
}

TEST(LoggerBaseTest, PolicyThatLogsGetsADeadlockErrorInsteadOfADeadlock)
{
    CapturingLogger logger;
    std::atomic<int> errors = 0;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        try {
            WriteLine(logger, "from the policy");
        } catch (const std::system_error& error) {
            errors += error.code() == std::errc::resource_deadlock_would_occur ? 1 : 0;
            throw;
        }
    };
    ASSERT_TRUE(logger.Enable());

    WriteLine(logger, "one");
    WriteLine(logger, "two");

    EXPECT_TRUE(Eventually([&] { return errors == 2; }));
    logger.Close();
    EXPECT_THAT(logger.GetPolicy().Lines(), IsEmpty());
}

/// Closes its logger from the inside.
class ClosingPolicy : public ILogPolicy
{
public:
    void Write(const std::string&) override { ++writes; }
    void Close() override
    {
        ++closes;
        if (closes < 3) {
            logger->Close();
            reenabled = logger->Enable();
        }
    }

    static inline LoggerBase<ClosingPolicy>* logger = nullptr;
    int closes = 0;
    bool reenabled = true;
    std::atomic<int> writes = 0;
};

TEST(LoggerBaseTest, PolicyThatClosesItsLoggerFromCloseDoesNotRecurse)
{
    LoggerBase<ClosingPolicy> logger;
    ClosingPolicy::logger = &logger;
    ASSERT_TRUE(logger.Enable());

    logger.Close();

    EXPECT_EQ(logger.GetPolicy().closes, 1);
    EXPECT_FALSE(logger.GetPolicy().reenabled);
    logger.GetPolicy().closes = 3;
}

TEST(LoggerBaseTest, PolicyThatClosesItsLoggerFromWriteIsClosedAndItsLineIsWritten)
{
    CapturingLogger logger;
    logger.GetPolicy().onWrite = [&logger](const std::string&) { logger.Close(); };
    ASSERT_TRUE(logger.Enable());

    WriteLine(logger, "last");

    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
    EXPECT_FALSE(logger.IsEnabled());
    EXPECT_EQ(logger.GetPolicy().Closes(), 1);
    logger.Close();
    logger.GetPolicy().onWrite = nullptr;
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "next");
    logger.Close();
    EXPECT_THAT(TextsOf(logger), ElementsAre("last\n", "next\n"));
}

// --------------------------------------------------------------------------- enabling and closing

TEST(LoggerBaseTest, WriterBearsTheNameOfTheLogger)
{
    CapturingLogger logger;
    logger.SetTheadName("LOG_NAMED");
    EXPECT_FALSE(HasThread("LOG_NAMED"));

    ASSERT_TRUE(logger.Enable());
    EXPECT_TRUE(logger.Enable());
    EXPECT_TRUE(HasThread("LOG_NAMED"));
    const auto names = ThreadNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "LOG_NAMED\n"), 1);

    logger.Close();
    EXPECT_TRUE(Eventually([] { return !HasThread("LOG_NAMED"); }));
}

TEST(LoggerBaseTest, CloseDisablesAndClosesThePolicyEachTime)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());

    logger.Close();
    logger.Close();
    WriteLine(logger, "lost");

    EXPECT_FALSE(logger.IsEnabled());
    EXPECT_EQ(logger.GetPolicy().Closes(), 2);
    EXPECT_THAT(logger.GetPolicy().Lines(), IsEmpty());
}

TEST(LoggerBaseTest, ClosedLoggerCanBeEnabledAgain)
{
    CapturingLogger logger;
    for (int round = 0; round < 8; ++round) {
        ASSERT_TRUE(logger.Enable());
        WriteLine(logger, std::to_string(round));
        logger.Close();

        const auto lines = logger.GetPolicy().Lines();
        ASSERT_THAT(lines, SizeIs(round + 1));
        EXPECT_EQ(WithoutDate(lines.back()), std::to_string(round) + "\n");
    }
}

TEST(LoggerBaseTest, LineThatIsEndedBeforeCloseIsWrittenHoweverSlowTheWriterIs)
{
    for (int round = 0; round < 8; ++round) {
        CapturingLogger logger;
        logger.GetPolicy().onWrite = [](const std::string&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        };
        ASSERT_TRUE(logger.Enable());
        WriteLine(logger, "a");
        WriteLine(logger, "last");
        logger.Close();

        EXPECT_THAT(logger.GetPolicy().Lines(), SizeIs(2));
    }
}

TEST(LoggerBaseTest, DestructorClosesThePolicy)
{
    static int closings = 0;
    struct CountingPolicy : Tolvex::Support::CapturingPolicy
    {
        void Close() override { ++closings; }
    };
    {
        LoggerBase<CountingPolicy> logger;
        ASSERT_TRUE(logger.Enable());
    }

    EXPECT_EQ(closings, 1);
}

TEST(LoggerBaseTest, CloseDropsAnOpenLineAlthoughAThreadWaitsToChangeTheOutput)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    std::thread changing =
        Tolvex::Support::SleepingThread([&logger] { logger.SetOutput("other"); });

    std::thread([&logger] { logger.Close(); }).join();
    changing.join();

    EXPECT_THAT(logger.GetPolicy().Outputs(), ElementsAre("other"));
}

TEST(LoggerBaseTest, BufferThatAManipulatorTookIsBackInTheNextLine)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    logger << TakingTheBuffer;
    logger.DropLine();
    WriteLine(logger, "next");

    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

TEST(LoggerBaseTest, EndlAddsANewlineToATextThatEndsInOne)
{
    const auto lines = LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << "a\n" << std::endl;
    });

    EXPECT_THAT(lines, ElementsAre("a\n\n"));
}

TEST(LoggerBaseTest, CloseOfTheOwnOpenLineDropsIt)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    logger.WriteHeader(LogType::Info);
    logger.Close();
    EXPECT_EQ(logger.GetPolicy().Closes(), 1);

    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "new");
    EXPECT_THAT(AwaitLines(logger, 1), SizeIs(1));
}

TEST(LoggerBaseTest, EnablingAndClosingUnderLoadNeverBlocksAndTearsNothing)
{
    CapturingLogger logger;
    std::atomic<bool> running = true;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            while (running) {
                logger.WriteHeader(LogType::Info);
                logger << LogModule::Event << "text" << 1 << std::endl;
            }
        });
    }
    for (int round = 0; round < 8; ++round) {
        EXPECT_TRUE(logger.Enable());
        const std::size_t before = logger.GetPolicy().LineCount();
        Eventually([&] { return logger.GetPolicy().LineCount() >= before + 10; });
        EXPECT_GT(logger.GetPolicy().LineCount(), before);
        logger.Close();
    }
    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const std::string& line : logger.GetPolicy().Lines()) {
        ASSERT_EQ(WithoutDate(line), "[#Event]text1\n");
    }
}

TEST(LoggerBaseTest, EnableWhileAnOldWriterHangsStartsANewOneThatWaitsForIt)
{
    Gate hanging;
    Gate released;
    CapturingLogger logger;
    logger.SetTheadName("writer");
    std::atomic<int> calls = 0;
    std::atomic<int> inside = 0;
    logger.GetPolicy().onWrite = [&](const std::string&) {
        EXPECT_EQ(++inside, 1);
        if (++calls == 1) {
            hanging.Open();
            EXPECT_TRUE(released.Pass());
        }
        --inside;
    };
    ASSERT_TRUE(logger.Enable());
    WriteLine(logger, "first");
    ASSERT_TRUE(hanging.Pass());

    const auto start = std::chrono::steady_clock::now();
    logger.Close();
    EXPECT_GE(std::chrono::steady_clock::now() - start, longestLogWait);
    EXPECT_EQ(logger.GetPolicy().Closes(), 1);

    ASSERT_TRUE(logger.Enable());
    std::thread second([&logger] { WriteLine(logger, "second"); });
    released.Open();
    second.join();
    const auto lines = AwaitLines(logger, 2);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(WithoutDate(lines[1]), "second\n");
    EXPECT_TRUE(Eventually([] {
        const std::vector<std::string> names = ThreadNames();
        return std::count(names.begin(), names.end(), "writer\n") == 1;
    }));

    // The old writer has left the flags to the new one: the close still waits for that.
    WriteLine(logger, "third");
    logger.Close();
    EXPECT_THAT(logger.GetPolicy().Lines(), SizeIs(3));
}

/// Hangs in Write() without touching its members.
class HangingPolicy : public ILogPolicy
{
public:
    void Write(const std::string& line) override
    {
        hanging->Open();
        released->Pass();
        length = line.size();
        ended->Open();
    }

    static inline std::shared_ptr<Gate> hanging = std::make_shared<Gate>();
    static inline std::shared_ptr<Gate> released = std::make_shared<Gate>();
    static inline std::shared_ptr<Gate> ended = std::make_shared<Gate>();
    static inline std::atomic<std::size_t> length = 0;
};

TEST(LoggerBaseTest, DestructorLeavesAHangingWriterBehindAfterTwoSeconds)
{
    auto logger = std::make_unique<LoggerBase<HangingPolicy>>();
    logger->SetTheadName("LOG_HANGING");
    ASSERT_TRUE(logger->Enable());
    logger->WriteHeader(LogType::Info);
    *logger << "text" << std::endl;
    ASSERT_TRUE(HangingPolicy::hanging->Pass());

    const auto start = std::chrono::steady_clock::now();
    logger.reset();
    EXPECT_GE(std::chrono::steady_clock::now() - start, longestLogWait);

    HangingPolicy::released->Open();
    ASSERT_TRUE(HangingPolicy::ended->Pass());
    EXPECT_TRUE(Eventually([] { return !HasThread("LOG_HANGING"); }));
    EXPECT_GT(HangingPolicy::length, 20U);
}

TEST(LoggerBaseTest, LoggersComeAndGoUnderTheirWriters)
{
    for (int round = 0; round < 8; ++round) {
        CapturingLogger logger;
        logger.SetTheadName("LOG_PASSING");
        ASSERT_TRUE(logger.Enable());
        WriteLine(logger, "x");
    }
    EXPECT_TRUE(Eventually([] { return !HasThread("LOG_PASSING"); }));
}

// The thread sanitizer and the address sanitizer notice a list of loggers without a lock.
TEST(LoggerBaseTest, LoggersThatComeAndGoWhileThreadsEndLoseNoLineOfAnother)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    constexpr std::size_t lines = 200;
    std::vector<std::thread> makers;
    for (int maker = 0; maker < 2; ++maker) {
        makers.emplace_back([] {
            for (int round = 0; round < 1000; ++round) {
                const CapturingLogger passing;
            }
        });
    }

    for (std::size_t line = 0; line < lines; ++line) {
        std::thread([&logger] { WriteLine(logger, "x"); }).join();
    }

    for (std::thread& maker : makers) {
        maker.join();
    }
    EXPECT_THAT(AwaitLines(logger, lines), SizeIs(lines));
}

// ----------------------------------------------------------------------------------- cancellation

/// Composes one line after the other and is cancelled at a chosen point of one.
struct Victim
{
    CapturingLogger* logger;
    int point;

    static void* Run(void* argument)
    {
        const Tolvex::Support::CancellableStack stack;
        Victim& self = *static_cast<Victim*>(argument);
        int step = 0;
        const auto here = [&] {
            if (step++ == self.point) {
                pthread_cancel(pthread_self());
                pthread_testcancel();
            }
        };
        CapturingLogger& logger = *self.logger;
        here();
        logger.WriteHeader(LogType::Error);
        here();
        logger << LogModule::Event;
        here();
        logger << "text";
        here();
        logger << 42;
        here();
        logger << 1.5 << std::string(" string");
        here();
        logger << std::flush;
        here();
        logger << std::endl;
        here();
        return nullptr;
    }
};

TEST(LoggerBaseTest, ThreadCancelledBetweenAnyTwoStepsLeavesNoLockAndNoHalfLine)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    for (int point = 0; point < 8; ++point) {
        Victim victim{&logger, point};
        pthread_t thread = 0;
        ASSERT_EQ(pthread_create(&thread, nullptr, Victim::Run, &victim), 0);
        void* result = nullptr;
        pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        WriteLine(logger, "after " + std::to_string(point));
    }

    const auto lines = AwaitLines(logger, 9);
    ASSERT_THAT(lines, SizeIs(9));
    for (std::size_t line = 0; line < 7; ++line) {
        EXPECT_EQ(WithoutDate(lines[line]), "after " + std::to_string(line) + "\n");
    }
    EXPECT_EQ(WithoutDate(lines[7]), "[ERROR][#Event]text421.5 string\n");
}

std::ostream& CancellationPoint(std::ostream& stream)
{
    pthread_testcancel();
    return stream;
}

void* LogUntilCancelled(void* argument)
{
    const Tolvex::Support::CancellableStack stack;
    CapturingLogger& logger = *static_cast<CapturingLogger*>(argument);
    for (;;) {
        logger.WriteHeader(LogType::Info);
        logger << LogModule::Event << CancellationPoint << "text" << CancellationPoint << 42
               << std::endl;
    }
}

TEST(LoggerBaseTest, ThreadsCancelledAtAnyMomentLeaveNoLockAndNoHalfLine)
{
    CapturingLogger logger;
    ASSERT_TRUE(logger.Enable());
    const int rounds = static_cast<int>(Scaled(5000));
    for (int round = 0; round < rounds; ++round) {
        pthread_t threads[2];
        for (pthread_t& thread : threads) {
            ASSERT_EQ(pthread_create(&thread, nullptr, LogUntilCancelled, &logger), 0);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 500));
        for (const pthread_t thread : threads) {
            pthread_cancel(thread);
        }
        for (const pthread_t thread : threads) {
            pthread_join(thread, nullptr);
        }
    }
    WriteLine(logger, "end");
    logger.Close();

    const auto lines = logger.GetPolicy().Lines();
    EXPECT_EQ(WithoutDate(lines.back()), "end\n");
    for (std::size_t line = 0; line + 1 < lines.size(); ++line) {
        ASSERT_EQ(WithoutDate(lines[line]), "[#Event]text42\n");
    }
}

}  // namespace
