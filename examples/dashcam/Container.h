/// @file
/// Frames as files: the clip and its still.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "examples/dashcam/Frame.h"

namespace Dashcam {

/// @param frames  At least one; the first one is a key frame.
/// @return the bytes of an MP4 file. The frames are not encoded again.
/// @throws Tolvex::IException with libav's reason.
std::string MakeMp4(const std::vector<std::shared_ptr<Frame>>& frames);

/// @param key  A key frame.
/// @return the bytes of a JPEG file.
/// @throws Tolvex::IException with libav's reason.
std::string MakeJpeg(const Frame& key);

}  // namespace Dashcam
