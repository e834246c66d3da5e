/// @file
/// The files of an event: the clip, its still, and what is known about it.
#pragma once

#include "examples/dashcam/Types.h"

namespace Dashcam {

/// @param frames  At least one; the first one is a key frame.
/// @return the bytes of an MP4 file. The frames are not encoded again.
/// @throws Tolvex::IException with libav's reason.
std::string MakeMp4(const std::vector<std::shared_ptr<Frame>>& frames);

/// @param key  A key frame.
/// @return the bytes of a JPEG file.
/// @throws Tolvex::IException with libav's reason.
std::string MakeJpeg(const Frame& key);

/// @param name     Of the event's files, without extension.
/// @param clip     Complete, with one frame at least.
/// @param samples  Of the time of the clip.
/// @return the text of the side file.
std::string MakeSideFile(const std::string& name, const Clip& clip,
                         const std::vector<Sample>& samples, const Settings& settings);

/// @return whether a clock may be right: a device without battery starts in 1970.
constexpr bool IsPlausible(std::time_t time)
{
    return time >= 1735689600;  // the start of 2025
}

}  // namespace Dashcam
