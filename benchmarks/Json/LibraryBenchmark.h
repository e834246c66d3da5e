/// @file
/// Times one JSON library over all documents; each library's program includes this and registers
/// itself, so that no library's heap disturbs another's.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "benchmarks/Json/Corpora.h"

namespace Tolvex::Benchmarks {

/// A field of /proc/self/status, in bytes.
inline double ReadStatusBytes(const char* field)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> status(
        std::fopen("/proc/self/status", "r"), &std::fclose);
    char line[256];
    unsigned long kilobytes = 0;
    while (status != nullptr && std::fgets(line, sizeof line, status.get()) != nullptr) {
        if (std::strncmp(line, field, std::strlen(field)) == 0) {
            kilobytes = std::strtoul(line + std::strlen(field), nullptr, 10);
        }
    }
    return static_cast<double>(kilobytes) * 1024.0;
}

/// Lets the peak of the process's memory begin again at what it has now.
inline void ResetPeak()
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> control(
        std::fopen("/proc/self/clear_refs", "w"), &std::fclose);
    if (control != nullptr) {
        std::fputs("5", control.get());
    }
}

/// How far the process grows at most while a document is read and kept.
template <typename Library>
double MeasurePeak(const std::string& text)
{
    malloc_trim(0);
    ResetPeak();
    const double before = ReadStatusBytes("VmRSS:");
    const auto tree = Library::Read(text);
    benchmark::DoNotOptimize(&tree);
    return ReadStatusBytes("VmHWM:") - before;
}

template <typename Library>
void ReadCorpus(benchmark::State& state, const std::string& text)
{
    const double peak = MeasurePeak<Library>(text);
    for ([[maybe_unused]] auto _ : state) {
        auto tree = Library::Read(text);
        benchmark::DoNotOptimize(&tree);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    state.counters["peakBytesPerByte"] = peak / static_cast<double>(text.size());
}

template <typename Library>
void WriteCorpus(benchmark::State& state, const std::string& text)
{
    const auto tree = Library::Read(text);
    for ([[maybe_unused]] auto _ : state) {
        const std::string written = Library::Write(tree);
        benchmark::DoNotOptimize(written.data());
    }
    // By the text that was read, the same for all libraries: they format numbers differently.
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// Registers "read/<document>" (text to tree to destroyed) and "write/<document>" (tree to text).
template <typename Library>
int RegisterLibrary()
{
    static const std::vector<Corpus> corpora = MakeCorpora();
    for (const Corpus& corpus : corpora) {
        const std::string& text = corpus.text;
        benchmark::RegisterBenchmark(("read/" + corpus.name).c_str(),
                                     [&text](auto& state) { ReadCorpus<Library>(state, text); });
        benchmark::RegisterBenchmark(("write/" + corpus.name).c_str(),
                                     [&text](auto& state) { WriteCorpus<Library>(state, text); });
    }
    return 0;
}

}  // namespace Tolvex::Benchmarks
