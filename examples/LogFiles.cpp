// Logs to files of limited size whose lines survive a power cut, and prints which files exist.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

using Tolvex::LogModule;
using Tolvex::Ilog::LogDurability;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

int main()
{
    const auto directory = std::filesystem::temp_directory_path() / "tolvex-example-log-files";
    std::filesystem::remove_all(directory);
    std::filesystem::create_directory(directory);
    const std::string path = directory / "camera.log";

    Logger& logger = *Logger::GetInstance();
    logger.SetFileDurability(LogDurability::Interval, std::chrono::milliseconds(500));
    logger.SetFileSizeLimit(5000, 2);  // camera.log, camera.log.1, camera.log.2
    if (!logger.EnableFile(path)) {
        return 1;
    }
    for (int frame = 0; frame < 500; ++frame) {
        LogLine(LogType::Info, LogModule::Event) << "frame " << frame;
    }
    logger.RunIgnitionOff();  // If it returns within 2.1 s, the last lines are on the medium.

    for (const char* const name : {"camera.log", "camera.log.1", "camera.log.2", "camera.log.3"}) {
        std::cout << name << (std::filesystem::exists(directory / name) ? "" : " is not there")
                  << '\n';
    }
    std::filesystem::remove_all(directory);
}
