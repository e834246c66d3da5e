#include "examples/dashcam/SideFile.h"

#include <algorithm>
#include <cmath>

#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/SunCalculator.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/Uid.h"
#include "Tolvex/Util/UtilTime.h"

namespace Dashcam {
namespace {

namespace Json = Tolvex::Json;

/// To the thousandth, which is what the sensors give.
double Rounded(double value)
{
    return std::round(value * 1000.0) / 1000.0;
}

/// The largest force beside gravity within a second of a shock, which has only begun at the event.
double PeakForce(const Event& event, const std::vector<Sample>& samples)
{
    double peak = event.force;
    for (const Sample& sample : samples) {
        const double distance = SecondsBetween(event.time, sample.time);
        peak = distance >= 0.0 && distance <= 1.0 ? std::max(peak, ForceOf(sample)) : peak;
    }
    return peak;
}

Json::Array DescribeEvents(const Clip& clip, const std::vector<Sample>& samples)
{
    Json::Array events;
    for (const Event& event : clip.events) {
        Json::Object entry;
        entry["cause"] = event.cause;
        entry["second"] = Rounded(SecondsBetween(clip.frames.front()->Time(), event.time));
        entry["force"] = Rounded(event.force > 0.0 ? PeakForce(event, samples) : 0.0);
        events.push_back(std::move(entry));
    }
    return events;
}

Json::Object DescribeFrames(const Clip& clip)
{
    Json::Array gaps;
    for (std::size_t i = 1; i < clip.frames.size(); ++i) {
        const std::int64_t before = clip.frames[i - 1]->GetFrameId();
        const std::int64_t missing = clip.frames[i]->GetFrameId() - before - 1;
        if (missing != 0) {
            Json::Object gap;
            gap["after"] = static_cast<int>(before);
            gap["missing"] = static_cast<int>(missing);
            gaps.push_back(std::move(gap));
        }
    }
    Json::Object frames;
    frames["first"] = static_cast<int>(clip.frames.front()->GetFrameId());
    frames["last"] = static_cast<int>(clip.frames.back()->GetFrameId());
    frames["count"] = static_cast<int>(clip.frames.size());
    frames["gaps"] = std::move(gaps);
    return frames;
}

/// The largest acceleration of each axis in either direction; null without samples.
Json::Object DescribePeaks(const std::vector<Sample>& samples)
{
    Json::Object peaks;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto isLess = [axis](const Sample& one, const Sample& other) {
            return std::abs(one.axes[axis]) < std::abs(other.axes[axis]);
        };
        const auto peak = std::max_element(samples.begin(), samples.end(), isLess);
        peaks[std::string(1, "xyz"[axis])] =
            peak == samples.end() ? Json::Value() : Json::Value(Rounded(peak->axes[axis]));
    }
    return peaks;
}

/// Rows of the seconds since the event, and the three axes in g.
Json::Array DescribeSamples(const Event& event, const std::vector<Sample>& samples)
{
    Json::Array rows;
    for (const Sample& sample : samples) {
        Json::Array row;
        row.push_back(Rounded(SecondsBetween(event.time, sample.time)));
        for (const double axis : sample.axes) {
            row.push_back(Rounded(axis));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

/// @return "day" or "night" at the place of the settings.
std::string LightAt(std::time_t time, const Settings& settings)
{
    const Tolvex::Util::SunCalculator sun;
    const auto [rise, set] = sun.GetTimes(time, settings.latitude, settings.longitude);
    bool day = time >= rise && time < set;
    if (rise == 0 && set == 0) {
        // The sun neither rises nor sets: it is up where the pole leans towards it.
        const double anomaly = sun.SolarMeanAnomaly(sun.ToDays(time));
        day = sun.Declination(sun.EclipticLongitude(anomaly), 0.0) * settings.latitude > 0.0;
    }
    return day ? "day" : "night";
}

}  // namespace

bool IsPlausible(std::time_t time)
{
    constexpr std::time_t startOf2025 = 1735689600;
    return time >= startOf2025;
}

Json::Object DescribeClip(const std::string& name, const Clip& clip,
                          const std::vector<Sample>& samples, const Settings& settings)
{
    const Event& event = clip.events.front();
    const Moment begin = clip.frames.front()->Time();
    auto* const monitor = Tolvex::Util::TemperatureMonitor::GetInstance();
    std::string lines;
    for (const std::string& line : Tolvex::Ilog::Logger::GetInstance()->GetLastLines()) {
        lines += line + '\n';
    }

    Json::Object side;
    side["identifier"] = Tolvex::Util::NewUid();
    side["clip"] = name + ".mp4";
    side["events"] = DescribeEvents(clip, samples);
    side["localTime"] = Tolvex::Util::DateISO(event.wallTime);
    side["unixTime"] = static_cast<double>(event.wallTime);
    side["bootSeconds"] = Rounded(event.bootSeconds);
    side["clockPlausible"] = IsPlausible(event.wallTime);
    side["light"] = LightAt(event.wallTime, settings);
    side["temperature"] =
        monitor->GetTemperatureAvailable() ? Json::Value(monitor->GetTemperature()) : Json::Value();
    side["seconds"] = Rounded(SecondsBetween(begin, clip.frames.back()->Time()));
    side["frames"] = DescribeFrames(clip);
    side["peak"] = DescribePeaks(samples);
    side["acceleration"] = DescribeSamples(event, samples);
    side["log"] = lines;
    return side;
}

}  // namespace Dashcam
