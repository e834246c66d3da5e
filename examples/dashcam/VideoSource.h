#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "Tolvex/Interfaces/IError.h"

#include "examples/dashcam/Frame.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// One picture of a source.
struct Picture
{
    AVFrame* pixels = nullptr;  ///< YUV 4:2:0; the source's own, until the next picture
    std::int64_t id = 0;        ///< counts pictures, lost ones too
    Moment time;                ///< when it was taken
};

/// Where the pictures come from: a V4L2 camera, a video file in a loop, or a test picture.
///
/// A camera gives the pace itself. Files and the test picture have the frame rate of the settings;
/// when the reader is more than a second late, pictures are left out, and counted as lost.
/// @par Thread safety
/// Caller serialises.
class VideoSource : public Tolvex::Interfaces::IError
{
public:
    /// @param settings  Must outlive the source.
    /// @param camera    Such as "/dev/video0"; empty for none.
    /// @param file      Path; empty for none. Without both: the test picture.
    VideoSource(const Settings& settings, std::string camera, std::string file);

    /// Opens the source, again after a failure. @return false with libav's reason.
    bool Open();
    /// Waits for the next picture. @return false when there is none: Open() it again.
    bool Read(Picture& picture);

    /// @return the size of every picture, known after the first Open().
    int Width() const { return width; }
    int Height() const { return settings.height; }
    /// @return what is shown, for people.
    std::string Name() const;

private:
    bool Fail(int code, const char* method);
    bool DecodeNext();
    bool ReceivePicture();
    bool Rewind();
    bool AdvanceTo(double seconds);
    void AwaitTurn();
    void TakeCameraTime();
    bool Convert();

    const Settings& settings;
    const std::string camera;
    const std::string file;

    AvInput input;
    AvCodec decoder;
    AvScaler scaler;
    AvPicture decoded;
    AvPicture converted;
    AvPacketOwner packet;
    int stream = 0;       ///< of the input
    int width = 0;        ///< of the pictures; 0 until the first Open()
    double rate = 0.0;    ///< pictures per second
    bool first = true;    ///< nothing has been decoded since Open()
    double origin = 0;    ///< time stamp of the first picture, in seconds
    double position = 0;  ///< of the decoded picture: seconds since the first, all rounds together
    double round = 0;     ///< position at which this round of the file began
    double anchor = 0;    ///< position of the camera's picture before this one

    Moment begin;           ///< of turn 0
    std::int64_t turn = 0;  ///< pictures that were due, for files and the test picture
    std::int64_t id = -1;   ///< of the last picture
    Moment time;            ///< of the last picture
};

}  // namespace Dashcam
