#include "examples/dashcam/VideoSource.h"

#include <cmath>
#include <thread>
#include <utility>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/opt.h>
}

namespace Dashcam {
namespace {

constexpr double tolerableDelay =
    1.0;  ///< seconds that a reader can be late without losing pictures

Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

VideoSource::VideoSource(const Settings& wishes, std::string device, std::string path)
    : settings(wishes), camera(std::move(device)), file(std::move(path))
{
    avdevice_register_all();
    av_log_set_level(AV_LOG_FATAL);
}

std::string VideoSource::Name() const
{
    return !camera.empty() ? camera : !file.empty() ? file : "test picture";
}

bool VideoSource::Fail(int code, const char* method)
{
    SetError(Name() + ": " + AvReason(code), method, false, false);
    input.reset();
    return false;
}

bool VideoSource::Open()
{
    ResetError();
    const std::string size = std::to_string(settings.width) + 'x' + std::to_string(settings.height);
    const std::string wanted = std::to_string(settings.framesPerSecond);

    const AVInputFormat* format = nullptr;
    AVDictionary* options = nullptr;
    std::string name = file;
    if (!camera.empty()) {
        format = av_find_input_format("v4l2");
        name = camera;
        av_dict_set(&options, "video_size", size.c_str(), 0);
        av_dict_set(&options, "framerate", wanted.c_str(), 0);
    } else if (file.empty()) {
        format = av_find_input_format("lavfi");
        name = "testsrc2=size=" + size + ":rate=" + wanted;
    }
    AVFormatContext* opened = nullptr;
    int code = avformat_open_input(&opened, name.c_str(), format, &options);
    av_dict_free(&options);
    if (code < 0) {
        return Fail(code, "Open");
    }
    input.reset(opened);

    const AVCodec* codec = nullptr;
    code = avformat_find_stream_info(opened, nullptr);
    stream = code < 0 ? code : av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream < 0) {
        return Fail(stream, "Open");
    }
    const AVStream& video = *opened->streams[stream];
    decoder.reset(avcodec_alloc_context3(codec));
    decoder->thread_count = 1;
    code = avcodec_parameters_to_context(decoder.get(), video.codecpar);
    code = code < 0 ? code : avcodec_open2(decoder.get(), codec, nullptr);
    if (code < 0 || decoder->width <= 0 || decoder->height <= 0) {
        return Fail(code < 0 ? code : AVERROR_INVALIDDATA, "Open");
    }

    if (width == 0) {
        width = std::max(64, settings.height * decoder->width / decoder->height) & ~1;
        converted = NewPicture(AV_PIX_FMT_YUV420P, width, settings.height);
    }
    rate = camera.empty() || video.avg_frame_rate.num == 0 ? settings.framesPerSecond
                                                           : av_q2d(video.avg_frame_rate);
    decoded.reset(av_frame_alloc());
    packet.reset(av_packet_alloc());
    position = round = anchor = 0;
    turn = 0;
    first = true;
    begin = Clock::now();
    return true;
}

bool VideoSource::Read(Picture& picture)
{
    ResetError();
    if (input == nullptr) {
        return Fail(AVERROR(ENODEV), "Read");
    }
    if (!camera.empty()) {
        if (!DecodeNext()) {
            return false;
        }
        TakeCameraTime();
    } else {
        AwaitTurn();
        if (!AdvanceTo(static_cast<double>(turn) / rate)) {
            return false;
        }
        ++turn;
    }
    if (!Convert()) {
        return false;
    }
    picture = {converted.get(), id, time};
    return true;
}

void VideoSource::AwaitTurn()
{
    const auto late =
        static_cast<std::int64_t>((SecondsBetween(begin, Clock::now()) - tolerableDelay) * rate) -
        turn;
    const std::int64_t lost = std::max<std::int64_t>(0, late);
    turn += lost;
    id += lost + 1;
    time = begin + Seconds(static_cast<double>(turn) / rate);
    std::this_thread::sleep_until(time);
}

void VideoSource::TakeCameraTime()
{
    // The camera's clock tells which pictures it has lost; ours may not part from it for long.
    const double step = (position - anchor) * rate;
    const bool plausible = step > 1.5 && step < 1000.0;
    id += plausible ? std::lround(step) : 1;
    time += Seconds(position - anchor);
    anchor = position;
    if (id == 0 || std::abs(SecondsBetween(time, Clock::now())) > tolerableDelay) {
        time = Clock::now();
    }
}

bool VideoSource::AdvanceTo(double seconds)
{
    // Half a picture of tolerance: times of files are rounded.
    while (first || position + 0.5 / rate < seconds) {
        if (!DecodeNext()) {
            return false;
        }
    }
    return true;
}

bool VideoSource::DecodeNext()
{
    int rounds = 0;
    while (!ReceivePicture()) {
        int code = av_read_frame(input.get(), packet.get());
        if (code == AVERROR_EOF && !file.empty() && ++rounds < 3) {
            code = avcodec_send_packet(decoder.get(), nullptr);
            if (ReceivePicture()) {
                return true;
            }
            if (!Rewind()) {
                return false;
            }
            continue;
        }
        if (code < 0) {
            return Fail(code, "Read");
        }
        if (packet->stream_index == stream) {
            avcodec_send_packet(decoder.get(), packet.get());  // a broken packet gives no picture
        }
        av_packet_unref(packet.get());
    }
    return true;
}

bool VideoSource::ReceivePicture()
{
    if (avcodec_receive_frame(decoder.get(), decoded.get()) != 0) {
        return false;
    }
    const double unit = av_q2d(input->streams[stream]->time_base);
    const std::int64_t stamp = decoded->best_effort_timestamp;
    const double seconds = static_cast<double>(stamp) * unit;
    if (first) {
        origin = stamp == AV_NOPTS_VALUE ? 0 : seconds;
        first = false;
    } else if (stamp == AV_NOPTS_VALUE) {
        position += 1.0 / rate;
    } else {
        position = round + seconds - origin;
    }
    return true;
}

bool VideoSource::Rewind()
{
    // The next round begins one picture after the end of this one.
    const int code = av_seek_frame(input.get(), stream, 0, AVSEEK_FLAG_BACKWARD);
    if (code < 0) {
        return Fail(code, "Read");
    }
    avcodec_flush_buffers(decoder.get());
    round = position + 1.0 / rate;
    return true;
}

bool VideoSource::Convert()
{
    if (av_frame_make_writable(converted.get()) < 0) {
        return Fail(AVERROR(ENOMEM), "Read");
    }
    scaler.reset(sws_getCachedContext(scaler.release(), decoded->width, decoded->height,
                                      static_cast<AVPixelFormat>(decoded->format), width,
                                      settings.height, AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR,
                                      nullptr, nullptr, nullptr));
    if (scaler == nullptr) {
        return Fail(AVERROR(EINVAL), "Read");
    }
    sws_scale(scaler.get(), decoded->data, decoded->linesize, 0, decoded->height, converted->data,
              converted->linesize);
    return true;
}

}  // namespace Dashcam
