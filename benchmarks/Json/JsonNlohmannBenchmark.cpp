// How fast does nlohmann::json read and write the documents that Tolvex reads and writes?
#include "benchmarks/Json/LibraryBenchmark.h"
#include "benchmarks/Json/NlohmannLibrary.h"

namespace {

using Tolvex::Benchmarks::Library;

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
