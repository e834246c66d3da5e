// The temperature of a real driver's thermal zone, in the monitor and in the header of a log line.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/TemperatureMonitor.h"

#include "tests/Support/Board.h"
#include "tests/Support/Patience.h"

namespace {

using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Support::Eventually;
using Tolvex::Support::TellEmulator;
using Tolvex::Util::TemperatureMonitor;

/// @return what the kernel says, in thousandths of a degree; empty without a zone.
std::string ReadZone()
{
    std::string text;
    std::getline(std::ifstream("/sys/devices/virtual/thermal/thermal_zone0/temp"), text);
    return text;
}

void SetSensor(const std::string& millidegrees)
{
    ASSERT_TRUE(TellEmulator("qom-set /machine/peripheral/sensor temperature " + millidegrees));
    ASSERT_TRUE(Eventually([&] { return ReadZone() == millidegrees; })) << ReadZone();
}

/// @param action  "bind" or "unbind".
void ChangeDriver(const std::string& action)
{
    std::ofstream file("/sys/bus/i2c/drivers/lm75/" + action);
    ASSERT_TRUE(file << "0-0048" << std::flush);
}

/// @return what a line of the real file logger shows behind its date.
std::string LoggedLine()
{
    const std::string file = (std::filesystem::temp_directory_path() / "on-board.log").string();
    EXPECT_TRUE(Logger::GetInstance()->EnableFile(file));
    LogLine(LogType::Info) << "text";
    Logger::GetInstance()->CloseFile();

    std::string line;
    std::getline(std::ifstream(file), line);
    std::filesystem::remove(file);
    return line.substr(std::min(line.size(), sizeof "[2024-05-01 12:00:07]" - 1));
}

using TemperatureOnBoardTest = Tolvex::Support::OnBoardTest;

struct Reading
{
    const char* name;
    const char* millidegrees;
    int shown;
};

class SensorTest : public TemperatureOnBoardTest, public testing::WithParamInterface<Reading>
{
};

TEST_P(SensorTest, MonitorAndLogHeaderShowTheFirstTwoCharactersOfTheZone)
{
    SetSensor(GetParam().millidegrees);

    EXPECT_EQ(TemperatureMonitor::GetInstance()->ReadTemperature(), GetParam().shown);

    EXPECT_TRUE(TemperatureMonitor::GetInstance()->GetTemperatureAvailable());
    EXPECT_EQ(LoggedLine(), "[" + std::to_string(GetParam().shown) + "C]text");
}

INSTANTIATE_TEST_SUITE_P(
    Temperatures, SensorTest,
    testing::Values(Reading{"Whole", "25000", 25}, Reading{"Fraction", "47250", 47},
                    Reading{"Half", "61500", 61}, Reading{"Negative", "-7000", -7},
                    Reading{"BelowTen", "9500", 95}, Reading{"AboveHundred", "103000", 10}),
    [](const auto& row) { return row.param.name; });

TEST_F(TemperatureOnBoardTest, UnboundDriverHidesTheTemperatureUntilItIsBoundAgain)
{
    SetSensor("52000");
    TemperatureMonitor& monitor = *TemperatureMonitor::GetInstance();
    EXPECT_EQ(monitor.ReadTemperature(), 52);

    ChangeDriver("unbind");
    EXPECT_EQ(monitor.ReadTemperature(), 52);  // the value before
    EXPECT_FALSE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(LoggedLine(), "text");

    ChangeDriver("bind");
    SetSensor("53000");
    EXPECT_EQ(monitor.ReadTemperature(), 53);
    EXPECT_TRUE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(LoggedLine(), "[53C]text");
}

}  // namespace
