#include "examples/dashcam/Settings.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <sstream>
#include <utility>
#include <variant>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Log/LogLine.h"

namespace Dashcam {
namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
namespace Json = Tolvex::Json;

/// A setting and its limits: the value of a number, the length of a text.
struct Row
{
    const char* name;
    std::variant<int Settings::*, double Settings::*, std::string Settings::*> member;
    double least;
    double most;
};

const Row rows[] = {
    {"width", &Settings::width, 64, 3840},
    {"height", &Settings::height, 64, 2160},
    {"framesPerSecond", &Settings::framesPerSecond, 1, 120},
    {"keyInterval", &Settings::keyInterval, 1, 300},
    {"kilobitsPerSecond", &Settings::kilobitsPerSecond, 50, 50000},
    {"secondsBefore", &Settings::secondsBefore, 1, 60},
    {"secondsAfter", &Settings::secondsAfter, 1, 60},
    {"longestClip", &Settings::longestClip, 2, 300},
    {"threshold", &Settings::threshold, 0.05, 16},
    {"sensorRange", &Settings::sensorRange, 1, 128},
    {"samplesPerSecond", &Settings::samplesPerSecond, 1, 1000},
    {"latitude", &Settings::latitude, -90, 90},
    {"longitude", &Settings::longitude, -180, 180},
    {"folderMegabytes", &Settings::folderMegabytes, 1, 1000000},
    {"diskFloorMegabytes", &Settings::diskFloorMegabytes, 0, 1000000},
    {"key", &Settings::key, 1, 128},
};

/// Takes a setting over. @return what is wrong with it; null when it is good.
const char* Take(const Json::Value& value, const Row& row, Settings& settings)
{
    const auto fits = [&row](double size) { return size >= row.least && size <= row.most; };
    if (const auto* text = std::get_if<std::string Settings::*>(&row.member)) {
        if (value.GetType() != Json::StringVal) {
            return "is no text";
        }
        if (!fits(static_cast<double>(value.ToString().size()))) {
            return "needs 1 to 128 bytes";
        }
        settings.*(*text) = value.ToString();
        return nullptr;
    }
    const auto* whole = std::get_if<int Settings::*>(&row.member);
    if (whole != nullptr ? value.GetType() != Json::IntVal : !value.IsNumeric()) {
        return whole != nullptr ? "is no whole number" : "is no number";
    }
    if (!fits(value.ToDouble())) {
        return "is out of its range";
    }
    if (whole != nullptr) {
        settings.*(*whole) = value.ToInt();
    } else {
        settings.*std::get<double Settings::*>(row.member) = value.ToDouble();
    }
    return nullptr;
}

/// Reads a file. @return the document; no object if there is a problem, which is logged.
Json::Value ReadFile(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    Json::ParseError error;
    Json::Value document;
    try {
        document = Json::Deserialize(text.str(), error);
    } catch (const std::exception&) {
        // The error says why.
    }
    const bool isWhole = error.reason.empty() && document.GetType() == Json::ObjectVal;
    if (!isWhole) {
        LogLine(LogType::Error, LogModule::CONFIG)
            << path << ':' << error.line << ':' << error.column << ": "
            << (error.reason.empty() ? "no settings" : error.reason) << ": all defaults are used";
        return {};
    }
    return document;
}

}  // namespace

Settings ReadSettings(const std::string& path)
{
    if (path.empty()) {
        LogLine(LogType::Info, LogModule::CONFIG) << "no settings file: all defaults are used";
        return {};
    }
    const Json::Value document = ReadFile(path);
    if (document.GetType() != Json::ObjectVal) {
        return {};
    }
    Settings settings;
    Json::Object unknown = document.AsObject();
    for (const Row& row : rows) {
        const bool isThere = document.HasKey(row.name);
        const char* problem = isThere ? Take(document[row.name], row, settings) : "is missing";
        if (problem != nullptr) {
            LogLine(LogType::Warning, LogModule::CONFIG)
                << "setting " << row.name << ' ' << problem << ": its default is used";
        }
        unknown.RemoveKey(row.name);
    }
    for (const auto& [name, value] : unknown) {
        LogLine(LogType::Warning, LogModule::CONFIG) << "unknown setting: " << name;
    }

    // An even size, as the encoder needs it; and a clip has room for what is before and after.
    settings.width &= ~1;
    settings.height &= ~1;
    settings.longestClip =
        std::max(settings.longestClip, settings.secondsBefore + settings.secondsAfter + 1);
    return settings;
}

}  // namespace Dashcam
