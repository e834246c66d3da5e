#include "examples/dashcam/Settings.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>
#include <type_traits>

#include "examples/dashcam/Types.h"

namespace Dashcam {
namespace {

namespace Json = Tolvex::Json;

/// Reads a file. @return the document; no object if there is none, and the log says why.
Json::Value ReadFile(const std::string& path)
{
    std::ostringstream text;
    errno = 0;
    text << std::ifstream(path).rdbuf();
    std::string problem = ": " + std::generic_category().message(errno);
    if (text || errno == 0) {  // an empty file fails too, but not by the system
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
        problem = error.reason.empty() ? ": no object"
                                       : ':' + std::to_string(error.line) + ':' +
                                             std::to_string(error.column) + ": " + error.reason;
    }
    LogLine(LogType::Error, LogModule::CONFIG) << path << problem << ": all defaults are used";
    return {};
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
    setting = value.operator T();
    return nullptr;
}

}  // namespace

Settings ReadSettings(const std::string& path)
{
    Settings settings;
    const Json::Value document = path.empty() ? Json::Value() : ReadFile(path);
    if (document.GetType() != Json::ObjectVal) {
        return settings;
    }
    Json::Object unknown = document.AsObject();
    // The least and the most that a setting may be; for a text, the limits of its length.
    const auto read = [&](const char* name, auto& setting, double least, double most) {
        const char* const problem =
            document.HasKey(name) ? Take(document[name], setting, least, most) : "is missing";
        if (problem != nullptr) {
            LogLine(LogType::Warning, LogModule::CONFIG)
                << "setting " << name << ' ' << problem << ": its default is used";
        }
        unknown.RemoveKey(name);
    };
    read("width", settings.width, 64, 3840);
    read("height", settings.height, 64, 2160);
    read("framesPerSecond", settings.framesPerSecond, 1, 120);
    read("keyInterval", settings.keyInterval, 1, 300);
    read("kilobitsPerSecond", settings.kilobitsPerSecond, 50, 50000);
    read("secondsBefore", settings.secondsBefore, 1, 60);
    read("secondsAfter", settings.secondsAfter, 1, 60);
    read("longestClip", settings.longestClip, 2, 300);
    read("threshold", settings.threshold, 0.05, 16);
    read("sensorRange", settings.sensorRange, 1, 128);
    read("samplesPerSecond", settings.samplesPerSecond, 1, 1000);
    read("latitude", settings.latitude, -90, 90);
    read("longitude", settings.longitude, -180, 180);
    read("folderMegabytes", settings.folderMegabytes, 1, 1000000);
    read("diskFloorMegabytes", settings.diskFloorMegabytes, 0, 1000000);
    read("key", settings.key, 1, 128);
    for (const auto& [name, value] : unknown) {
        LogLine(LogType::Warning, LogModule::CONFIG) << "unknown setting: " << name;
    }

    // An even size, as the encoder needs it; and a clip has room for what is before and after.
    settings.width -= settings.width % 2;
    settings.height -= settings.height % 2;
    settings.longestClip =
        std::max(settings.longestClip, settings.secondsBefore + settings.secondsAfter + 1);
    return settings;
}

}  // namespace Dashcam
