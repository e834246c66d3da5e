// How fast does Boost.JSON read and write the documents that Tolvex reads and writes?
#include <boost/json.hpp>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static boost::json::value Read(const std::string& text) { return boost::json::parse(text); }
    static std::string Write(const boost::json::value& tree)
    {
        return boost::json::serialize(tree);
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
