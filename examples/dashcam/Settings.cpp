#include "examples/dashcam/Settings.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <sstream>
#include <type_traits>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Log/LogLine.h"

namespace Dashcam {
namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
namespace Json = Tolvex::Json;

/// Calls a function for each setting: with its name, the setting itself, and the least and the most
/// that it may be. For a text these are limits of its length.
template <typename Visitor>
void ForEach(Settings& settings, const Visitor& visit)
{
    visit("width", settings.width, 64, 3840);
    visit("height", settings.height, 64, 2160);
    visit("framesPerSecond", settings.framesPerSecond, 1, 120);
    visit("keyInterval", settings.keyInterval, 1, 300);
    visit("kilobitsPerSecond", settings.kilobitsPerSecond, 50, 50000);
    visit("secondsBefore", settings.secondsBefore, 1, 60);
    visit("secondsAfter", settings.secondsAfter, 1, 60);
    visit("longestClip", settings.longestClip, 2, 300);
    visit("threshold", settings.threshold, 0.05, 16);
    visit("sensorRange", settings.sensorRange, 1, 128);
    visit("samplesPerSecond", settings.samplesPerSecond, 1, 1000);
    visit("latitude", settings.latitude, -90, 90);
    visit("longitude", settings.longitude, -180, 180);
    visit("folderMegabytes", settings.folderMegabytes, 1, 1000000);
    visit("diskFloorMegabytes", settings.diskFloorMegabytes, 0, 1000000);
    visit("key", settings.key, 1, 128);
}

/// Takes a setting over. @return what is wrong with it; null when it is good.
template <typename T>
const char* Take(const Json::Value& value, T& setting, double least, double most)
{
    constexpr bool isText = std::is_same_v<T, std::string>;
    constexpr bool isWhole = std::is_same_v<T, int>;
    const Json::ValueType type = value.GetType();
    if (isText ? type != Json::StringVal : isWhole ? type != Json::IntVal : !value.IsNumeric()) {
        return isText ? "is no text" : isWhole ? "is no whole number" : "is no number";
    }
    const double size = isText ? static_cast<double>(value.ToString().size()) : value.ToDouble();
    if (!(size >= least && size <= most)) {  // also true for NaN
        return isText ? "needs 1 to 128 bytes" : "is out of its range";
    }
    const T taken = value;
    setting = taken;
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
    if (error.reason.empty() && document.GetType() == Json::ObjectVal) {
        return document;
    }
    LogLine(LogType::Error, LogModule::CONFIG)
        << path << ':' << error.line << ':' << error.column << ": "
        << (error.reason.empty() ? "no settings" : error.reason) << ": all defaults are used";
    return {};
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
    ForEach(settings, [&](const char* name, auto& setting, double least, double most) {
        const char* const problem =
            document.HasKey(name) ? Take(document[name], setting, least, most) : "is missing";
        if (problem != nullptr) {
            LogLine(LogType::Warning, LogModule::CONFIG)
                << "setting " << name << ' ' << problem << ": its default is used";
        }
        unknown.RemoveKey(name);
    });
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
