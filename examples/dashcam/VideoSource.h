#pragma once

#include <cstdint>
#include <string>

#include "Tolvex/Interfaces/IError.h"

#include "examples/dashcam/Frame.h"
#include "examples/dashcam/Input.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// One picture of a source.
struct Picture
{
    AVFrame* pixels = nullptr;  ///< YUV 4:2:0; the source's own, until the next picture
    std::int64_t id = 0;        ///< counts pictures, lost ones too
    Moment time;                ///< when it was taken
};

/// Where the pictures come from: a camera, a video file in a loop, or a test picture.
///
/// A camera gives the pace itself. Files and the test picture have the frame rate of the settings;
/// when the reader is more than a second late, pictures are left out, and counted as lost.
/// @par Thread safety
/// Caller serialises.
class VideoSource : public Tolvex::Interfaces::IError
{
public:
    /// @param wishes  Must outlive the source.
    /// @param device  Such as "/dev/video0"; empty for none.
    /// @param path    Of a file; empty for none. Without both: the test picture.
    VideoSource(const Settings& wishes, std::string device, std::string path);

    /// Opens the source, again after a failure. @return false with the reason.
    bool Open();
    /// Waits for the next picture. @return false with the reason: Open() the source again.
    bool Read(Picture& picture);

    /// @return the width of every picture, known after the first Open(). The height is that of the
    /// settings.
    int Width() const { return width; }
    /// @return what is shown, for people.
    std::string Name() const;

private:
    bool FailAsInput();
    void AwaitTurn();
    bool ReadFile();
    bool ReadCamera();
    bool Convert();

    const Settings& settings;
    const std::string camera;
    const std::string file;
    Input input;  ///< for a camera or a file
    AvScaler scaler;
    AvPicture pixels;

    int width = 0;          ///< 0 until the first Open()
    bool fresh = true;      ///< no picture has come since Open()
    Moment begin;           ///< of turn 0
    std::int64_t turn = 0;  ///< pictures that were due, for files and the test picture
    double position = 0;    ///< of the camera's last picture
    std::int64_t id = -1;   ///< of the last picture
    Moment time;            ///< of the last picture
};

}  // namespace Dashcam
