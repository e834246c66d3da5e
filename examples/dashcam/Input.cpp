#include "examples/dashcam/Input.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

namespace Dashcam {
namespace {

constexpr double usualRate = 25.0;  ///< pictures per second where it is not known

}

bool Input::OpenCamera(const std::string& device, const Settings& settings)
{
    avdevice_register_all();
    name = device;
    loops = false;
    const std::string size = std::to_string(settings.width) + 'x' + std::to_string(settings.height);
    AVDictionary* options = nullptr;
    av_dict_set(&options, "video_size", size.c_str(), 0);
    av_dict_set_int(&options, "framerate", settings.framesPerSecond, 0);
    return Open("v4l2", &options);
}

bool Input::OpenFile(const std::string& path)
{
    name = path;
    loops = true;
    AVDictionary* options = nullptr;
    return Open(nullptr, &options);
}

bool Input::Open(const char* format, AVDictionary** options)
{
    ResetError();
    AVFormatContext* opened = nullptr;
    int code = avformat_open_input(
        &opened, name.c_str(), format != nullptr ? av_find_input_format(format) : nullptr, options);
    av_dict_free(options);
    if (code < 0) {
        return Fail(code);
    }
    input.reset(opened);

    const AVCodec* codec = nullptr;
    code = avformat_find_stream_info(opened, nullptr);
    stream = code < 0 ? code : av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream < 0) {
        return Fail(stream);
    }
    decoder.reset(avcodec_alloc_context3(codec));
    decoder->thread_count = 1;
    code = avcodec_parameters_to_context(decoder.get(), opened->streams[stream]->codecpar);
    code = code < 0 ? code : avcodec_open2(decoder.get(), codec, nullptr);
    if (code < 0) {
        return Fail(code);
    }
    decoded.reset(av_frame_alloc());
    packet.reset(av_packet_alloc());
    first = true;
    position = round = 0;
    return true;
}

bool Input::Fail(int code)
{
    SetError(name + ": " + AvReason(code), "", false, false);
    return false;
}

double Input::Rate() const
{
    const AVRational rate = input->streams[stream]->avg_frame_rate;
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : usualRate;
}

bool Input::Next()
{
    ResetError();
    for (int rounds = 0; !Receive();) {
        const int code = av_read_frame(input.get(), packet.get());
        if (code == AVERROR_EOF && loops && rounds < 2) {
            ++rounds;  // after two rounds without a picture the file has none
            avcodec_send_packet(decoder.get(), nullptr);
            if (Receive()) {
                return true;  // one of the last that the decoder has kept back
            }
            if (!Rewind()) {
                return false;
            }
        } else if (code < 0) {
            return Fail(code);
        } else if (packet->stream_index == stream) {
            avcodec_send_packet(decoder.get(), packet.get());  // a broken packet gives no picture
        }
        av_packet_unref(packet.get());
    }
    return true;
}

bool Input::Receive()
{
    if (avcodec_receive_frame(decoder.get(), decoded.get()) != 0) {
        return false;
    }
    const std::int64_t stamp = decoded->best_effort_timestamp;
    const double seconds = static_cast<double>(stamp) * av_q2d(input->streams[stream]->time_base);
    if (first) {
        origin = stamp == AV_NOPTS_VALUE ? 0.0 : seconds;
        first = false;
    } else if (stamp == AV_NOPTS_VALUE) {
        position += 1.0 / Rate();
    } else {
        position = round + seconds - origin;
    }
    return true;
}

/// Back to the beginning, which follows a picture's time after the end.
bool Input::Rewind()
{
    const int code = av_seek_frame(input.get(), stream, 0, AVSEEK_FLAG_BACKWARD);
    if (code < 0) {
        return Fail(code);
    }
    avcodec_flush_buffers(decoder.get());
    round = position + 1.0 / Rate();
    return true;
}

}  // namespace Dashcam
