#include "examples/dashcam/Library.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Tolvex/Log/Logger.h"

namespace Dashcam {
namespace {

constexpr std::uint64_t logBytes = 1000000;
constexpr unsigned logFilesKept = 2;

std::string logPath;

}  // namespace

Tolvex::Json::Value ParseJson(const std::string& text, std::string& problem)
{
    try {
        Tolvex::Json::Value value = Tolvex::Json::Deserialize(text);
        problem = value.GetType() == Tolvex::Json::NullVal ? " is malformed" : "";
        return value;
    } catch (const std::exception&) {
        problem = " is not complete";
        return {};
    }
}

std::string ToStandardJson(const Tolvex::Json::Value& value)
{
    return Tolvex::Json::Serialize(value);
}

void StartLog(const std::string& folder)
{
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    logPath = folder + "/dashcam.log";
    Tolvex::Ilog::Logger* const logger = Tolvex::Ilog::Logger::GetInstance();
    logger->SetFileSizeLimit(logBytes, logFilesKept);
    logger->SetFileDurability(Tolvex::Ilog::LogDurability::IgnitionOff);
    logger->EnableFile(logPath);
}

std::string LastLogLines()
{
    std::ifstream file(logPath, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    std::string all = text.str();
    for (char& character : all) {
        character = character == '"' || character == '\\' || character == '\n' ? ' ' : character;
    }
    return all.size() > 2000 ? all.substr(all.size() - 2000) : all;
}

}  // namespace Dashcam
