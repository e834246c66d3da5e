// How fast does cJSON read and write the documents that Tolvex reads and writes?
#include "benchmarks/Json/CJsonLibrary.h"
#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

using Tolvex::Benchmarks::Library;

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
