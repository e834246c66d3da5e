// What does a log line cost that is handed to a writer thread? Processor time of all threads
// together, and wall time, of the file logger, of plain hand-overs of a ready-made line, and of one
// that composes the line first.
// The loads are an idle machine, two busy loops beside, one core only, and sparse lines.
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <linux/futex.h>
#include <mutex>
#include <sched.h>
#include <semaphore>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tolvex/Interfaces/ISemaphore.h"

#include "benchmarks/Log/Lines.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Benchmarks::HandOver;
using Tolvex::Benchmarks::ScratchPath;
using Tolvex::Benchmarks::StartProducers;
using Tolvex::Benchmarks::TolvexFourSteps;
using Clock = std::chrono::steady_clock;

constexpr auto timeOfLoad = 2000ms;  ///< all rounds together

/// A token by a mutex and a condition variable.
class ConditionToken
{
public:
    explicit ConditionToken(int initialCount) : count(initialCount) {}

    void acquire()
    {
        std::unique_lock lock(mutex);
        released.wait(lock, [this] { return count > 0; });
        --count;
    }

    void release()
    {
        {
            const std::lock_guard lock(mutex);
            ++count;
        }
        released.notify_one();
    }

private:
    int count;
    std::mutex mutex;  ///< guards count
    std::condition_variable released;
};

/// A token by bare futex calls. It never spins, and wakes only a thread that may be asleep.
class FutexToken
{
public:
    explicit FutexToken(int initialCount) : count(initialCount) {}

    void acquire()
    {
        for (int one = 1; !count.compare_exchange_strong(one, 0); one = 1) {
            ++sleepers;
            syscall(SYS_futex, &count, FUTEX_WAIT_PRIVATE, 0, nullptr);
            --sleepers;
        }
    }

    void release()
    {
        count = 1;
        if (sleepers > 0) {
            syscall(SYS_futex, &count, FUTEX_WAKE_PRIVATE, 1);
        }
    }

private:
    std::atomic<int> count;
    std::atomic<int> sleepers = 0;
};

/// A token by the library's semaphore: a mutex and a condition variable, notified under the mutex.
class LibraryToken
{
public:
    explicit LibraryToken(int initialCount) : semaphore(initialCount) {}

    void acquire() { semaphore.Wait(); }
    void release() { semaphore.Notify(); }

private:
    Tolvex::Interfaces::ISemaphore semaphore;
};

/// Composes a line with the functions of the C library, then hands it over.
class ComposedHandOver
{
public:
    void Write(int number)
    {
        const std::time_t now = std::time(nullptr);
        tm parts{};
        localtime_r(&now, &parts);
        std::array<char, 32> date{};
        std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &parts);
        std::array<char, 256> line{};
        std::snprintf(line.data(), line.size(), "[%s][ERROR][#WNET]%s%d\n", date.data(),
                      Tolvex::Benchmarks::payload.c_str(), number);
        handOver.Pass(line.data());
    }

    void Finish() { handOver.Finish(); }

private:
    HandOver<ConditionToken> handOver;
};

struct Load
{
    const char* name;
    std::size_t producers;
    int busyLoops = 0;                      ///< processes that compute meanwhile
    bool onOneCore = false;                 ///< all threads of this process
    std::chrono::microseconds period = 0s;  ///< of a producer's lines; 0: one after the other
    /// The result is the mean of the rounds. Each starts all threads and processes again, because
    /// the cost depends on the cores that the scheduler chooses for them. Sparse lines take one
    /// round: starting threads often would cost as much as the lines.
    int rounds = 16;
};

const std::vector<Load> loads = {
    {"1_producer", 1},
    {"4_producers", 4},
    {"1_producer_busy", 1, 2},
    {"4_producers_busy", 4, 2},
    {"1_producer_one_core", 1, 0, true},
    {"4_producers_one_core", 4, 0, true},
    {"4_producers_sparse", 4, 0, false, 10ms, 1},
};

/// Processes that compute until they are destroyed. Their time is not this process's.
class BusyLoops
{
public:
    explicit BusyLoops(int count)
    {
        for (int started = 0; started < count; ++started) {
            processes.push_back(fork());
            if (processes.back() == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                while (true) {
                    asm volatile("");
                }
            }
            if (processes.back() < 0) {
                std::abort();
            }
        }
    }

    BusyLoops(const BusyLoops&) = delete;
    BusyLoops& operator=(const BusyLoops&) = delete;

    ~BusyLoops()
    {
        for (const pid_t process : processes) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }

private:
    std::vector<pid_t> processes;
};

/// Restores the affinity of the calling thread at the end of a scope.
class Affinity
{
public:
    /// @param onOneCore  Hold the calling thread on one core, and each thread that it starts.
    explicit Affinity(bool onOneCore)
    {
        sched_getaffinity(0, sizeof before, &before);
        if (onOneCore) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
            if (sched_setaffinity(0, sizeof one, &one) != 0) {
                std::abort();
            }
        }
    }

    Affinity(const Affinity&) = delete;
    Affinity& operator=(const Affinity&) = delete;
    ~Affinity() { sched_setaffinity(0, sizeof before, &before); }

private:
    cpu_set_t before{};
};

/// Seconds that all threads of this process have computed, those that have ended included.
double ProcessorTime()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Seconds of a line.
struct Cost
{
    double processor = 0;  ///< of all threads of this process together
    double wall = 0;
};

// The busy loops start first, so that they keep all cores. The writer of the subject inherits the
// affinity.
template <typename Subject>
Cost MeasureRound(const Load& load)
{
    const BusyLoops busyLoops(load.busyLoops);
    const Affinity affinity(load.onOneCore);
    Subject subject;
    std::atomic<bool> stop = false;
    std::atomic<int> lines = 0;
    const double processorStart = ProcessorTime();
    const auto start = Clock::now();

    const auto produce = [&](std::size_t number) {
        // Producers with a period take turns, at equal distances.
        auto due = start + load.period * number / load.producers;
        int line = 0;
        for (; !stop; ++line) {
            if (load.period > 0s) {
                due += load.period;
                std::this_thread::sleep_until(due);
            }
            subject.Write(line);
        }
        lines += line;
    };
    std::vector<std::jthread> threads = StartProducers(load.producers, produce);
    std::this_thread::sleep_for(timeOfLoad / load.rounds);
    stop = true;
    threads.clear();
    subject.Finish();

    const std::chrono::duration<double> wall = Clock::now() - start;
    return {(ProcessorTime() - processorStart) / lines, wall.count() / lines};
}

template <typename Subject>
void MeasureLoad(benchmark::State& state, const Load& load)
{
    for ([[maybe_unused]] auto iteration : state) {
        Cost sum;
        for (int round = 0; round < load.rounds; ++round) {
            const Cost cost = MeasureRound<Subject>(load);
            sum.processor += cost.processor;
            sum.wall += cost.wall;
        }
        state.counters["cpu_per_line"] = sum.processor / load.rounds;
        state.counters["wall_per_line"] = sum.wall / load.rounds;
    }
    std::filesystem::remove(ScratchPath());
}

template <typename Subject>
bool Register(const std::string& name)
{
    for (const Load& load : loads) {
        benchmark::RegisterBenchmark((name + "/" + load.name).c_str(), MeasureLoad<Subject>, load)
            ->Iterations(1)
            ->Unit(benchmark::kSecond);
    }
    return true;
}

[[maybe_unused]] const bool registered =
    Register<TolvexFourSteps>("Tolvex") &&
    Register<HandOver<ConditionToken>>("condition_variable") &&
    Register<ComposedHandOver>("composed") && Register<HandOver<LibraryToken>>("ISemaphore") &&
    Register<HandOver<FutexToken>>("futex") &&
    Register<HandOver<std::binary_semaphore>>("binary_semaphore");

}  // namespace
