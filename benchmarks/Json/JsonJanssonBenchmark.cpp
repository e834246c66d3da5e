// How fast does Jansson read and write the documents that Tolvex reads and writes?
#include <cstdlib>
#include <memory>

#include <jansson.h>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    struct Release
    {
        void operator()(json_t* tree) const { json_decref(tree); }
    };

    static std::unique_ptr<json_t, Release> Read(const std::string& text)
    {
        return std::unique_ptr<json_t, Release>(json_loadb(text.data(), text.size(), 0, nullptr));
    }

    static std::string Write(const std::unique_ptr<json_t, Release>& tree)
    {
        char* const dumped = json_dumps(tree.get(), JSON_COMPACT);
        std::string text(dumped);
        std::free(dumped);
        return text;
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
