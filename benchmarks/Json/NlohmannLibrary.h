/// @file
/// nlohmann::json, as the benchmarks and the counts of instructions use it.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace Tolvex::Benchmarks {

struct Library
{
    static nlohmann::json Read(const std::string& text) { return nlohmann::json::parse(text); }
    static std::string Write(const nlohmann::json& tree) { return tree.dump(); }
};

}  // namespace Tolvex::Benchmarks
