// How fast does nlohmann::json read and write the documents that Tolvex reads and writes?
#include <nlohmann/json.hpp>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static nlohmann::json Read(const std::string& text) { return nlohmann::json::parse(text); }
    static std::string Write(const nlohmann::json& tree) { return tree.dump(); }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
