// Forks while another thread makes the logger. Not for the thread sanitizer
// (tests/Support/ForkRegistrations.h).
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/ForkRegistrations.h"
#include "tests/Support/LogFile.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::ChildResult;
using Tolvex::Support::ExpectInChildren;
using Tolvex::Support::HaltRow;
using Tolvex::Support::LogFile;
using Tolvex::Support::RunWhileHalted;

void ExpectOneLine(const std::string& text)
{
    LogFile log;
    LogLine(LogType::Info, LogModule::CELL) << text;
    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre("[#CELL]" + text));
}

/// By where the thread is halted that makes the logger.
class FirstLogForkTest : public ::testing::TestWithParam<HaltRow>
{
};

TEST_P(FirstLogForkTest, ChildrenLogWhateverTheFirstLogWasHaltedIn)
{
    const ChildResult result = RunWhileHalted(GetParam().halt, Logger::GetInstance, [] {
        ExpectInChildren([] { ExpectOneLine("text"); });
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// The tables are prepared for first, the loggers then.
INSTANTIATE_TEST_SUITE_P(Halted, FirstLogForkTest,
                         ::testing::Values(HaltRow{"BeforeTheTablesArePreparedFor", {1, false}},
                                           HaltRow{"AfterTheTablesArePreparedFor", {1, true}},
                                           HaltRow{"BeforeTheLoggersArePreparedFor", {2, false}},
                                           HaltRow{"AfterTheLoggersArePreparedFor", {2, true}}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(FirstTimeZoneForkTest, ChildrenLogWhateverTheFirstReadingOfTheTimeZoneWasHaltedIn)
{
    for (const bool afterwards : {false, true}) {
        const ChildResult result =
            RunWhileHalted({1, afterwards}, Tolvex::Util::RefreshTimeZone,
                           [] { ExpectInChildren([] { ExpectOneLine("text"); }); });

        EXPECT_TRUE(result.Succeeded()) << result.output;
    }
}

}  // namespace
