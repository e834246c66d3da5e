#pragma once

#include <memory>

#include "Tolvex/Interfaces/IError.h"

#include "examples/dashcam/Frame.h"
#include "examples/dashcam/Settings.h"
#include "examples/dashcam/VideoSource.h"

namespace Dashcam {

/// H.264, one frame out for one picture in, with key frames at a fixed interval.
/// @par Thread safety
/// Caller serialises.
class Encoder : public Tolvex::Interfaces::IError
{
public:
    /// @return false with libav's reason.
    bool Open(int width, int height, const Settings& settings);

    /// @return the frame; null when the picture could not be encoded.
    std::shared_ptr<Frame> Encode(const Picture& picture);

    /// @return what a file needs to know of the stream; null before Open().
    std::shared_ptr<const AVCodecParameters> Parameters() const { return parameters; }

private:
    AvCodec codec;
    std::shared_ptr<const AVCodecParameters> parameters;
    int keyInterval = 1;
    int sinceKey = 0;  ///< frames since the last key frame, itself included; 0: one is due
};

}  // namespace Dashcam
