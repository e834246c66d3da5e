// The side file of a clip, for times, places and frames that the test chooses; and the clip itself.
#include <cmath>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/BlackBox.h"
#include "tests/Support/ThermalZone.h"
#include "tests/Support/TimeZone.h"

#include "examples/dashcam/ClipFiles.h"

namespace Dashcam {
namespace {

using namespace std::chrono_literals;

namespace Json = Tolvex::Json;
using Tolvex::Support::ThermalZone;

constexpr std::time_t juneNoon = 1782043200;      // 2026-06-21 12:00:00 UTC
constexpr std::time_t decemberNoon = 1797854400;  // 2026-12-21 12:00:00 UTC
constexpr std::time_t sunrise = 1773984540;       // 2026-03-20 05:29 UTC, in Bern
constexpr std::time_t sunset = 1774028280;        // 2026-03-20 17:38 UTC, in Bern
constexpr std::time_t halfDay = 43200;
constexpr std::time_t halfHour = 1800;

/// Frames of 10 a second, whose second frame is the moment of the event.
Clip MakeClip(const std::vector<std::int64_t>& ids, std::time_t wallTime = juneNoon)
{
    const Moment start = Clock::now();
    Clip clip;
    for (const std::int64_t id : ids) {
        AvPacketOwner packet(av_packet_alloc());
        packet->flags = id == ids.front() ? AV_PKT_FLAG_KEY : 0;
        clip.frames.push_back(std::make_shared<Frame>(id, std::move(packet),
                                                      start + (id - ids.front()) * 100ms, nullptr));
    }
    clip.events = {{"button", start + 100ms, wallTime, 1234.5678, 0.0}};
    clip.complete = true;
    return clip;
}

Json::Value Describe(const Clip& clip, const std::vector<Sample>& samples = {},
                     const Settings& settings = {})
{
    return Json::Deserialize(MakeSideFile("NAME", clip, samples, settings));
}

std::string Written(const Json::Value& value)
{
    return Json::SerializeStandard(value);
}

TEST(ClipFileTest, ClipHoldsTheBytesOfTheEncoder)
{
    const std::shared_ptr<AVCodecParameters> format(avcodec_parameters_alloc(),
                                                    AvRelease<avcodec_parameters_free>());
    format->codec_type = AVMEDIA_TYPE_VIDEO;
    format->codec_id = AV_CODEC_ID_MJPEG;
    format->width = format->height = 64;
    std::vector<std::shared_ptr<Frame>> frames;
    for (const std::string bytes : {"bytes of the first frame", "other bytes of the second"}) {
        AvPacketOwner packet(av_packet_alloc());
        ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
        bytes.copy(reinterpret_cast<char*>(packet->data), bytes.size());
        packet->flags = AV_PKT_FLAG_KEY;
        frames.push_back(std::make_shared<Frame>(frames.size(), std::move(packet),
                                                 Clock::now() + frames.size() * 100ms, format));
    }

    const std::string clip = MakeMp4(frames);

    EXPECT_NE(clip.find("bytes of the first frameother bytes of the second"), std::string::npos);
}

TEST(SideFileTest, FramesWithoutALossHaveNoGap)
{
    EXPECT_EQ(Written(Describe(MakeClip({7, 8, 9}))["frames"]),
              R"({"count":3,"first":7,"gaps":[],"last":9})");
}

TEST(SideFileTest, EveryGapTellsTheFrameBeforeItAndHowManyAreMissing)
{
    EXPECT_EQ(Written(Describe(MakeClip({7, 8, 11, 12, 20}))["frames"]),
              R"({"count":5,"first":7,"gaps":[{"after":8,"missing":2},{"after":12,"missing":7}],)"
              R"("last":20})");
}

TEST(SideFileTest, PeakIsTheLargestOfEachAxisInEitherDirection)
{
    const Clip clip = MakeClip({0, 1, 2});
    const Moment time = clip.events.front().time;

    const Json::Value side = Describe(
        clip, {{time, {0.5, -0.25, 1.0}}, {time, {-2.0, 0.125, 3.0}}, {time, {1.5, 0.0, -2.5}}});

    EXPECT_EQ(side["peak"]["x"].ToDouble(), -2.0);
    EXPECT_EQ(side["peak"]["y"].ToDouble(), -0.25);
    EXPECT_EQ(side["peak"]["z"].ToDouble(), 3.0);
}

TEST(SideFileTest, WithoutSamplesThePeaksAreNull)
{
    EXPECT_EQ(Written(Describe(MakeClip({0, 1}))["peak"]), R"({"x":null,"y":null,"z":null})");
}

TEST(SideFileTest, SamplesHaveTheirSecondsSinceTheEvent)
{
    const Clip clip = MakeClip({0, 1, 2});
    const Moment time = clip.events.front().time;

    const Json::Value side =
        Describe(clip, {{time - 250ms, {0.0, 0.0, 1.0}}, {time + 20ms, {-1.5, 0.25, 1.125}}});

    EXPECT_EQ(Written(side["acceleration"]), "[[-0.25,0.0,0.0,1.0],[0.02,-1.5,0.25,1.125]]");
}

TEST(SideFileTest, EventsHaveTheirCauseAndTheirSecondInTheClip)
{
    Clip clip = MakeClip({0, 1, 2});
    clip.events.push_back(clip.events.front());
    clip.events.back().cause = "acceleration";
    clip.events.back().time += 500ms;

    const Json::Value side = Describe(clip);

    EXPECT_EQ(side["events"].size(), 2U);
    EXPECT_EQ(side["events"][0]["cause"].ToString(), "button");
    EXPECT_DOUBLE_EQ(side["events"][0]["second"].ToDouble(), 0.1);
    EXPECT_EQ(side["events"][0]["force"].ToDouble(), 0.0);
    EXPECT_EQ(side["events"][1]["cause"].ToString(), "acceleration");
    EXPECT_DOUBLE_EQ(side["events"][1]["second"].ToDouble(), 0.6);
}

TEST(SideFileTest, TimesAreThoseOfTheFirstEvent)
{
    Clip clip = MakeClip({0, 1, 6});
    clip.events.push_back({"button", Clock::now(), juneNoon + 60, 1300.0, 0.0});

    const Json::Value side = Describe(clip);

    EXPECT_EQ(side["unixTime"].ToDouble(), static_cast<double>(juneNoon));
    EXPECT_DOUBLE_EQ(side["bootSeconds"].ToDouble(), 1234.568);
    EXPECT_DOUBLE_EQ(side["seconds"].ToDouble(), 0.6);
    EXPECT_EQ(side["clip"].ToString(), "NAME.mp4");
    Tolvex::Support::InTimeZone(Tolvex::Support::berlinZone, [&] {
        EXPECT_EQ(Describe(clip)["localTime"].ToString(), "2026-06-21 14:00:00");
    });
}

TEST(SideFileTest, ClockIsPlausibleFrom2025On)
{
    constexpr std::time_t startOf2025 = 1735689600;
    for (const auto& [time, plausible] : {std::pair<std::time_t, bool>{300, false},
                                          {startOf2025 - 1, false},
                                          {startOf2025, true}}) {
        const Json::Value side = Describe(MakeClip({0, 1}, time));
        EXPECT_EQ(side["clockPlausible"].ToBool(), plausible) << time;
        EXPECT_EQ(side["unixTime"].ToDouble(), static_cast<double>(time));
    }
}

TEST(SideFileTest, LightIsThatOfTheSunAtTheTimeAndThePlace)
{
    struct Case
    {
        const char* name;
        std::time_t time;
        double latitude;
        double longitude;
        const char* light;
    };
    const std::vector<Case> cases = {
        {"noon", juneNoon, 46.9, 7.4, "day"},
        {"midnight", juneNoon + halfDay, 46.9, 7.4, "night"},
        {"noon on the other side", juneNoon + halfDay, 0.0, 179.9, "day"},
        {"the same beyond the date line", juneNoon + halfDay, 0.0, -179.9, "day"},
        {"midnight on the other side", juneNoon, 0.0, 179.9, "night"},
        {"half an hour before sunrise", sunrise - halfHour, 46.9, 7.4, "night"},
        {"half an hour after sunrise", sunrise + halfHour, 46.9, 7.4, "day"},
        {"half an hour before sunset", sunset - halfHour, 46.9, 7.4, "day"},
        {"half an hour after sunset", sunset + halfHour, 46.9, 7.4, "night"},
        {"polar day of the north", juneNoon + halfDay, 75.0, 20.0, "day"},
        {"polar night of the north", decemberNoon, 75.0, 20.0, "night"},
        {"polar day of the south", decemberNoon + halfDay, -75.0, 20.0, "day"},
        {"polar night of the south", juneNoon, -75.0, 20.0, "night"},
    };
    for (const Case& row : cases) {
        Settings settings;
        settings.latitude = row.latitude;
        settings.longitude = row.longitude;
        EXPECT_EQ(Describe(MakeClip({0, 1}, row.time), {}, settings)["light"].ToString(), row.light)
            << row.name;
    }
}

TEST(SideFileTest, TemperatureIsThatOfTheSensorAndNullWithoutOne)
{
    if (!ThermalZone::Enter()) {
        GTEST_SKIP() << ThermalZone::whyNot;
    }
    auto* const monitor = Tolvex::Util::TemperatureMonitor::GetInstance();
    ThermalZone::Write("47250\n");
    monitor->Tick(nullptr);
    EXPECT_EQ(Written(Describe(MakeClip({0, 1}))["temperature"]), "47");

    ThermalZone::Remove();
    monitor->Tick(nullptr);

    EXPECT_EQ(Describe(MakeClip({0, 1}))["temperature"].GetType(), Json::NullVal);
}

TEST(SideFileTest, LastLinesOfTheLogAreThoseOfTheBlackBox)
{
    const Tolvex::Support::OpenBlackBox box(2);
    for (const char* const text : {"first", "second", "th\"ird"}) {
        LogLine(LogType::Info, LogModule::Event) << text;
    }

    const std::string log = Describe(MakeClip({0, 1}))["log"].ToString();

    const std::vector<std::string> lines = Tolvex::Support::SplitLines(log);
    ASSERT_EQ(lines.size(), 2U) << log;
    EXPECT_TRUE(lines[0].ends_with("second")) << log;
    EXPECT_TRUE(lines[1].ends_with("th\"ird")) << log;
}

TEST(SideFileTest, EveryIdentifierIsAnotherOne)
{
    const std::string one = Describe(MakeClip({0, 1}))["identifier"].ToString();

    EXPECT_EQ(one.size(), 36U);
    EXPECT_NE(Describe(MakeClip({0, 1}))["identifier"].ToString(), one);
}

}  // namespace
}  // namespace Dashcam
