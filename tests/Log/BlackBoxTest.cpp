// Which lines the black box of the log keeps.
#include "tests/Support/BlackBox.h"

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <locale>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::LastLines;
using Tolvex::Support::OpenBlackBox;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;

Logger& logger = *Logger::GetInstance();

void WriteNumbers(int first, int last)
{
    for (int number = first; number <= last; ++number) {
        LogLine(LogType::Info) << number;
    }
}

TEST(BlackBoxTest, NothingIsKeptBeforeItIsEnabled)
{
    const ScratchDirectory directory;
    LogLine(LogType::Info) << "early";

    EXPECT_FALSE(logger.IsBlackBoxEnabled());
    EXPECT_THAT(logger.GetLastLines(), IsEmpty());
    errno = 0;
    EXPECT_FALSE(logger.SaveLastLines(directory.Path("saved")));
    EXPECT_EQ(errno, ENODATA);
    EXPECT_FALSE(std::filesystem::exists(directory.Path("saved")));
    logger.CloseBlackBox();
}

TEST(BlackBoxTest, LastLinesAreKeptOldestFirstWithoutAFile)
{
    const OpenBlackBox box(3);

    EXPECT_TRUE(logger.IsBlackBoxEnabled());
    EXPECT_FALSE(logger.IsFileEnabled());
    EXPECT_FALSE(logger.IsConsoleEnabled());
    EXPECT_THAT(LastLines(), IsEmpty());
    WriteNumbers(1, 1);
    EXPECT_THAT(LastLines(), ElementsAre("1"));
    WriteNumbers(2, 3);
    EXPECT_THAT(LastLines(), ElementsAre("1", "2", "3"));
    WriteNumbers(4, 8);
    EXPECT_THAT(LastLines(), ElementsAre("6", "7", "8"));
}

TEST(BlackBoxTest, BothWaysOfWritingALineGiveTheLineOfTheFileLog)
{
    const OpenBlackBox box(10);
    LogLine(LogType::Error, LogModule::WNET) << "eth0 is down, attempt " << 3;
    logger.WriteHeader(LogType::Warning);
    logger << LogModule::CELL << "signal " << -113 << " " << 2.5 << std::endl;
    LogLine(LogType::Notice) << "";

    EXPECT_THAT(LastLines(), ElementsAre("[ERROR][#WNET]eth0 is down, attempt 3",
                                         "[WARNING][#CELL]signal -113 2.5", ""));
}

TEST(BlackBoxTest, LineWithNewlinesInTheMiddleIsOneLine)
{
    const OpenBlackBox box(2);
    WriteNumbers(1, 1);
    LogLine(LogType::Info) << "a\nb\n\nc";
    LogLine(LogType::Info) << std::string("d\0e", 3);

    EXPECT_THAT(LastLines(), ElementsAre("a\nb\n\nc", std::string("d\0e", 3)));
}

TEST(BlackBoxTest, LinesAreThoseOfTheFileWhereBothAreOn)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(10000);
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    for (int number = 0; number < 300; ++number) {
        LogLine(LogType(number % 5), LogModule(number % 12))
            << number << ' ' << number / 7.0 << '\n'
            << std::string(static_cast<std::size_t>(number), 'x');
        logger.WriteHeader(LogType::Error);
        logger << number << static_cast<const char*>(nullptr) << "missing" << std::endl;
    }
    logger.CloseFile();
    ASSERT_TRUE(logger.SaveLastLines(directory.Path("saved")));

    const std::string file = ReadFile(directory.Path("log"));
    EXPECT_THAT(logger.GetLastLines(), SizeIs(600));
    EXPECT_EQ(file, ReadFile(directory.Path("saved")));
}

TEST(BlackBoxTest, NumbersHaveTheLocaleOfTheFileLog)
{
    class Grouping : public std::numpunct<char>
    {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new Grouping));
    const auto child = RunInChild([] {
        const OpenBlackBox box(2);
        LogLine(LogType::Info) << 7654321;
        logger.WriteHeader(LogType::Info);
        logger << 7654321 << std::endl;
        EXPECT_THAT(LastLines(), ElementsAre("7654321", "7654321"));
        return 0;
    });
    std::locale::global(before);
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(BlackBoxTest, LongLineIsKeptWholeAndTakesTheRoomOfOthers)
{
    const OpenBlackBox box(5);
    WriteNumbers(1, 5);
    const std::string longText(65000, 'x');
    LogLine(LogType::Info) << longText;
    WriteNumbers(6, 7);

    EXPECT_THAT(LastLines(), ElementsAre("4", "5", longText, "6", "7"));
    LogLine(LogType::Info) << longText;
    EXPECT_THAT(LastLines(), ElementsAre("6", "7", longText));
}

TEST(BlackBoxTest, LineThatIsLongerThanTheMemoryLosesItsEnd)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(5);
    WriteNumbers(1, 5);
    LogLine(LogType::Info) << std::string(100000, 'x') << "end";

    ASSERT_THAT(logger.GetLastLines(), SizeIs(1));
    EXPECT_EQ(logger.GetLastLines()[0].size(), 65535);
    EXPECT_TRUE(logger.GetLastLines()[0].ends_with("xxx"));
    ASSERT_TRUE(logger.SaveLastLines(directory.Path("saved")));
    EXPECT_EQ(ReadFile(directory.Path("saved")), logger.GetLastLines()[0] + '\n');
    WriteNumbers(6, 6);
    EXPECT_THAT(LastLines(), ElementsAre("6"));
}

TEST(BlackBoxTest, LinesOfAnyLengthStayWithinTheMemory)
{
    const OpenBlackBox box(1000);
    std::vector<std::string> written;
    for (std::size_t number = 0; number < 5000; ++number) {
        written.push_back(std::to_string(number) + std::string(number * 37 % 1500, 'x'));
        LogLine(LogType::Info) << written.back();
    }

    const std::vector<std::string> kept = LastLines();
    std::size_t bytes = 0;
    for (const std::string& line : logger.GetLastLines()) {
        bytes += line.size() + 1;
    }
    EXPECT_LE(bytes, 256000);
    EXPECT_GT(bytes, 256000 - 1600);
    ASSERT_LT(kept.size(), written.size());
    EXPECT_EQ(kept, std::vector<std::string>(
                        written.end() - static_cast<std::ptrdiff_t>(kept.size()), written.end()));
}

TEST(BlackBoxTest, AsManyLinesAsAskedAreKeptWhereTheyHave256BytesEach)
{
    const OpenBlackBox box(2000);
    for (int number = 0; number < 4000; ++number) {
        LogLine(LogType::Info) << std::string(200, 'x');
    }
    EXPECT_THAT(logger.GetLastLines(), SizeIs(2000));
}

TEST(BlackBoxTest, EnablingAgainKeepsTheNewestLines)
{
    const OpenBlackBox box(3);
    WriteNumbers(1, 4);
    ASSERT_TRUE(logger.EnableBlackBox(4));
    EXPECT_THAT(LastLines(), ElementsAre("2", "3", "4"));
    WriteNumbers(5, 6);
    EXPECT_THAT(LastLines(), ElementsAre("3", "4", "5", "6"));
    ASSERT_TRUE(logger.EnableBlackBox(2));
    EXPECT_THAT(LastLines(), ElementsAre("5", "6"));
    WriteNumbers(7, 7);
    EXPECT_THAT(LastLines(), ElementsAre("6", "7"));
}

TEST(BlackBoxTest, NoLinesOrMoreThanThereIsMemoryForChangesNothing)
{
    for (const std::size_t lines : {SIZE_MAX, SIZE_MAX / 256, std::size_t{0}}) {
        EXPECT_FALSE(logger.EnableBlackBox(lines));
        EXPECT_FALSE(logger.IsBlackBoxEnabled());
    }
    const OpenBlackBox box(2);
    WriteNumbers(1, 2);
    for (const std::size_t lines : {SIZE_MAX, SIZE_MAX / 256, std::size_t{0}}) {
        EXPECT_FALSE(logger.EnableBlackBox(lines));
        EXPECT_TRUE(logger.IsBlackBoxEnabled());
    }
    WriteNumbers(3, 3);
    EXPECT_THAT(LastLines(), ElementsAre("2", "3"));
}

TEST(BlackBoxTest, ClosingReleasesTheLines)
{
    {
        const OpenBlackBox box(2);
        WriteNumbers(1, 1);
    }
    EXPECT_FALSE(logger.IsBlackBoxEnabled());
    EXPECT_THAT(LastLines(), IsEmpty());
    WriteNumbers(2, 2);
    logger.CloseBlackBox();

    const OpenBlackBox box(2);
    EXPECT_THAT(LastLines(), IsEmpty());
    WriteNumbers(3, 3);
    EXPECT_THAT(LastLines(), ElementsAre("3"));
}

TEST(BlackBoxTest, EachOutputContinuesWhenAnotherIsClosed)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(5);
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    WriteNumbers(1, 1);
    logger.CloseFile();
    WriteNumbers(2, 2);
    EXPECT_THAT(LastLines(), ElementsAre("1", "2"));
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    logger.CloseBlackBox();
    WriteNumbers(3, 3);
    logger.CloseFile();
    WriteNumbers(4, 4);

    EXPECT_THAT(SplitLines(ReadFile(directory.Path("log"))),
                ElementsAre(EndsWith("]1"), EndsWith("]3")));
}

TEST(BlackBoxTest, IgnitionOffIsItsLastLineSoFarAndItContinues)
{
    const ScratchDirectory directory;
    const OpenBlackBox box(2);
    ASSERT_TRUE(logger.EnableFile(directory.Path("log")));
    logger.RunIgnitionOff();

    EXPECT_FALSE(logger.IsFileEnabled());
    EXPECT_TRUE(logger.IsBlackBoxEnabled());
    EXPECT_THAT(SplitLines(ReadFile(directory.Path("log"))), SizeIs(1));
    WriteNumbers(1, 1);
    EXPECT_THAT(LastLines(), ElementsAre("All triggers have been stopped", "1"));
}

}  // namespace
