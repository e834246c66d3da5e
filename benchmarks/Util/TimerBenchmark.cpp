// How late do periodic calls come, and how many get lost, next to a thread that reads a timerfd and
// next to Boost.Asio's steady_timer?
//
// Five seconds each. Late is the time since the last instant at which a call was due, in
// microseconds; lost are the instants that no call answers. The Timer starts a thread for every
// call, its peers call on one thread that waits.

#include "Tolvex/Util/Timer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto runTime = 5s;

/// When each call came.
class Calls
{
public:
    void Note()
    {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex);
        times.push_back(now);
    }

    /// Leaves the figures of the calls since start in the state.
    void Report(benchmark::State& state, Clock::time_point start, milliseconds period)
    {
        const std::lock_guard lock(mutex);
        std::vector<double> late;
        for (const auto time : times) {
            if (time < start + runTime) {
                late.push_back(
                    std::chrono::duration<double, std::micro>((time - start) % period).count());
            }
        }
        std::sort(late.begin(), late.end());

        const auto due = static_cast<double>(runTime / period - 1);
        const auto count = static_cast<double>(late.size());
        state.counters["calls"] = count;
        state.counters["lost"] = std::max(0.0, due - count);
        if (!late.empty()) {
            state.counters["late_p50_us"] = late[late.size() / 2];
            state.counters["late_p99_us"] = late[late.size() * 99 / 100];
            state.counters["late_max_us"] = late.back();
        }
    }

private:
    std::vector<Clock::time_point> times;
    std::mutex mutex;
};

void Timer(benchmark::State& state)
{
    const milliseconds period(state.range(0));
    for (auto _ : state) {
        const auto calls = std::make_shared<Calls>();
        Tolvex::Util::Timer timer(
            0, [calls](Tolvex::Util::Timer*) { calls->Note(); }, nullptr, 16384);
        const auto start = Clock::now();
        timer.SetTime(static_cast<int>(period.count()));
        std::this_thread::sleep_until(start + runTime);
        timer.Remove();
        calls->Report(state, start, period);
    }
}

void TimerfdThread(benchmark::State& state)
{
    const milliseconds period(state.range(0));
    for (auto _ : state) {
        Calls calls;
        const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
        itimerspec times = {};
        times.it_interval.tv_nsec = static_cast<long>(period.count() * 1000000);
        times.it_value = times.it_interval;
        const auto start = Clock::now();
        timerfd_settime(descriptor, 0, &times, nullptr);

        std::thread reader([&] {
            std::uint64_t expiries = 0;
            while (Clock::now() < start + runTime) {
                if (read(descriptor, &expiries, sizeof expiries) > 0) {
                    calls.Note();
                }
            }
        });
        reader.join();
        close(descriptor);
        calls.Report(state, start, period);
    }
}

/// Waits for the timer's next instant, again and again, until end.
void WaitAgain(boost::asio::steady_timer& timer, Calls& calls, milliseconds period,
               Clock::time_point end)
{
    timer.async_wait([&timer, &calls, period, end](const boost::system::error_code& error) {
        calls.Note();
        if (!error && timer.expiry() < end) {
            timer.expires_at(timer.expiry() + period);
            WaitAgain(timer, calls, period, end);
        }
    });
}

void AsioSteadyTimer(benchmark::State& state)
{
    const milliseconds period(state.range(0));
    for (auto _ : state) {
        Calls calls;
        boost::asio::io_context context;
        const auto start = Clock::now();
        boost::asio::steady_timer timer(context, start + period);
        WaitAgain(timer, calls, period, start + runTime);

        std::thread runner([&context] { context.run(); });
        runner.join();
        calls.Report(state, start, period);
    }
}

BENCHMARK(Timer)->Arg(1)->Arg(10)->ArgName("ms")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(TimerfdThread)
    ->Arg(1)
    ->Arg(10)
    ->ArgName("ms")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(AsioSteadyTimer)
    ->Arg(1)
    ->Arg(10)
    ->ArgName("ms")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
