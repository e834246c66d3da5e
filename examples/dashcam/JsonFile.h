#pragma once

#include <cstdint>
#include <string>

#include "Tolvex/Json/Json.h"

namespace Dashcam {

/// Reads a JSON file.
/// @param path     Of the file.
/// @param problem  Receives why it cannot be read, or where and why it is malformed, with the path;
///                 empty otherwise.
/// @return the object in the file; an empty one for any problem.
Tolvex::Json::Object ReadJsonFile(const std::string& path, std::string& problem);

/// @return a whole number for a document; one beyond 32 bits becomes a floating-point number.
Tolvex::Json::Value ToJson(std::int64_t number);

}  // namespace Dashcam
