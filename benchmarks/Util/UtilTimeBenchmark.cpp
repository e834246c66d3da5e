// The log stamps every line: what does NewDate() cost beyond the C library's localtime_r() and
// strftime(), into a buffer and into a string? Each rate is texts per second.
#include "Tolvex/Util/UtilTime.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <string>

#include <benchmark/benchmark.h>

namespace {

constexpr const char* logFormat = "%Y-%m-%d %H:%M:%S";

std::size_t FormatNow(std::array<char, 128>& buffer)
{
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return std::strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M:%S", &local);
}

void BareBuffer(benchmark::State& state)
{
    std::array<char, 128> buffer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(FormatNow(buffer));
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations());
}

void BareString(benchmark::State& state)
{
    std::array<char, 128> buffer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::string(buffer.data(), FormatNow(buffer)));
    }
    state.SetItemsProcessed(state.iterations());
}

void NewDate(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Util::NewDate(logFormat));
    }
    state.SetItemsProcessed(state.iterations());
}

void DateISO(benchmark::State& state)
{
    const time_t now = std::time(nullptr);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Util::DateISO(now));
    }
    state.SetItemsProcessed(state.iterations());
}

void Str2Time(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Util::Str2Time(std::string("2021-03-04 05:06:07")));
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BareBuffer);
BENCHMARK(BareString);
BENCHMARK(NewDate);
BENCHMARK(DateISO);
BENCHMARK(Str2Time);

}  // namespace
