#include "examples/dashcam/VideoSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <utility>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavfilter/buffersink.h>
}

namespace Dashcam {
namespace {

constexpr double tolerableDelay = 1.0;  ///< seconds that a reader can be late without a loss

Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

/// libav reads the text of a graph twice, and each time takes one level of backslashes away.
std::string Escaped(std::string text)
{
    for (int level = 0; level < 2; ++level) {
        std::string escaped;
        for (const char character : text) {
            escaped += std::strchr("\\':,;[]", character) != nullptr ? "\\" : "";
            escaped += character;
        }
        text = escaped;
    }
    return text;
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
        source = "movie=dec_threads=1:filename=" + Escaped(file) + ",fps=" + rate;
    } else {
        source = "testsrc2=size=" + size + ":rate=" + rate +
                 ",format=yuv420p,lutyuv=u=(val+128)/2:v=(val+128)/2,drawtext=text=" +
                 Escaped("%{localtime:%T}") +
                 ":fontsize=h/14:x=h/20:y=h*0.87:fontcolor=white:box=1:boxcolor=black:boxborderw=8";
    }
    // The width of the first picture stays, whatever comes after a new start.
    return source + ",scale=" + (width == 0 ? "-2" : std::to_string(width)) + ':' + height +
           ",format=yuv420p,buffersink@out";
}

void VideoSource::Open()
{
    avdevice_register_all();
    MakeGraph();
    fresh = true;
    turn = 0;
    begin = Clock::now();
}

void VideoSource::MakeGraph()
{
    graph.reset(avfilter_graph_alloc());
    graph->nb_threads = 1;
    Check(avfilter_graph_parse_ptr(graph.get(), Describe().c_str(), nullptr, nullptr, nullptr),
          Name());
    Check(avfilter_graph_config(graph.get(), nullptr), Name());
    sink = avfilter_graph_get_filter(graph.get(), "buffersink@out");
    width = av_buffersink_get_w(sink);
}

Picture VideoSource::Read()
{
    if (camera.empty()) {
        AwaitTurn();
    }
    AvPicture pixels(av_frame_alloc());
    int code = av_buffersink_get_frame(sink, pixels.get());
    if (code == AVERROR_EOF && turn > 1) {
        // The file begins again. One without any picture is an error: libav would loop for ever.
        MakeGraph();
        code = av_buffersink_get_frame(sink, pixels.get());
    }
    Check(code, Name());
    if (!camera.empty()) {
        CountFromCamera(*pixels);
    }
    return {std::move(pixels), id, time};
}

/// Sleeps until the next picture is due. Leaves out those for which it is too late.
void VideoSource::AwaitTurn()
{
    const double late = SecondsBetween(begin, Clock::now()) - tolerableDelay;
    const auto earliest = static_cast<std::int64_t>(late * settings.framesPerSecond);
    const std::int64_t next = std::max(turn, earliest);
    id += 1 + next - turn;
    turn = next + 1;
    time = begin + Seconds(static_cast<double>(next) / settings.framesPerSecond);
    std::this_thread::sleep_until(time);
}

/// A step of more than 1.5 pictures in the camera's time stamps is a loss. If its clock and ours
/// differ by more than a second, ours counts.
void VideoSource::CountFromCamera(const AVFrame& pixels)
{
    const double now = static_cast<double>(pixels.pts) * av_q2d(av_buffersink_get_time_base(sink));
    const double step = fresh ? 0.0 : now - stamp;
    const double pictures = step * av_q2d(av_buffersink_get_frame_rate(sink));
    id += pictures > 1.5 && pictures < 1000.0 ? std::lround(pictures) : 1;
    time += Seconds(step);
    if (fresh || std::abs(SecondsBetween(time, Clock::now())) > tolerableDelay) {
        time = Clock::now();
    }
    stamp = now;
    fresh = false;
}

}  // namespace Dashcam
