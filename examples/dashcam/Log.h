/// @file
/// The log of the program: a file in the folder of the clips, and a black box with its last lines.
#pragma once

#include <string>

namespace Dashcam {

/// Starts the log. Call before anything that logs.
/// @param folder  Made if it does not exist.
void StartLog(const std::string& folder);

/// @return the last lines of the log, each with a newline.
std::string LastLogLines();

}  // namespace Dashcam
