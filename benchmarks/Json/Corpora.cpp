#include "benchmarks/Json/Corpora.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Tolvex::Benchmarks {

namespace {

std::string LoadDocument(const std::string& fileName)
{
    std::ifstream file(TOLVEX_BENCHMARK_DATA "/" + fileName, std::ios::binary);
    std::ostringstream text;
    if (!(text << file.rdbuf())) {
        throw std::runtime_error("cannot read " + fileName);
    }
    return text.str();
}

/// Small numbers, the same in every run.
class Sequence
{
public:
    unsigned int Next(unsigned int bound)
    {
        state = state * 1664525U + 1013904223U;
        return (state >> 8U) % bound;
    }

private:
    unsigned int state = 1;
};

using Buffer = std::array<char, 512>;

void MakeSmallObject(Sequence& numbers, Buffer& text)
{
    std::snprintf(text.data(), text.size(),
                  R"({"id":%u,"name":"item %u","price":%u.%02u,"stock":%u,"active":true})",
                  numbers.Next(1000000), numbers.Next(1000), numbers.Next(1000), numbers.Next(100),
                  numbers.Next(100));
}

/// What a camera sends: many short keys, numbers, a few strings.
void MakeTelemetry(Sequence& numbers, Buffer& text)
{
    std::snprintf(text.data(), text.size(),
                  R"({"t":%u,"lat":44.%06u,"lon":11.%06u,"spd":%u.%u,"acc":[%u,-%u,%u],"fix":true,)"
                  R"("sat":%u,"tmp":%u,"ev":"none","cam":{"fps":30,"br":%u,"st":"recording"}})",
                  1700000000U + numbers.Next(1000000), numbers.Next(1000000), numbers.Next(1000000),
                  numbers.Next(130), numbers.Next(10), numbers.Next(100), numbers.Next(100),
                  numbers.Next(100), numbers.Next(12), 40 + numbers.Next(20), numbers.Next(4000));
}

/// An array of objects, at least so many bytes long.
std::string MakeArrayOf(void (*makeObject)(Sequence&, Buffer&), std::size_t bytes)
{
    Sequence numbers;
    Buffer object;
    std::string text;
    text.reserve(bytes + object.size());
    for (char separator = '['; text.size() < bytes; separator = ',') {
        makeObject(numbers, object);
        text += separator;
        text += object.data();
    }
    text += ']';
    return text;
}

constexpr std::size_t megabyte = 1U << 20U;

}  // namespace

std::vector<Corpus> MakeCorpora()
{
    std::vector<Corpus> corpora = {{"canada", LoadDocument("canada.json")},
                                   {"citm", LoadDocument("citm_catalog.json")},
                                   {"telemetry4MB", MakeArrayOf(&MakeTelemetry, 4 * megabyte)}};
    for (const std::size_t size : {1U, 4U, 16U, 64U}) {
        corpora.push_back({"objects" + std::to_string(size) + "MB",
                           MakeArrayOf(&MakeSmallObject, size * megabyte)});
    }
    return corpora;
}

}  // namespace Tolvex::Benchmarks
