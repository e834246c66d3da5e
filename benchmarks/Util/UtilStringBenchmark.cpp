// Is Replace() at least as fast as boost's replace_all_copy(), and does its cost stay linear when
// every byte is a match and when every position nearly is one? Each rate is source bytes per
// second.
#include "Tolvex/Util/UtilString.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/algorithm/string/replace.hpp>

namespace {

struct Task
{
    std::string source;
    std::string from;
    std::string to;
};

std::string Repeat(const std::string& text, std::size_t bytes)
{
    std::string result;
    while (result.size() < bytes) {
        result += text;
    }
    result.resize(bytes);
    return result;
}

const std::string logText =
    "[2021-03-04 05:06:07][45C][WARNING][#WNET]the interface wlan0 is not present; retry\n";

Task LogLines(std::size_t bytes)
{
    return {Repeat(logText, bytes), "wlan0", "eth1"};
}

Task FrequentFirstByte(std::size_t bytes)
{
    return {Repeat(logText, bytes), "ent;", " there;"};
}

Task NoMatch(std::size_t bytes)
{
    return {Repeat(logText, bytes), "[ERROR]", "[NOTICE]"};
}

Task EveryByte(std::size_t bytes)
{
    return {std::string(bytes, 'a'), "a", "bb"};
}

Task NearlyEverywhere(std::size_t bytes)
{
    return {std::string(bytes, 'a'), std::string(bytes / 4, 'a') + "b", "c"};
}

using MakeTask = Task (*)(std::size_t bytes);

void ReplaceOfTolvex(benchmark::State& state, MakeTask make)
{
    const Task task = make(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Util::Replace(task.source, task.from, task.to));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void ReplaceOfBoost(benchmark::State& state, MakeTask make)
{
    const Task task = make(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            boost::algorithm::replace_all_copy(task.source, task.from, task.to));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

constexpr std::int64_t line = 80;
constexpr std::int64_t file = 65536;
constexpr std::int64_t large = 1048576;

BENCHMARK_CAPTURE(ReplaceOfTolvex, LogLines, LogLines)->Arg(line)->Arg(file)->Arg(large);
BENCHMARK_CAPTURE(ReplaceOfBoost, LogLines, LogLines)->Arg(line)->Arg(file)->Arg(large);
BENCHMARK_CAPTURE(ReplaceOfTolvex, FrequentFirstByte, FrequentFirstByte)->Arg(line)->Arg(file);
BENCHMARK_CAPTURE(ReplaceOfBoost, FrequentFirstByte, FrequentFirstByte)->Arg(line)->Arg(file);
BENCHMARK_CAPTURE(ReplaceOfTolvex, NoMatch, NoMatch)->Arg(line)->Arg(file);
BENCHMARK_CAPTURE(ReplaceOfBoost, NoMatch, NoMatch)->Arg(line)->Arg(file);
BENCHMARK_CAPTURE(ReplaceOfTolvex, EveryByte, EveryByte)->Arg(line)->Arg(file)->Arg(large);
BENCHMARK_CAPTURE(ReplaceOfBoost, EveryByte, EveryByte)->Arg(line)->Arg(file)->Arg(large);
BENCHMARK_CAPTURE(ReplaceOfTolvex, NearlyEverywhere, NearlyEverywhere)->Arg(4096)->Arg(file);
BENCHMARK_CAPTURE(ReplaceOfBoost, NearlyEverywhere, NearlyEverywhere)->Arg(4096)->Arg(file);

}  // namespace
