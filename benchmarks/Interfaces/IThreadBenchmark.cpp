#include "Tolvex/Interfaces/IThread.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/Stopped.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Base::LoadShared;
using Tolvex::Base::StoreShared;
using Tolvex::Interfaces::IThread;
using Tolvex::Interfaces::Stopped;
using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

/// CPU time of the calling thread: what a pass costs, whatever else the machine does.
double CpuSeconds()
{
    timespec used = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

/// Notes when it began, and ends by itself.
class Starter : public IThread
{
public:
    std::atomic<Clock::time_point> begun;

    void AwaitEnd() const
    {
        while (!LoadShared(finished)) {
            std::this_thread::yield();
        }
    }

protected:
    void RunBefore() override { begun = Clock::now(); }
    void Run() override { StoreShared(running, false); }
};

// How long is it from Start() to the first instruction of the worker?
void StartToFirstInstruction(benchmark::State& state)
{
    Stopped<Starter> starter;
    for (auto _ : state) {
        const auto begin = Clock::now();
        starter.Start();
        starter.AwaitEnd();
        state.SetIterationTime(Seconds(starter.begun.load() - begin));
    }
}
BENCHMARK(StartToFirstInstruction)->UseManualTime();

/// Sleeps in short steps, so that it leaves its pass soon.
class Sleeper : public IThread
{
protected:
    void Run() override { ThreadSleep(1000ms, 1ms); }
};

// What does Stop() add to the 100 ms of its poll, which are its floor?
void StopLatency(benchmark::State& state)
{
    Stopped<Sleeper> sleeper;
    for (auto _ : state) {
        sleeper.Start();
        const auto begin = Clock::now();
        sleeper.Stop();
        state.SetIterationTime(Seconds(Clock::now() - begin));
    }
}
BENCHMARK(StopLatency)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

/// Makes a given number of empty passes and ends.
class EmptyPasses : public IThread
{
public:
    explicit EmptyPasses(std::int64_t passes) : left(passes) {}

    double seconds = 0;

    void AwaitEnd() const
    {
        while (!LoadShared(finished)) {
            std::this_thread::sleep_for(1ms);
        }
    }

protected:
    void RunBefore() override { begin = CpuSeconds(); }

    [[gnu::noinline]] void Run() override
    {
        if (--left == 0) {
            StoreShared(running, false);
        }
    }

    void RunAfter() override { seconds = CpuSeconds() - begin; }

private:
    std::int64_t left;
    double begin = 0;
};

constexpr std::int64_t passesPerRun = 20000000;

// What does the run loop cost per empty pass? To be held against BareLoop: 3 ns more at most.
void EmptyPass(benchmark::State& state)
{
    for (auto _ : state) {
        Stopped<EmptyPasses> passes(passesPerRun);
        passes.Start();
        passes.AwaitEnd();
        state.SetIterationTime(passes.seconds);
    }
    state.SetItemsProcessed(state.iterations() * passesPerRun);
}
BENCHMARK(EmptyPass)->UseManualTime();

/// The same work behind a plain virtual call.
class BareWork
{
public:
    virtual ~BareWork() = default;
    virtual void Run() = 0;
    bool running = true;
};

class BareEmptyWork : public BareWork
{
public:
    [[gnu::noinline]] void Run() override
    {
        if (--left == 0) {
            StoreShared(running, false);
        }
    }

private:
    std::int64_t left = passesPerRun;
};

// What does a bare loop over a virtual call cost, with a flag that another thread could clear?
void BareLoop(benchmark::State& state)
{
    for (auto _ : state) {
        std::unique_ptr<BareWork> work = std::make_unique<BareEmptyWork>();
        BareWork* pointer = work.get();
        benchmark::DoNotOptimize(pointer);  // the type is not known to the loop

        const double begin = CpuSeconds();
        while (LoadShared(pointer->running)) {
            pointer->Run();
        }
        state.SetIterationTime(CpuSeconds() - begin);
    }
    state.SetItemsProcessed(state.iterations() * passesPerRun);
}
BENCHMARK(BareLoop)->UseManualTime();

class IdleWorker : public IThread
{
protected:
    void Run() override {}
};

class CountingDelegate : public IThread::IThreadDelegate
{
public:
    void Invoke(IThread* /*thread*/, void* /*data*/) override { ++count; }

    std::int64_t count = 0;
};

// What does a notification cost, with no delegate, with one and with several?
void DoCallback(benchmark::State& state)
{
    IdleWorker worker;
    std::vector<CountingDelegate> delegates(static_cast<std::size_t>(state.range(0)));
    for (CountingDelegate& delegate : delegates) {
        worker.AddCallback(&delegate);
    }

    for (auto _ : state) {
        worker.DoCallback(nullptr);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DoCallback)->Arg(0)->Arg(1)->Arg(8);

}  // namespace
