#include "examples/dashcam/VideoSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavfilter/buffersink.h>
#include <libavutil/display.h>
}

namespace Dashcam {

using namespace std::chrono_literals;

namespace {

constexpr auto tolerableDelay = 1s;  ///< that a reader can be late without a loss

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

/// The filters that show the pictures of a file as the camera means them: with the shape of their
/// pixels, and turned as the camera was held. The filter that reads files drops both.
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

VideoSource::VideoSource(const Settings& wishes, std::string device, std::string path)
    : settings(wishes), camera(std::move(device)), file(std::move(path))
{
}

std::string VideoSource::Name() const
{
    return !camera.empty() ? camera : !file.empty() ? file : "test picture";
}

/// The graph of filters that makes the pictures.
std::string VideoSource::Describe() const
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
    // The width of the first picture stays, whatever comes later or after a new start. It is even
    // and makes the pixels square. The scaler's own "-2" would change with the pictures.
    const std::string even = "2*round(" + height + "*dar/2)";
    return source + ",scale=" + (width == 0 ? even : std::to_string(width)) + ':' + height +
           ",format=yuv420p,buffersink@out";
}

void VideoSource::Open()
{
    avdevice_register_all();
    if (width == 0 && !file.empty()) {
        upright = Upright(file);
    }
    graph.reset(avfilter_graph_alloc());
    graph->nb_threads = 1;
    Check(avfilter_graph_parse_ptr(graph.get(), Describe().c_str(), nullptr, nullptr, nullptr),
          Name());
    Check(avfilter_graph_config(graph.get(), nullptr), Name());
    sink = avfilter_graph_get_filter(graph.get(), "buffersink@out");
    width = av_buffersink_get_w(sink);
    fresh = true;
}

Picture VideoSource::Read()
{
    if (camera.empty()) {
        AwaitTurn();
    }
    AvPicture pixels(av_frame_alloc());
    int code = av_buffersink_get_frame(sink, pixels.get());
    if (code == AVERROR_EOF && camera.empty() && !fresh) {
        // The file begins again. One without any picture is an error: libav would loop for ever.
        Open();
        code = av_buffersink_get_frame(sink, pixels.get());
    }
    Check(code, Name());
    if (!camera.empty()) {
        CountFromCamera(*pixels);
    }
    fresh = false;
    return {std::move(pixels), id, time};
}

/// Sleeps until the next picture is due. Leaves out those for which it is too late.
void VideoSource::AwaitTurn()
{
    if (fresh) {
        time = Clock::now();
    }
    const Clock::duration interval = Clock::duration(1s) / settings.framesPerSecond;
    const Clock::duration late = Clock::now() - tolerableDelay - time;
    const std::int64_t pictures = std::max<std::int64_t>(1, late / interval);
    id += pictures;
    time += pictures * interval;
    std::this_thread::sleep_until(time);
}

/// A step of more than 1.5 pictures in the camera's time stamps is a loss. If its clock and ours
/// differ by more than a second, ours counts.
void VideoSource::CountFromCamera(const AVFrame& pixels)
{
    const AVRational base = av_buffersink_get_time_base(sink);
    const std::chrono::microseconds now(av_rescale_q(pixels.pts, base, {1, 1000000}));
    const auto step = fresh ? 0us : now - stamp;
    const double pictures =
        std::chrono::duration<double>(step).count() * av_q2d(av_buffersink_get_frame_rate(sink));
    id += pictures > 1.5 && pictures < 1000.0 ? std::lround(pictures) : 1;
    time += step;
    if (fresh || std::chrono::abs(time - Clock::now()) > tolerableDelay) {
        time = Clock::now();
    }
    stamp = now;
}

}  // namespace Dashcam
