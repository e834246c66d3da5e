/// @file
/// Tolvex, as the benchmarks and the counts of instructions use it.
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"

namespace Tolvex::Benchmarks {

struct Library
{
    static Json::Value Read(const std::string& text) { return Json::Deserialize(text); }

    static std::string Write(const Json::Value& tree) { return Json::Serialize(tree); }
};

}  // namespace Tolvex::Benchmarks
