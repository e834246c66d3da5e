// How fast does RapidJSON read and write the documents that Tolvex reads and writes?
#include "benchmarks/Json/LibraryBenchmark.h"
#include "benchmarks/Json/RapidJsonLibrary.h"

namespace {

using Tolvex::Benchmarks::Library;

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
