#pragma once

#include <string>

namespace Dashcam {

/// What can be set for a camera: in a JSON file, one member for each name.
struct Settings
{
    int width = 1280;          ///< of the test picture, and what a camera is asked for
    int height = 720;          ///< of every picture; the width follows from the source
    int framesPerSecond = 30;  ///< what a camera is asked for, and the ring has room for
    int keyInterval = 15;      ///< frames from one key frame to the next
    int kilobitsPerSecond = 4000;

    int secondsBefore = 5;  ///< of video before an event
    int secondsAfter = 4;   ///< of video after the last event of a clip
    int longestClip = 60;   ///< seconds; a later event begins a clip of its own

    double threshold = 0.6;               ///< g in addition to gravity that make an event
    int sensorRange = 4;                  ///< g of the accelerometer at full scale
    int samplesPerSecond = 50;            ///< of the accelerometer
    double latitude = 46.948;             ///< degrees north
    double longitude = 7.4474;            ///< degrees east
    int folderMegabytes = 500;            ///< above it, the oldest clips are removed
    int diskFloorMegabytes = 8;           ///< below it, the oldest clips are removed
    std::string key = "change this key";  ///< signs the clips; 1 to 128 bytes
};

/// Reads settings. What is missing, or not as it has to be, is logged and has its default.
///
/// Odd sizes are rounded down. longestClip is raised if it is shorter than the seconds before and
/// after. Neither is logged.
///
/// @param path  Of a JSON file; empty for none.
/// @return the settings, always valid.
Settings ReadSettings(const std::string& path);

}  // namespace Dashcam
