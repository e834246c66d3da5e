/// @file
/// What is known about an event, as JSON.
#pragma once

#include <string>
#include <vector>

#include "Tolvex/Json/Json.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// @param name     Of the event's files, without extension.
/// @param clip     Complete, with one frame at least.
/// @param samples  Of the time of the clip.
/// @return the content of the side file.
Tolvex::Json::Object DescribeClip(const std::string& name, const Clip& clip,
                                  const std::vector<Sample>& samples, const Settings& settings);

/// @return whether a clock may be right: a device without battery starts in 1970.
bool IsPlausible(std::time_t time);

}  // namespace Dashcam
