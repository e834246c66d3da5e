// How many instructions does it take to read, destroy and write the documents? TOLVEX_JSON_LIBRARY
// names the header of the library.
#include TOLVEX_JSON_LIBRARY

#include "benchmarks/Instructions/Operations.h"
#include "benchmarks/Json/Corpora.h"

namespace {

using namespace Tolvex::Benchmarks;

void Read(const std::string& document, int count)
{
    const std::string text = MakeCorpus(document);
    for (int i = 0; i < count; ++i) {
        auto tree = Library::Read(text);
        Keep(tree);
    }
}

void Write(const std::string& document, int count)
{
    const auto tree = Library::Read(MakeCorpus(document));
    for (int i = 0; i < count; ++i) {
        std::string written = Library::Write(tree);
        Keep(written);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<Operation> operations;
    for (const char* document : {"canada", "citm", "messages", "objects1MB", "telemetry4MB"}) {
        const std::string name = document;
        operations.push_back({"read/" + name, 1, [name](int count) { Read(name, count); }});
        operations.push_back({"write/" + name, 1, [name](int count) { Write(name, count); }});
    }
    return RunOperation(operations, argc, argv);
}
