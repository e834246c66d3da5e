// How fast does JsonCpp read and write the documents that Tolvex reads and writes?
#include <memory>

#include <json/json.h>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static Json::Value Read(const std::string& text)
    {
        static const std::unique_ptr<Json::CharReader> reader(
            Json::CharReaderBuilder().newCharReader());
        Json::Value tree;
        reader->parse(text.data(), text.data() + text.size(), &tree, nullptr);
        return tree;
    }

    static std::string Write(const Json::Value& tree)
    {
        static const Json::StreamWriterBuilder settings = [] {
            Json::StreamWriterBuilder compact;
            compact["indentation"] = "";
            return compact;
        }();
        return Json::writeString(settings, tree);
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
