// How fast does RapidJSON read and write the documents that Tolvex reads and writes?
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static rapidjson::Document Read(const std::string& text)
    {
        rapidjson::Document tree;
        tree.Parse(text.data(), text.size());
        return tree;
    }

    static std::string Write(const rapidjson::Document& tree)
    {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        tree.Accept(writer);
        return {buffer.GetString(), buffer.GetSize()};
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
