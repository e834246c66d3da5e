// Numbers in log lines where the locale of the process groups digits.
#include <ios>
#include <locale>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Log/LoggerBase.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/ThreadsInForks.h"

namespace {

using ::testing::ElementsAre;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LoggerBase;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::CapturingLogger;
using Tolvex::Support::CapturingPolicy;
using Tolvex::Support::ChildResult;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Support::ScratchDirectory;
using Tolvex::Support::SplitLines;
using Tolvex::Support::WithoutDate;

/// Digits in groups of three, and a decimal comma.
class Grouping : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

std::locale GroupingLocale()
{
    return {std::locale::classic(), new Grouping};
}

std::ostream& Precisely(std::ostream& stream)
{
    stream.precision(8);
    return stream;
}

std::ostream& InAnotherLocale(std::ostream& stream)
{
    stream.imbue(GroupingLocale());
    return stream;
}

/// The lines of both forms, where the global locale is another one when the logger is made than
/// when it writes.
std::vector<std::string> LinesOfBothForms(const std::locale& first, const std::locale& later)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&] {
        std::locale::global(first);
        Logger& logger = *Logger::GetInstance();
        std::locale::global(later);
        EXPECT_TRUE(logger.EnableFile(path));
        logger.WriteHeader(LogType::Info);
        logger << 7654321 << " " << Precisely << 1234567.5 << std::endl;
        LogLine(LogType::Info) << 7654321 << " " << Precisely << 1234567.5;
        LogLine(LogType::Info) << std::fixed << 1234567.5F;
        logger.CloseFile();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    std::vector<std::string> lines = SplitLines(ReadFile(path));
    for (std::string& line : lines) {
        line = WithoutDate(line);
    }
    return lines;
}

TEST(LogLocaleTest, BothFormsUseTheLocaleOfTheTimeWhenTheLoggerWasMade)
{
    EXPECT_THAT(LinesOfBothForms(GroupingLocale(), std::locale::classic()),
                ElementsAre("7.654.321 1.234.567,5", "7.654.321 1.234.567,5", "1.234.567,500000"));
}

TEST(LogLocaleTest, GlobalLocaleThatChangesLaterChangesNoLine)
{
    EXPECT_THAT(LinesOfBothForms(std::locale::classic(), GroupingLocale()),
                ElementsAre("7654321 1234567.5", "7654321 1234567.5", "1234567.500000"));
}

TEST(LogLocaleTest, DateOfALineIsNotGrouped)
{
    const ScratchDirectory directory;
    const std::string path = directory.Path("log");
    const ChildResult child = RunInChild([&path] {
        std::locale::global(GroupingLocale());
        Logger& logger = *Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(path));
        LogLine(LogType::Info) << "line";
        logger.CloseFile();
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(WithoutDate(ReadFile(path)), "line\n");
}

TEST(LogLocaleTest, LocaleThatALineSetsEndsWithIt)
{
    const auto lines = Tolvex::Support::LinesOf(2, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << InAnotherLocale << 1234567 << std::endl;
        logger.WriteHeader(LogType::Info);
        logger << 1234567 << std::endl;
    });
    EXPECT_THAT(lines, ElementsAre("1.234.567\n", "1234567\n"));
}

TEST(LogLocaleTest, LocaleThatADroppedLineSetsEndsWithIt)
{
    const auto lines = Tolvex::Support::LinesOf(1, [](CapturingLogger& logger) {
        logger.WriteHeader(LogType::Info);
        logger << InAnotherLocale << 1234567;
        logger.DropLine();
        logger.WriteHeader(LogType::Info);
        logger << 1234567 << std::endl;
    });
    EXPECT_THAT(lines, ElementsAre("1234567\n"));
}

/// Forks while the first line begins. The child logs a number.
class ForkingPolicy : public CapturingPolicy
{
public:
    void WriteHeader(LogType) override
    {
        if (std::exchange(forked, true)) {
            return;
        }
        const ChildResult child = RunInChild([this] {
            EXPECT_TRUE(logger->Enable());
            logger->WriteHeader(LogType::Info);
            *logger << 1234567 << std::endl;
            logger->Close();
            const std::vector<std::string> written = Lines();
            EXPECT_EQ(written.empty() ? "" : WithoutDate(written[0]), "1.234.567\n");
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }

    LoggerBase<ForkingPolicy>* logger = nullptr;
    bool forked = false;
};

TEST(LogLocaleTest, ForkedChildKeepsTheLocaleOfTheLogger)
{
    const std::locale before = std::locale::global(GroupingLocale());
    LoggerBase<ForkingPolicy> logger;
    std::locale::global(before);
    logger.GetPolicy().logger = &logger;
    ASSERT_TRUE(logger.Enable());

    logger.WriteHeader(LogType::Info);
    logger.DropLine();

    EXPECT_TRUE(logger.GetPolicy().forked);
}

}  // namespace
