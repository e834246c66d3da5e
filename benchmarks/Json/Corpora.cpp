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

/// What people write: long strings, some with escapes and letters beyond ASCII.
void MakeMessage(Sequence& numbers, Buffer& text)
{
    constexpr std::array<const char*, 4> words = {
        "The camera has seen a vehicle that crossed the line without a signal; see the recording.",
        R"(Driver said: \"I did not see the sign\".\nA second entry follows on the next line.)",
        "Die T\u00fcr war ge\u00f6ffnet, la porte \u00e9tait ouverte, \u30c9\u30a2\u304c\u958b.",
        R"(C:\\recordings\\trip \u2013 overview and everything else that a long text holds.)"};
    std::snprintf(text.data(), text.size(),
                  R"({"id":"%08x-%04x","user":"driver %u","subject":"Event %u of the trip",)"
                  R"("text":"%s %s","read":%s})",
                  numbers.Next(1U << 24U), numbers.Next(65536), numbers.Next(1000),
                  numbers.Next(100), words.at(numbers.Next(4)), words.at(numbers.Next(4)),
                  numbers.Next(2) == 0 ? "false" : "true");
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

std::string MakeCorpus(const std::string& name)
{
    if (name == "canada") {
        return LoadDocument("canada.json");
    }
    if (name == "citm") {
        return LoadDocument("citm_catalog.json");
    }
    if (name == "telemetry4MB") {
        return MakeArrayOf(&MakeTelemetry, 4 * megabyte);
    }
    if (name == "messages") {
        return MakeArrayOf(&MakeMessage, 6 * megabyte / 10);
    }
    if (name.starts_with("objects")) {
        return MakeArrayOf(&MakeSmallObject, std::stoul(name.substr(7)) * megabyte);
    }
    throw std::runtime_error("no document " + name);
}

std::vector<Corpus> MakeCorpora()
{
    std::vector<Corpus> corpora;
    for (const char* name : {"canada", "citm", "telemetry4MB", "objects1MB", "objects4MB",
                             "objects16MB", "objects64MB"}) {
        corpora.push_back({name, MakeCorpus(name)});
    }
    return corpora;
}

}  // namespace Tolvex::Benchmarks
