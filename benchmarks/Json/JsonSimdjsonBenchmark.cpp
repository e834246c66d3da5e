// How fast does simdjson (its DOM) read and write the documents that Tolvex reads and writes?
#include <memory>

#include <simdjson.h>

#include "benchmarks/Json/LibraryBenchmark.h"

namespace {

struct Library
{
    static std::unique_ptr<simdjson::dom::parser> Read(const std::string& text)
    {
        auto tree = std::make_unique<simdjson::dom::parser>();  // the parser owns the tree
        (void)tree->parse(text);
        return tree;
    }

    static std::string Write(const std::unique_ptr<simdjson::dom::parser>& tree)
    {
        return simdjson::minify(simdjson::dom::element(tree->doc.root()));
    }
};

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

}  // namespace
