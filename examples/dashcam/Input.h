#pragma once

#include <string>

#include "Tolvex/Interfaces/IError.h"

#include "examples/dashcam/Av.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// The pictures of a V4L2 camera, or of a video file that begins again at its end.
/// @par Thread safety
/// Caller serialises.
class Input : public Tolvex::Interfaces::IError
{
public:
    /// Opens a camera. @return false with libav's reason.
    bool OpenCamera(const std::string& device, const Settings& settings);
    /// Opens a file. @return false with libav's reason.
    bool OpenFile(const std::string& path);

    /// Decodes the next picture; waits for a camera. @return false with libav's reason.
    bool Next();

    /// @return the picture of the last Next().
    const AVFrame& Decoded() const { return *decoded; }
    /// @return when that picture was taken, or is shown: seconds since the first one. Grows beyond
    /// the length of the file, which begins again.
    double Position() const { return position; }
    /// @return pictures per second as the camera or the file states it.
    double Rate() const;

private:
    bool Open(const char* format, AVDictionary** options);
    bool Fail(int code);
    bool Receive();
    bool Rewind();

    std::string name;  ///< of the device or file
    bool loops = false;
    AvInput input;
    AvCodec decoder;
    AvPicture decoded;
    AvPacketOwner packet;
    int stream = 0;       ///< of the input
    bool first = true;    ///< nothing has been decoded yet
    double origin = 0;    ///< time stamp of the first picture, in seconds
    double position = 0;  ///< see Position()
    double round = 0;     ///< position at which this round of the file began
};

}  // namespace Dashcam
