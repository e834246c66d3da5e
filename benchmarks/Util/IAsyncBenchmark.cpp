// How long does it take from the request for a call on a thread of its own to the first instruction
// of that call? Each round waits for the call, so rounds do not overlap.

#include "Tolvex/Util/IAsync.h"

#include <chrono>
#include <future>
#include <semaphore>
#include <thread>

#include <benchmark/benchmark.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Where a call leaves the instant of its first instruction.
struct Arrival
{
    Clock::time_point instant;
    std::binary_semaphore arrived{0};

    void Mark()
    {
        instant = Clock::now();
        arrived.release();
    }
};

/// Repeats a round that has Mark() called on a new thread; the time counted is that until the mark.
template <typename Round>
void Measure(benchmark::State& state, Round round)
{
    Arrival arrival;
    for (auto _ : state) {
        const auto start = Clock::now();
        round(arrival);
        arrival.arrived.acquire();
        state.SetIterationTime(std::chrono::duration<double>(arrival.instant - start).count());
    }
    state.SetItemsProcessed(state.iterations());
}

void IAsyncDelayZero(benchmark::State& state)
{
    Measure(state, [](Arrival& arrival) {
        new Tolvex::Util::IAsync(
            0ms,
            [&arrival](Tolvex::Util::IAsync* async) {
                arrival.Mark();
                delete async;
            },
            nullptr);
    });
}

void StdThreadDetach(benchmark::State& state)
{
    Measure(state, [](Arrival& arrival) { std::thread([&arrival] { arrival.Mark(); }).detach(); });
}

void StdAsync(benchmark::State& state)
{
    std::future<void> last;
    Measure(state, [&last](Arrival& arrival) {
        last = std::async(std::launch::async, [&arrival] { arrival.Mark(); });
    });
}

BENCHMARK(IAsyncDelayZero)->UseManualTime();
BENCHMARK(StdThreadDetach)->UseManualTime();
BENCHMARK(StdAsync)->UseManualTime();

}  // namespace
