// Thousands of timers that are destroyed while they fire. For the address sanitizer and valgrind.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Util/Timer.h"

namespace Tolvex::Util {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t timerCount = 5000;
constexpr std::size_t threadCount = 4;
constexpr std::size_t aliveAtOnce = 6;  // timers of one thread
constexpr auto timeLimit = 20s;  // for emulated or instrumented runs, which make fewer timers
constexpr auto longest = 60s;

struct Totals
{
    std::atomic<std::size_t> made = 0;
    std::atomic<std::size_t> released = 0;  ///< states destroyed
    std::atomic<std::size_t> calls = 0;
    std::atomic<std::size_t> broken = 0;  ///< states that were found broken
};

/// The state that a callback owns and changes; freed with the last copy of the callable.
class State
{
public:
    explicit State(std::shared_ptr<Totals> sum) : totals(std::move(sum)), numbers(64)
    {
        std::iota(numbers.begin(), numbers.end(), 0U);
    }

    ~State()
    {
        Check();
        numbers.clear();
        ++totals->released;
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void Work()
    {
        const std::lock_guard lock(mutex);
        Check();
        for (std::uint32_t& number : numbers) {
            ++number;
        }
        ++offset;
        ++totals->calls;
    }

    bool IsFirst() { return !taken.exchange(true); }

private:
    void Check()
    {
        for (std::uint32_t i = 0; i < 64; ++i) {
            if (numbers.size() != 64 || numbers[i] != i + offset) {
                ++totals->broken;
                return;
            }
        }
    }

    std::shared_ptr<Totals> totals;
    std::vector<std::uint32_t> numbers;
    std::uint32_t offset = 0;
    std::atomic<bool> taken = false;
    std::mutex mutex;
};

/// Owned by the array; every eighth one by its own callback.
class Round
{
public:
    explicit Round(std::shared_ptr<Totals> sum) : totals(std::move(sum)) {}

    void Build(std::size_t number)
    {
        Timer*& slot = timers[number % aliveAtOnce];
        delete slot;
        slot = nullptr;

        ++totals->made;
        auto state = std::make_unique<State>(totals);
        if (number % 8 == 0) {
            new Timer(1, DeletingItsTimer(std::move(state)), nullptr, 65536);
        } else {
            const auto pause = number % 5 == 0 ? 3ms : 0ms;  // beyond the life of the timer
            slot = new Timer(1, Working(std::move(state), pause), nullptr, 65536);
        }
    }

    void Clear()
    {
        for (Timer*& timer : timers) {
            delete timer;
            timer = nullptr;
        }
    }

private:
    static std::function<void(Timer*)> Working(std::shared_ptr<State> state,
                                               std::chrono::milliseconds pause)
    {
        return [held = std::move(state), pause](Timer*) {
            held->Work();
            std::this_thread::sleep_for(pause);
            held->Work();
        };
    }

    static std::function<void(Timer*)> DeletingItsTimer(std::shared_ptr<State> state)
    {
        return [held = std::move(state)](Timer* self) {
            if (held->IsFirst()) {
                delete self;
            }
            held->Work();
        };
    }

    std::shared_ptr<Totals> totals;
    std::array<Timer*, aliveAtOnce> timers{};
};

TEST(TimerTortureTest, TimersDestroyedWhileTheyFireTouchNothingThatIsFreed)
{
    const auto totals = std::make_shared<Totals>();
    std::vector<std::thread> threads;
    const auto end = Clock::now() + timeLimit;

    for (std::size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back([totals, end] {
            Round round(totals);
            for (std::size_t n = 0; n < timerCount / threadCount && Clock::now() < end; ++n) {
                round.Build(n);
                std::this_thread::sleep_for(500us);
            }
            round.Clear();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto late = Clock::now() + longest;
         totals->released < totals->made && Clock::now() < late;) {
        std::this_thread::sleep_for(1ms);
    }

    EXPECT_EQ(totals->broken, 0U);
    EXPECT_EQ(totals->released, totals->made);
    EXPECT_GE(totals->calls, totals->made / 10);
    RecordProperty("timers", std::to_string(totals->made));
    RecordProperty("calls", std::to_string(totals->calls));
    std::cout << totals->made << " timers, " << totals->calls << " calls\n";
}

}  // namespace
}  // namespace Tolvex::Util
