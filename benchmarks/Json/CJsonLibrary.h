/// @file
/// cJSON, as the benchmarks and the counts of instructions use it.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include <cjson/cJSON.h>

namespace Tolvex::Benchmarks {

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

}  // namespace Tolvex::Benchmarks
