#pragma once

#include <ctime>

#include "examples/dashcam/Av.h"

namespace Dashcam {

/// Draws a road that moves, with the local time in a corner.
/// @param picture  YUV 4:2:0, of even width and height.
/// @param seconds  Since the drive began.
/// @param now      The time to show.
void DrawTestPicture(AVFrame& picture, double seconds, std::time_t now);

}  // namespace Dashcam
