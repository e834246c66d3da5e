/// @file
/// Calls of the library in one place. See Library.cpp.
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"

namespace Dashcam {

/// Reads a JSON document.
/// @param problem  Receives where and why the text is malformed; empty otherwise.
/// @return the document; null when it is malformed.
Tolvex::Json::Value ParseJson(const std::string& text, std::string& problem);

/// @return the value as standard JSON.
std::string ToStandardJson(const Tolvex::Json::Value& value);

/// Logs to dashcam.log in a folder, and keeps the last lines in memory. Makes the folder.
void StartLog(const std::string& folder);

/// @return the last lines of the log, each with a newline.
std::string LastLogLines();

}  // namespace Dashcam
