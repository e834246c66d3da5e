#pragma once

#include <atomic>

extern "C" {
#include <libavfilter/avfilter.h>
}

#include "examples/dashcam/Recorder.h"

namespace Dashcam {

/// The worker that takes pictures, encodes them as H.264 with a key frame at a fixed interval, and
/// hands them to the recorder: one in each pass.
///
/// The pictures come from a camera, a video file in a loop, or a test picture that moves and shows
/// the time. libav's filters read and draw them. A camera gives the pace itself; what it gives
/// beyond the frame rate of the settings is left out. Files and the test picture have that frame
/// rate; when a pass is more than a second late, pictures are left out, and counted as lost.
/// @par Errors
/// A source that fails is opened again every second. libav's reason is logged; the same
/// reason is logged again only after a picture has come.
/// @par Thread safety
/// Controlling thread. The counters may be read on any thread.
class Capture : public Tolvex::Interfaces::IThread, public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// @param configured  Must outlive the worker.
    /// @param sink    Receives the frames; must outlive the worker.
    /// @param device  Of the camera, such as "/dev/video0"; empty for none.
    /// @param path    Of a video file; empty for none. Without both: the test picture.
    Capture(const Settings& configured, Recorder& sink, const std::string& device,
            const std::string& path);

    /// Stops the worker.
    void RunIgnitionOff() override { Stop(); }

    /// @return frames that the recorder has received.
    std::uint64_t Frames() const { return frames; }
    /// @return pictures that never became frames.
    std::uint64_t Lost() const { return lost; }

protected:
    void Run() override;

private:
    void LogProblem(const char* problem);
    std::string DescribeSource() const;
    void OpenSource();
    void OpenEncoder();
    AvPictureOwner ReadPicture();
    void LeaveOut(Clock::duration tolerance);
    bool CountFromCamera(const AVFrame& picture);
    std::shared_ptr<Frame> Encode(AVFrame& picture);

    const Settings& settings;
    Recorder& recorder;
    const std::string camera;
    const std::string file;
    const std::string name;    ///< of the source, for people
    Clock::duration interval;  ///< between two pictures, as the source gives them
    std::unique_ptr<AVFilterGraph, AvRelease<avfilter_graph_free>> graph;
    AVFilterContext* output = nullptr;  ///< where pictures leave the graph, which owns it
    AvCodecOwner encoder;
    std::shared_ptr<AVCodecParameters> parameters;  ///< of what the encoder makes

    std::string upright;   ///< filters of the file, made when it is first opened
    int width = 0;         ///< of every picture; 0 until the source is first open
    bool fresh = true;     ///< no picture has come since the source was opened, or it is not open
    std::int64_t id = -1;  ///< of the last picture; counts lost ones too
    Moment time;           ///< of the last picture
    std::chrono::microseconds stamp{0};  ///< of the last picture, by the camera's clock
    std::chrono::microseconds due{0};    ///< the stamp from which on the next picture is taken
    std::string complaint;               ///< the last one since a picture came; empty: none
    std::atomic<std::uint64_t> frames = 0;
    std::atomic<std::uint64_t> lost = 0;
};

}  // namespace Dashcam
