#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "examples/dashcam/Frame.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// One picture of a source.
struct Picture
{
    AvPicture pixels;     ///< YUV 4:2:0
    std::int64_t id = 0;  ///< counts pictures, lost ones too
    Moment time;          ///< when it was taken
};

/// Where the pictures come from: a camera, a video file in a loop, or a test picture that moves and
/// shows the time. libav's filters read and draw them.
///
/// A camera gives the pace itself. Files and the test picture have the frame rate of the settings;
/// when the reader is more than a second late, pictures are left out, and counted as lost.
/// @par Errors
/// Open() and Read() throw Tolvex::IException with libav's reason. Open the source again then.
/// @par Thread safety
/// Caller serialises.
class VideoSource
{
public:
    /// @param wishes  Must outlive the source.
    /// @param device  Such as "/dev/video0"; empty for none.
    /// @param path    Of a file; empty for none. Without both: the test picture.
    VideoSource(const Settings& wishes, std::string device, std::string path);

    /// Opens the source, again after a failure.
    void Open();
    /// Waits for the next picture.
    Picture Read();

    /// @return the width of every picture, known after the first Open(). The height is that of the
    /// settings.
    int Width() const { return width; }
    /// @return what is shown, for people.
    std::string Name() const;

private:
    std::string Describe() const;
    void AwaitTurn();
    void CountFromCamera(const AVFrame& pixels);

    const Settings& settings;
    const std::string camera;
    const std::string file;
    AvGraph graph;
    AVFilterContext* sink = nullptr;  ///< where pictures leave the graph, which owns it

    std::string upright;                 ///< filters of the file, made by the first Open()
    int width = 0;                       ///< 0 until the first Open()
    bool fresh = true;                   ///< no picture has come since Open()
    std::int64_t id = -1;                ///< of the last picture
    Moment time;                         ///< of the last picture
    std::chrono::microseconds stamp{0};  ///< of the last picture, by the camera's clock
};

}  // namespace Dashcam
