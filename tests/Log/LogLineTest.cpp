#include "Tolvex/Log/LogLine.h"

#include <complex>
#include <iomanip>
#include <pthread.h>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using ::testing::ElementsAre;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;
using Tolvex::Support::WithoutDate;

/// The lines, without dates, that reach the file while work, a void(), runs in a child process.
template <typename Work>
std::vector<std::string> LinesOf(Work work)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&] {
        EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
        work();
        Logger::GetInstance()->CloseFile();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    std::vector<std::string> lines = SplitLines(ReadFile(path));
    for (std::string& line : lines) {
        line = WithoutDate(line);
    }
    return lines;
}

struct Point
{
    int x;
};

std::ostream& operator<<(std::ostream& stream, const Point& point)
{
    return stream << "x=" << point.x;
}

struct Bomb
{
};

std::ostream& operator<<(std::ostream&, const Bomb&)
{
    throw std::runtime_error("bomb");
}

TEST(LogLineTest, WritesHeaderModuleTextAndNewlineWhenItIsDestroyed)
{
    const auto lines = LinesOf([] {
        LogLine(LogType::Error, LogModule::WNET) << "eth0 is down, attempt " << 3;
        LogLine(LogType::Info) << "no module";
        LogLine(LogType::Notice, LogModule::Event);
    });
    EXPECT_THAT(lines,
                ElementsAre("[ERROR][#WNET]eth0 is down, attempt 3", "no module", "[#Event]"));
}

TEST(LogLineTest, IsMadeFromAType)
{
    const auto lines = LinesOf([] {
        LogLine line = LogType::Info;
        line << "text";
    });
    EXPECT_THAT(lines, ElementsAre("text"));
}

TEST(LogLineTest, TakesWhateverAStreamTakes)
{
    const auto lines = LinesOf([] {
        LogLine(LogType::Info) << 'c' << true << 5U << 7L << 1.5F << std::string_view("view")
                               << Point{4} << std::complex<double>(1, 2) << std::setw(4) << 1
                               << std::hex << 255 << std::boolalpha << false << std::flush;
    });
    EXPECT_THAT(lines, ElementsAre("c1571.5viewx=4(1,2)   1fffalse"));
}

TEST(LogLineTest, NewlineAtTheEndIsTheLinesOwn)
{
    const auto lines = LinesOf([] {
        LogLine(LogType::Info) << "a" << std::endl;
        LogLine(LogType::Info) << "b\n";
        LogLine(LogType::Info) << std::string("c\0d", 3);
    });
    EXPECT_THAT(lines, ElementsAre("a", "b", std::string("c\0d", 3)));
}

TEST(LogLineTest, LongTextIsWrittenWhole)
{
    const std::string lengths[] = {std::string(255, 'a'), std::string(256, 'b'),
                                   std::string(257, 'c'), std::string(200000, 'd')};
    const auto lines = LinesOf([&] {
        for (const std::string& text : lengths) {
            LogLine(LogType::Info) << text;
            LogLine line(LogType::Info);
            for (const char character : text) {
                line << character;
            }
        }
    });
    ASSERT_EQ(lines.size(), 8U);
    for (std::size_t line = 0; line < 8; ++line) {
        EXPECT_TRUE(lines[line] == lengths[line / 2]) << line;
    }
}

TEST(LogLineTest, ExceptionInBetweenLeavesNoLineOpenAndWritesWhatThereIs)
{
    const auto lines = LinesOf([] {
        EXPECT_THROW(LogLine(LogType::Info) << "before " << Bomb() << "after", std::runtime_error);
        std::thread([] { LogLine(LogType::Info) << "other thread"; }).join();
    });
    EXPECT_THAT(lines, ElementsAre("before ", "other thread"));
}

TEST(LogLineTest, LinesMayNest)
{
    const auto lines = LinesOf([] {
        LogLine outer(LogType::Info);
        outer << "outer";
        LogLine(LogType::Info) << "inner";
    });
    EXPECT_THAT(lines, ElementsAre("inner", "outer"));
}

TEST(LogLineTest, CancelledThreadLeavesNoLockTaken)
{
    const auto lines = LinesOf([] {
        pthread_t thread = 0;
        pthread_create(
            &thread, nullptr,
            [](void*) -> void* {
                LogLine line(LogType::Info);
                line << "collected";
                pthread_cancel(pthread_self());
                pthread_testcancel();
                return nullptr;
            },
            nullptr);
        pthread_join(thread, nullptr);
        LogLine(LogType::Info) << "next";
    });
    EXPECT_EQ(lines.back(), "next");
}

TEST(LogLineTest, MemoryThatRunsOutCostsPartsOfTheLineOnly)
{
    const std::string huge(100000, 'h');
    const auto lines = LinesOf([&] {
        LogLine(LogType::Info) << "first";
        LogLine(LogType::Info) << "second";  // begins when the first has been written
        {
            const Tolvex::Support::AllocationLimit limit(0);
            LogLine(LogType::Info) << "cut " << huge << " after";
        }
        LogLine(LogType::Info) << "next";
    });
    EXPECT_EQ(lines.front(), "first");
    EXPECT_EQ(lines.back(), "next");
}

TEST(LogLineTest, ShortLinesAllocateNothing)
{
    const auto lines = LinesOf([] {
        const std::string text = "a string that is longer than any in-place buffer of a string";
        const auto write = [&] {
            LogLine(LogType::Error, LogModule::Accelerometer) << text << 42 << 1.5;
        };
        for (int line = 0; line < 50; ++line) {
            write();
        }
        const std::size_t before = Tolvex::Support::allocationCount;
        for (int line = 0; line < 250; ++line) {
            write();
        }
        EXPECT_EQ(Tolvex::Support::allocationCount, before);
    });
    EXPECT_EQ(lines.size(), 300U);
}

TEST(LogLineTest, WithoutALoggerNothingIsFormatted)
{
    const ChildResult child = RunInChild([] {
        LogLine(LogType::Error, LogModule::WNET) << "text" << 1 << std::endl << std::hex;
        return 0;
    });
    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "");
}

TEST(LogLineTest, LineThatWasBegunBeforeTheLoggerWasEnabledIsNotWritten)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        {
            LogLine early(LogType::Info);
            EXPECT_TRUE(Logger::GetInstance()->EnableFile(path));
            early << "early";
        }
        LogLine(LogType::Info) << "next";
        Logger::GetInstance()->CloseFile();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(path)), "next\n");
}

}  // namespace
