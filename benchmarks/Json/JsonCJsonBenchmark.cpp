// How fast does cJSON read and write the documents that Tolvex reads and writes?
#include <cstdlib>
#include <memory>

#include <cjson/cJSON.h>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    struct Delete
    {
        void operator()(cJSON* tree) const { cJSON_Delete(tree); }
    };

    static std::unique_ptr<cJSON, Delete> Read(const std::string& text)
    {
        return std::unique_ptr<cJSON, Delete>(cJSON_ParseWithLength(text.data(), text.size()));
    }

    static std::string Write(const std::unique_ptr<cJSON, Delete>& tree)
    {
        char* const printed = cJSON_PrintUnformatted(tree.get());
        std::string text(printed);
        std::free(printed);
        return text;
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
