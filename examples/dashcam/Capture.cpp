#include "examples/dashcam/Capture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <thread>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavfilter/buffersink.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
}

namespace Dashcam {

using namespace std::chrono_literals;

namespace {

constexpr const char* h264 = "H.264 encoder";  ///< in complaints
constexpr auto tolerableDelay = 1s;            ///< that a pass can be late without a loss

/// libav reads the text of a graph twice, and each time takes one level of backslashes away: three
/// of them become one, which then protects the character.
std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        escaped += std::strchr("\\':,;[]", character) != nullptr ? R"(\\\)" : "";
        escaped += character;
    }
    return escaped;
}

/// The filters that show a file upright and with square pixels. The filter that reads files drops
/// rotation and pixel shape.
std::string Upright(const std::string& file)
{
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(file, unknown)) {
        return "";  // a pipe can be read only once
    }

    AVFormatContext* opened = nullptr;
    Check(avformat_open_input(&opened, file.c_str(), nullptr, nullptr), file);
    const std::unique_ptr<AVFormatContext, AvRelease<avformat_close_input>> input(opened);
    Check(avformat_find_stream_info(opened, nullptr), file);
    const int best = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    Check(best, file);

    AVStream* const video = opened->streams[best];
    const AVRational pixel = av_guess_sample_aspect_ratio(opened, video, nullptr);
    const void* const matrix = av_stream_get_side_data(video, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    const double angle =
        matrix == nullptr ? 0.0 : av_display_rotation_get(static_cast<const std::int32_t*>(matrix));
    constexpr const char* turns[] = {"", ",transpose=clock", ",hflip,vflip", ",transpose=cclock"};
    // The angle is counterclockwise, from -180 to 180. A matrix of zeros has none.
    const long quarters = std::isnan(angle) ? 0 : std::lround((360.0 - angle) / 90.0) % 4;
    return ",setsar=" + std::to_string(pixel.num) + '/' + std::to_string(pixel.den) +
           turns[quarters];
}

}  // namespace

Capture::Capture(const Settings& configured, Recorder& sink, const std::string& device,
                 const std::string& path)
    : settings(configured),
      recorder(sink),
      camera(device),
      file(path),
      name((device + path).empty() ? "test picture" : device + path),
      interval(Clock::duration(1s) / configured.framesPerSecond)
{
    SetThreadName("Capture");
    av_log_set_level(AV_LOG_QUIET);  // libav would write to the terminal; we log its reasons
    avdevice_register_all();
}

void Capture::Run()
{
    try {
        if (fresh) {
            OpenSource();
            OpenEncoder();
            LeaveOut(tolerableDelay);
        }
        recorder.Process(Encode(*ReadPicture()));
        ++frames;
        if (fresh) {
            fresh = false;
            complaint.clear();
            LogLine(LogType::Info, LogModule::Event)
                << name << ": " << width << 'x' << settings.height;
        }
    } catch (const std::exception& problem) {
        fresh = true;
        LogProblem(problem.what());
        ThreadSleep(1s, 50ms);
    }
    if (fresh || camera.empty()) {  // the next picture of a camera tells what was lost before it
        LeaveOut(fresh ? 0s : tolerableDelay);  // at the end: the last pass counts its delay too
    }
    lost = static_cast<std::uint64_t>(id + 1) - frames;
}

/// Logs why there is no picture, unless the last complaint was the same.
void Capture::LogProblem(const char* problem)
try {
    if (complaint != problem) {
        LogLine(LogType::Error, LogModule::Event) << "no picture: " << problem;
        complaint = problem;
    }
} catch (const std::exception&) {
    // Without memory the complaint is lost, but not the pictures that may follow.
}

/// The graph of filters that makes the pictures.
std::string Capture::DescribeSource() const
{
    const std::string rate = std::to_string(settings.framesPerSecond);
    const std::string height = std::to_string(settings.height);
    const std::string size = std::to_string(settings.width) + 'x' + height;
    std::string source;
    if (!camera.empty()) {
        source = "movie=dec_threads=1:f=v4l2:format_opts=" +
                 Escaped("video_size=" + size + ":framerate=" + rate) +
                 ":filename=" + Escaped(camera);
    } else if (!file.empty()) {
        source = "movie=dec_threads=1:filename=" + Escaped(file) + ",fps=" + rate + upright;
    } else {
        source = "testsrc2=size=" + size + ":rate=" + rate +
                 ",format=yuv420p,lutyuv=u=(val+128)/2:v=(val+128)/2,drawtext=text=" +
                 Escaped("%{localtime:%T}") +
                 ":fontsize=h/14:x=h/20:y=h*0.87:fontcolor=white:box=1:boxcolor=black:boxborderw=8";
    }
    // The width is chosen once, from the first picture. It is even and makes the pixels square. The
    // scaler's own "-2" would choose again when the pictures change.
    const std::string even = "2*round(" + height + "*dar/2)";
    return source + ",scale=" + (width == 0 ? even : std::to_string(width)) + ':' + height +
           ",format=yuv420p,buffersink@out";
}

void Capture::OpenSource()
{
    if (width == 0 && !file.empty()) {
        upright = Upright(file);
    }
    const std::string source = DescribeSource();
    graph.reset(Check(avfilter_graph_alloc(), name));
    graph->nb_threads = 1;
    Check(avfilter_graph_parse_ptr(graph.get(), source.c_str(), nullptr, nullptr, nullptr), name);
    Check(avfilter_graph_config(graph.get(), nullptr), name);
    output = avfilter_graph_get_filter(graph.get(), "buffersink@out");
    width = av_buffersink_get_w(output);
    const AVRational rate = av_buffersink_get_frame_rate(output);
    if (rate.num > 0 && rate.den > 0) {  // known; a camera may ignore the settings
        interval = std::max<Clock::duration>(1us, Clock::duration(1s) * rate.den / rate.num);
    }
}

void Capture::OpenEncoder()
{
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_H264);  // libx264, if it is there
    Check(codec == nullptr ? AVERROR_ENCODER_NOT_FOUND : 0, h264);
    encoder.reset(Check(avcodec_alloc_context3(codec), h264));
    encoder->width = width;
    encoder->height = settings.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = microsecond;  // the pictures have their times
    encoder->framerate = {settings.framesPerSecond, 1};
    encoder->bit_rate = settings.kilobitsPerSecond * 1000LL;
    encoder->gop_size = settings.keyInterval;
    encoder->max_b_frames = 0;
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // Best effort: other encoders do not have these options of x264. Decoding can start at every
    // key frame; x264 would add some where a scene changes.
    av_opt_set(encoder.get(), "preset", "ultrafast", AV_OPT_SEARCH_CHILDREN);
    av_opt_set(encoder.get(), "tune", "zerolatency", AV_OPT_SEARCH_CHILDREN);
    av_opt_set(encoder.get(), "sc_threshold", "0", AV_OPT_SEARCH_CHILDREN);
    Check(avcodec_open2(encoder.get(), codec, nullptr), h264);

    parameters.reset(Check(avcodec_parameters_alloc(), h264), AvRelease<avcodec_parameters_free>());
    Check(avcodec_parameters_from_context(parameters.get(), encoder.get()), h264);
}

/// Waits until the next picture is due, and reads it.
AvPictureOwner Capture::ReadPicture()
{
    if (camera.empty()) {
        ++id;
        time += interval;
        std::this_thread::sleep_until(time);
    }
    AvPictureOwner picture(Check(av_frame_alloc(), name));
    if (!camera.empty()) {
        do {
            av_frame_unref(picture.get());
            Check(av_buffersink_get_frame(output, picture.get()), name);
        } while (!CountFromCamera(*picture));
        return picture;
    }
    int code = av_buffersink_get_frame(output, picture.get());
    if (code == AVERROR_EOF && !fresh) {
        // The file begins again. One without any picture is an error: libav would loop for ever.
        OpenSource();
        code = av_buffersink_get_frame(output, picture.get());
    }
    Check(code, name);
    return picture;
}

/// Counts the pictures that are late by more than the tolerance: they are lost.
void Capture::LeaveOut(Clock::duration tolerance)
{
    if (frames == 0) {  // nothing is due before the first picture
        time = Clock::now();
        id = -1;
    }
    const auto missed = std::max(Clock::duration(0), Clock::now() - tolerance - time) / interval;
    id += missed;
    time += missed * interval;
}

/// The camera's time stamps tell how many pictures were lost. Our clock tells it when the source
/// has just been opened, and when the two differ by more than a second.
/// @return false for a picture to leave out: the ring has no room for more than the settings say.
bool Capture::CountFromCamera(const AVFrame& picture)
{
    const AVRational base = av_buffersink_get_time_base(output);
    const std::chrono::microseconds newStamp(av_rescale_q(picture.pts, base, microsecond));
    const auto wanted = 1000000us / settings.framesPerSecond;
    Clock::duration step = newStamp - stamp;
    if (fresh || std::chrono::abs(time + step - Clock::now()) > tolerableDelay) {
        LeaveOut(interval);
        step = Clock::now() - time;
        due = newStamp - wanted;  // pictures may be early by as much
    }
    id += std::max<std::int64_t>(1, (step + interval / 2) / interval);  // rounded
    time += step;
    stamp = newStamp;
    if (stamp < due) {
        --id;  // it is not lost
        return false;
    }
    due = std::max(due + wanted, stamp);
    return true;
}

std::shared_ptr<Frame> Capture::Encode(AVFrame& picture)
{
    picture.pts = time.time_since_epoch() / 1us;
    picture.pict_type = AV_PICTURE_TYPE_NONE;  // the encoder decides, not the file
    AvPacketOwner packet(Check(av_packet_alloc(), h264));
    Check(avcodec_send_frame(encoder.get(), &picture), h264);
    Check(avcodec_receive_packet(encoder.get(), packet.get()), h264);
    return std::make_shared<Frame>(id, std::move(packet), time, parameters);
}

}  // namespace Dashcam
