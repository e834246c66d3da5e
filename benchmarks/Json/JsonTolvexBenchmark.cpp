// How fast are documents of several kinds read, destroyed and written, and in how much memory?
#include "Tolvex/Json/Json.h"

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static Tolvex::Json::Value Read(const std::string& text)
    {
        return Tolvex::Json::Deserialize(text);
    }

    static std::string Write(const Tolvex::Json::Value& tree)
    {
        return Tolvex::Json::Serialize(tree);
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
