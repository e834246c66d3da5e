// Writes two log lines through its own policy, which prints them without their headers.
#include <iostream>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

/// Prints a line from its first "[#" on, because date, temperature and tag change from run to run.
class WithoutHeader : public Tolvex::Ilog::ILogPolicy
{
public:
    void Write(const std::string& line) override { std::cout << line.substr(line.find("[#")); }
};

int main()
{
    // Without an enabled logger a line is dropped at almost no cost.
    LogLine(LogType::Error, LogModule::WNET) << "dropped";

    Tolvex::Ilog::LoggerBase<WithoutHeader> logger;
    logger.SetTheadName("LOG_EXAMPLE");
    if (!logger.Enable()) {
        return 1;
    }
    logger.WriteHeader(LogType::Warning);
    logger << LogModule::CELL << "signal " << -113 << " dBm" << std::endl;
    logger.WriteHeader(LogType::Info);
    logger << LogModule::Accelerometer << "peak of " << 2.5 << " g" << std::endl;
    logger.Close();

    return Logger::GetInstance()->IsFileEnabled() ? 1 : 0;
}
