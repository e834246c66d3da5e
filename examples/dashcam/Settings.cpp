#include "examples/dashcam/Settings.h"

#include <algorithm>
#include <set>
#include <type_traits>
#include <utility>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Log/LogLine.h"

#include "examples/dashcam/JsonFile.h"

namespace Dashcam {
namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
namespace Json = Tolvex::Json;

/// Takes settings out of a document, one after the other, and logs what is wrong with each.
class Reader
{
public:
    explicit Reader(Json::Object document) : members(std::move(document)) {}

    template <typename Number>
    void Read(const std::string& name, Number& setting, Number least, Number most)
    {
        const auto member = Find(name);
        if (member == members.end()) {
            return;
        }
        const bool whole = member->second.GetType() == Json::IntVal;
        const bool fits = std::is_integral_v<Number> ? whole : member->second.IsNumeric();
        if (!fits) {
            Complain(name, std::is_integral_v<Number> ? "is no whole number" : "is no number");
        } else if (const auto value = static_cast<Number>(member->second.ToDouble());
                   !(value >= least && value <= most)) {
            Complain(name, "is out of its range");
        } else {
            setting = value;
        }
    }

    void Read(const std::string& name, std::string& setting)
    {
        const auto member = Find(name);
        if (member == members.end()) {
            return;
        }
        if (member->second.GetType() != Json::StringVal) {
            Complain(name, "is no text");
        } else if (const auto& text = member->second.ToString();
                   text.empty() || text.size() > 128) {
            Complain(name, "needs 1 to 128 bytes");
        } else {
            setting = text;
        }
    }

    void NameTheUnknown() const
    {
        for (const auto& [name, value] : members) {
            if (!known.contains(name)) {
                LogLine(LogType::Warning, LogModule::CONFIG) << "unknown setting: " << name;
            }
        }
    }

private:
    Json::Object::const_iterator Find(const std::string& name)
    {
        known.insert(name);
        const auto member = std::as_const(members).find(name);
        if (member == std::as_const(members).end()) {
            Complain(name, "is missing");
        }
        return member;
    }

    static void Complain(const std::string& name, const char* problem)
    {
        LogLine(LogType::Warning, LogModule::CONFIG)
            << "setting " << name << ' ' << problem << ": its default is used";
    }

    Json::Object members;
    std::set<std::string> known;
};

Settings ReadMembers(Json::Object document)
{
    Settings settings;
    Reader reader(std::move(document));
    reader.Read("width", settings.width, 64, 3840);
    reader.Read("height", settings.height, 64, 2160);
    reader.Read("framesPerSecond", settings.framesPerSecond, 1, 120);
    reader.Read("keyInterval", settings.keyInterval, 1, 300);
    reader.Read("kilobitsPerSecond", settings.kilobitsPerSecond, 50, 50000);
    reader.Read("secondsBefore", settings.secondsBefore, 1, 60);
    reader.Read("secondsAfter", settings.secondsAfter, 1, 60);
    reader.Read("longestClip", settings.longestClip, 2, 300);
    reader.Read("threshold", settings.threshold, 0.05, 16.0);
    reader.Read("sensorRange", settings.sensorRange, 1, 128);
    reader.Read("samplesPerSecond", settings.samplesPerSecond, 1, 1000);
    reader.Read("latitude", settings.latitude, -90.0, 90.0);
    reader.Read("longitude", settings.longitude, -180.0, 180.0);
    reader.Read("folderMegabytes", settings.folderMegabytes, 1, 1000000);
    reader.Read("diskFloorMegabytes", settings.diskFloorMegabytes, 0, 1000000);
    reader.Read("key", settings.key);
    reader.NameTheUnknown();

    // An even size, as the encoder needs it; and a clip has room for what is before and after.
    settings.width &= ~1;
    settings.height &= ~1;
    settings.longestClip =
        std::max(settings.longestClip, settings.secondsBefore + settings.secondsAfter + 1);
    return settings;
}

}  // namespace

Settings ReadSettings(const std::string& path)
{
    if (path.empty()) {
        LogLine(LogType::Info, LogModule::CONFIG) << "no settings file: all defaults are used";
        return {};
    }
    std::string problem;
    Json::Object document = ReadJsonFile(path, problem);
    if (!problem.empty()) {
        LogLine(LogType::Error, LogModule::CONFIG) << problem << ": all defaults are used";
        return {};
    }
    return ReadMembers(std::move(document));
}

}  // namespace Dashcam
