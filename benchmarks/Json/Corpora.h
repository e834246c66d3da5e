/// @file
/// The documents that all JSON benchmarks read and write.
#pragma once

#include <string>
#include <vector>

namespace Tolvex::Benchmarks {

struct Corpus
{
    std::string name;
    std::string text;
};

/// @return the text of one document: of data/ ("canada", "citm") or generated ("telemetry4MB",
/// "messages", "objects1MB"), the same in every run. @throws std::runtime_error for any other name.
std::string MakeCorpus(const std::string& name);

/// All documents but "messages", and longer objects.
std::vector<Corpus> MakeCorpora();

}  // namespace Tolvex::Benchmarks
