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

/// The documents of data/ and generated ones, the same in every run.
std::vector<Corpus> MakeCorpora();

}  // namespace Tolvex::Benchmarks
