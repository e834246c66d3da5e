#include "examples/dashcam/ClipFiles.h"

#include <algorithm>

extern "C" {
#include <libavformat/avformat.h>
}

namespace Dashcam {
namespace {

namespace Json = Tolvex::Json;

void FreeMuxer(AVFormatContext** muxer)
{
    std::uint8_t* bytes = nullptr;
    avio_close_dyn_buf((*muxer)->pb, &bytes);
    av_free(bytes);
    avformat_free_context(*muxer);
}

/// To the thousandth, which is what the sensors give.
double Rounded(double value)
{
    return std::round(value * 1000.0) / 1000.0;
}

/// @return seconds from one moment to another.
double SecondsBetween(Moment from, Moment to)
{
    return Rounded(std::chrono::duration<double>(to - from).count());
}

Json::Array DescribeEvents(const Clip& clip)
{
    Json::Array events;
    for (const Event& event : clip.events) {
        Json::Object entry;
        entry["cause"] = event.cause;
        entry["second"] = SecondsBetween(clip.frames.front()->Time(), event.time);
        entry["force"] = Rounded(event.force);
        events.push_back(std::move(entry));
    }
    return events;
}

Json::Object DescribeFrames(const Clip& clip)
{
    Json::Array gaps;
    auto last = static_cast<int>(clip.frames.front()->GetFrameId()) - 1;
    for (const std::shared_ptr<Frame>& frame : clip.frames) {
        const auto id = static_cast<int>(frame->GetFrameId());
        if (id != last + 1) {
            Json::Object gap;
            gap["after"] = last;
            gap["missing"] = id - last - 1;
            gaps.push_back(std::move(gap));
        }
        last = id;
    }
    Json::Object frames;
    frames["first"] = static_cast<int>(clip.frames.front()->GetFrameId());
    frames["last"] = last;
    frames["count"] = static_cast<int>(clip.frames.size());
    frames["gaps"] = std::move(gaps);
    return frames;
}

/// The largest acceleration of each axis in either direction; null without samples.
Json::Object DescribePeaks(const std::vector<Sample>& samples)
{
    Json::Object peaks;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double peak = 0.0;
        for (const Sample& sample : samples) {
            peak = std::abs(sample.axes[axis]) > std::abs(peak) ? sample.axes[axis] : peak;
        }
        peaks[std::string(1, "xyz"[axis])] =
            samples.empty() ? Json::Value() : Json::Value(Rounded(peak));
    }
    return peaks;
}

/// Rows of the seconds since the event, and the three axes in g.
Json::Array DescribeSamples(const Event& event, const std::vector<Sample>& samples)
{
    Json::Array rows;
    for (const Sample& sample : samples) {
        Json::Array row;
        row.push_back(SecondsBetween(event.time, sample.time));
        for (const double axis : sample.axes) {
            row.push_back(Rounded(axis));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

/// @return "day" or "night" at the place of the settings.
const char* LightAt(std::time_t time, const Settings& settings)
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

std::string MakeMp4(const std::vector<std::shared_ptr<Frame>>& frames)
{
    AVFormatContext* made = nullptr;
    Check(avformat_alloc_output_context2(&made, nullptr, "mp4", nullptr), "mp4");
    const std::unique_ptr<AVFormatContext, AvRelease<FreeMuxer>> muxer(made);
    Check(avio_open_dyn_buf(&made->pb), "mp4");

    AVStream* const stream = Check(avformat_new_stream(made, nullptr), "mp4");
    Check(avcodec_parameters_copy(stream->codecpar, &frames.front()->Parameters()), "mp4");
    stream->time_base = microsecond;
    Check(avformat_write_header(made, nullptr), "mp4");
    std::int64_t microseconds = -1;
    for (const std::shared_ptr<Frame>& frame : frames) {
        const AvPacketOwner packet(Check(av_packet_clone(&frame->Packet()), "mp4"));
        const auto time = frame->Time() - frames.front()->Time();
        microseconds =
            std::max<std::int64_t>(microseconds + 1, time / std::chrono::microseconds(1));
        packet->pts = packet->dts = microseconds;
        // The next frame says how long this one is shown. The last one ends the clip.
        packet->duration = 1;
        Check(av_write_frame(made, packet.get()), "mp4");
    }
    Check(av_write_trailer(made), "mp4");
    Check(made->pb->error, "mp4");  // without memory for all of it

    std::uint8_t* bytes = nullptr;
    const int count = avio_get_dyn_buf(made->pb, &bytes);
    return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)};
}

std::string MakeJpeg(const Frame& key)
{
    const AVCodec* const format = avcodec_find_decoder(key.Parameters().codec_id);
    const AvCodecOwner decoder(Check(avcodec_alloc_context3(format), "still"));
    decoder->thread_count = 1;
    Check(avcodec_parameters_to_context(decoder.get(), &key.Parameters()), "still");
    Check(avcodec_open2(decoder.get(), format, nullptr), "still");
    Check(avcodec_send_packet(decoder.get(), &key.Packet()), "still");
    Check(avcodec_send_packet(decoder.get(), nullptr), "still");  // no more: the picture comes now
    const AvPictureOwner picture(Check(av_frame_alloc(), "still"));
    Check(avcodec_receive_frame(decoder.get(), picture.get()), "still");

    const AVCodec* const jpeg = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const AvCodecOwner encoder(Check(avcodec_alloc_context3(jpeg), "still"));
    encoder->width = picture->width;
    encoder->height = picture->height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->color_range = AVCOL_RANGE_MPEG;
    encoder->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;  // for the range of the video
    encoder->time_base = {1, 1};
    encoder->thread_count = 1;
    encoder->qmax = 4;  // good quality
    Check(avcodec_open2(encoder.get(), jpeg, nullptr), "still");
    picture->pict_type = AV_PICTURE_TYPE_I;
    Check(avcodec_send_frame(encoder.get(), picture.get()), "still");
    const AvPacketOwner packet(Check(av_packet_alloc(), "still"));
    Check(avcodec_receive_packet(encoder.get(), packet.get()), "still");
    return {reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size)};
}

std::string MakeSideFile(const std::string& name, const Clip& clip,
                         const std::vector<Sample>& samples, const Settings& settings)
{
    const Event& event = clip.events.front();
    auto* const monitor = Tolvex::Util::TemperatureMonitor::GetInstance();
    std::string lines;
    for (const std::string& line : Tolvex::Ilog::Logger::GetInstance()->GetLastLines()) {
        lines += line + '\n';
    }

    Json::Object side;
    side["identifier"] = Tolvex::Util::NewUid();
    side["clip"] = name + ".mp4";
    side["events"] = DescribeEvents(clip);
    side["localTime"] = Tolvex::Util::DateISO(event.wallTime);
    side["unixTime"] = static_cast<double>(event.wallTime);
    side["bootSeconds"] = Rounded(event.bootSeconds);
    side["clockPlausible"] = IsPlausible(event.wallTime);
    side["light"] = LightAt(event.wallTime, settings);
    side["temperature"] =
        monitor->GetTemperatureAvailable() ? Json::Value(monitor->GetTemperature()) : Json::Value();
    side["seconds"] = SecondsBetween(clip.frames.front()->Time(), clip.frames.back()->Time());
    side["frames"] = DescribeFrames(clip);
    side["peak"] = DescribePeaks(samples);
    side["acceleration"] = DescribeSamples(event, samples);
    side["log"] = lines;
    return Json::SerializeStandard(side) + '\n';
}

}  // namespace Dashcam
