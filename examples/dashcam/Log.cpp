#include "examples/dashcam/Log.h"

#include <cstdint>
#include <filesystem>

#include "Tolvex/Log/Logger.h"

namespace Dashcam {
namespace {

using Tolvex::Ilog::Logger;

constexpr std::uint64_t logBytes = 1000000;
constexpr unsigned logFilesKept = 2;
constexpr std::size_t blackBoxLines = 30;

}  // namespace

void StartLog(const std::string& folder)
{
    std::error_code ignored;  // without a folder there is no log, but a drive
    std::filesystem::create_directories(folder, ignored);
    Logger* const logger = Logger::GetInstance();
    logger->SetFileSizeLimit(logBytes, logFilesKept);
    logger->SetFileDurability(Tolvex::Ilog::LogDurability::IgnitionOff);
    logger->EnableBlackBox(blackBoxLines);
    logger->EnableFile(folder + "/dashcam.log");
}

std::string LastLogLines()
{
    std::string text;
    for (const std::string& line : Logger::GetInstance()->GetLastLines()) {
        text += line + '\n';
    }
    return text;
}

}  // namespace Dashcam
