// How fast are documents of several kinds read, destroyed and written, and in how much memory? Does
// the time grow as the length does?
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <vector>

#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"

#include "benchmarks/Json/LibraryBenchmark.h"
#include "benchmarks/Json/TolvexLibrary.h"

namespace {

using Tolvex::Benchmarks::Library;
using Tolvex::Json::Value;

const int registered = Tolvex::Benchmarks::RegisterLibrary<Library>();

// ------------------------------------------------------------------------------------------ memory

std::size_t HeapBytes(const std::string& text)
{
    return text.capacity() < sizeof(std::string) / 2 ? 0 : text.capacity() + 1;
}

/// What a tree cannot do without: its values, the nodes of its keys, long strings.
std::size_t TreeBytes(const Value& tree)
{
    constexpr std::size_t nodeBytes = 4 * sizeof(void*) + sizeof(std::string) + sizeof(Value);
    std::size_t bytes = 0;
    std::vector<const Value*> rest = {&tree};
    while (!rest.empty()) {
        const Value& value = *rest.back();
        rest.pop_back();
        switch (value.GetType()) {
            case Tolvex::Json::StringVal:
                bytes += HeapBytes(value.ToString());
                break;
            case Tolvex::Json::ArrayVal:
                bytes += value.AsArray().size() * sizeof(Value);
                for (const Value& element : value.AsArray()) {
                    rest.push_back(&element);
                }
                break;
            case Tolvex::Json::ObjectVal:
                for (const auto& [key, member] : value.AsObject()) {
                    bytes += nodeBytes + HeapBytes(key);
                    rest.push_back(&member);
                }
                break;
            case Tolvex::Json::NullVal:
            case Tolvex::Json::IntVal:
            case Tolvex::Json::FloatVal:
            case Tolvex::Json::DoubleVal:
            case Tolvex::Json::BoolVal:
                break;
        }
    }
    return bytes;
}

void MeasureMemory(benchmark::State& state, const std::string& text)
{
    double peak = 0;
    for ([[maybe_unused]] auto _ : state) {
        peak = Tolvex::Benchmarks::MeasurePeak<Library>(text);
    }
    state.counters["peak"] = peak;
    state.counters["tree"] = static_cast<double>(TreeBytes(Library::Read(text)));
}

// --------------------------------------------------------------------------------------- additions

/// What does it cost to ask for the error, where there is none?
void ReadWithError(benchmark::State& state, const std::string& text)
{
    for ([[maybe_unused]] auto _ : state) {
        Tolvex::Json::ParseError error;
        Value tree = Tolvex::Json::Deserialize(text, error);
        benchmark::DoNotOptimize(&tree);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// How fast is the writer that escapes, and keeps all digits of doubles?
void WriteStandard(benchmark::State& state, const std::string& text)
{
    const Value tree = Library::Read(text);
    for ([[maybe_unused]] auto _ : state) {
        const std::string written = Tolvex::Json::SerializeStandard(tree);
        benchmark::DoNotOptimize(written.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

// ------------------------------------------------------------------------------------------ growth

/// An array of an element over and over, so many bytes long.
std::string ArrayOf(const std::string& element, std::size_t bytes)
{
    std::string text = "[";
    while (text.size() < bytes) {
        text += element;
        text += ',';
    }
    text.back() = ']';
    return text;
}

std::string Numbers(std::size_t bytes)
{
    return ArrayOf("123456", bytes);
}

std::string Words(std::size_t bytes)
{
    return ArrayOf("\"front\"", bytes);
}

std::string Objects(std::size_t bytes)
{
    return ArrayOf(R"({"a":1,"b":"x"})", bytes);
}

std::string OneString(std::size_t bytes)
{
    std::string element(bytes, 'x');
    element.front() = element.back() = '"';
    return ArrayOf(element, bytes);
}

std::string Depth(std::size_t bytes)
{
    return std::string(bytes / 2, '[') + std::string(bytes / 2, ']');
}

/// Milliseconds that the system has spent on this process, on fresh memory above all.
double SystemMilliseconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_stime.tv_sec) * 1e3 +
           static_cast<double>(usage.ru_stime.tv_usec) / 1e3;
}

void ReadGrowing(benchmark::State& state, std::string (*make)(std::size_t))
{
    const std::string text = make(static_cast<std::size_t>(state.range(0)) << 20U);
    const double before = SystemMilliseconds();
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Library::Read(text));
    }
    state.counters["system_ms"] =
        benchmark::Counter(SystemMilliseconds() - before, benchmark::Counter::kAvgIterations);
}

/// What of the time and growth of an array is the machine's: as many values are made and destroyed.
template <typename Make>
void Fill(benchmark::State& state, std::size_t elementBytes, const Make& make)
{
    const auto count = (static_cast<std::size_t>(state.range(0)) << 20U) / elementBytes;
    for ([[maybe_unused]] auto _ : state) {
        std::vector<Value> values;
        values.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            make(values, i);
        }
        benchmark::DoNotOptimize(values.data());
    }
}

void FillValues(benchmark::State& state)
{
    Fill(state, std::string_view("123456,").size(),
         [](auto& values, std::size_t i) { values.emplace_back(static_cast<int>(i)); });
}

void FillWords(benchmark::State& state)
{
    Fill(state, std::string_view("\"front\",").size(),
         [](auto& values, std::size_t /*i*/) { values.emplace_back("front"); });
}

/// What of the growth of a string is the machine's: the bytes are copied once.
void CopyText(benchmark::State& state)
{
    const std::string text = OneString(static_cast<std::size_t>(state.range(0)) << 20U);
    for ([[maybe_unused]] auto _ : state) {
        std::string copy(text);
        benchmark::DoNotOptimize(copy.data());
    }
}

/// The least of three runs: memory that the system hands out for the first time costs extra.
void TakeLeast(benchmark::internal::Benchmark* growing)
{
    const auto least = [](const std::vector<double>& times) {
        return *std::min_element(times.begin(), times.end());
    };
    growing->Arg(1)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);
    growing->Repetitions(3)->ComputeStatistics("least", least)->ReportAggregatesOnly();
}

const int alsoRegistered = [] {
    static const std::vector<Tolvex::Benchmarks::Corpus> corpora =
        Tolvex::Benchmarks::MakeCorpora();
    for (const auto& corpus : corpora) {
        benchmark::RegisterBenchmark(("memory/" + corpus.name).c_str(), [&](auto& state) {
            MeasureMemory(state, corpus.text);
        })->Iterations(1);
        benchmark::RegisterBenchmark(("readWithError/" + corpus.name).c_str(),
                                     [&](auto& state) { ReadWithError(state, corpus.text); });
        benchmark::RegisterBenchmark(("writeStandard/" + corpus.name).c_str(),
                                     [&](auto& state) { WriteStandard(state, corpus.text); });
    }
    return 0;
}();

BENCHMARK_CAPTURE(ReadGrowing, numbers, &Numbers)->Apply(TakeLeast);
BENCHMARK_CAPTURE(ReadGrowing, words, &Words)->Apply(TakeLeast);
BENCHMARK_CAPTURE(ReadGrowing, objects, &Objects)->Apply(TakeLeast);
BENCHMARK_CAPTURE(ReadGrowing, string, &OneString)->Apply(TakeLeast);
BENCHMARK_CAPTURE(ReadGrowing, depth, &Depth)->Apply(TakeLeast);
BENCHMARK(FillValues)->Apply(TakeLeast);
BENCHMARK(FillWords)->Apply(TakeLeast);
BENCHMARK(CopyText)->Apply(TakeLeast);

}  // namespace
