#include "Tolvex/Util/SunCalculator.h"

#include <benchmark/benchmark.h>

namespace {

using Tolvex::Util::SunCalculator;

constexpr std::time_t firstDay = 1704110400;  // 2024-01-01 12:00:00 UTC
constexpr std::time_t secondsOfADay = 86400;
constexpr std::time_t daysOfACentury = 36525;

// How many days' sunrise and sunset are computed per second?
void ComputesTimesOfDays(benchmark::State& state)
{
    const SunCalculator calculator;
    std::time_t day = 0;

    for (auto _ : state) {
        benchmark::DoNotOptimize(calculator.GetTimes(firstDay + day * secondsOfADay, 48.14, 11.58));
        day = (day + 1) % daysOfACentury;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ComputesTimesOfDays);

}  // namespace
