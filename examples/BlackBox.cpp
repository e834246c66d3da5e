// Keeps the last three lines of the log in memory, and saves them when something goes wrong.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

int main()
{
    const auto saved = std::filesystem::temp_directory_path() / "tolvex-example-black-box";
    Logger& logger = *Logger::GetInstance();
    if (!logger.EnableBlackBox(3)) {
        return 1;
    }
    for (int signal = -101; signal > -106; --signal) {
        LogLine(LogType::Info, LogModule::CELL) << "signal " << signal << " dBm";
    }
    LogLine(LogType::Error, LogModule::CELL) << "connection lost";

    if (!logger.SaveLastLines(saved)) {
        std::perror(saved.c_str());
        return 1;
    }
    // Without date and temperature, which change from run to run.
    std::ifstream file(saved);
    for (std::string line; std::getline(file, line);) {
        std::cout << line.substr(line.find("[#")) << '\n';
    }
    std::filesystem::remove(saved);
}
