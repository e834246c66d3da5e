// What does a token cost when no thread waits for it? How fast do two threads pass one back and
// forth?
// ISemaphore against std::counting_semaphore and sem_t, which both do without a mutex.
#include "Tolvex/Interfaces/ISemaphore.h"

#include <semaphore.h>
#include <semaphore>
#include <thread>

#include <benchmark/benchmark.h>

namespace {

using Tolvex::Interfaces::ISemaphore;

class TolvexSemaphore
{
public:
    void Notify() { semaphore.Notify(); }
    void Wait() { semaphore.Wait(); }
    bool TryWait() { return semaphore.TryWait(); }

private:
    ISemaphore semaphore{0};
};

class StandardSemaphore
{
public:
    void Notify() { semaphore.release(); }
    void Wait() { semaphore.acquire(); }
    bool TryWait() { return semaphore.try_acquire(); }

private:
    std::counting_semaphore<> semaphore{0};
};

class PosixSemaphore
{
public:
    PosixSemaphore() { sem_init(&semaphore, 0, 0); }
    PosixSemaphore(const PosixSemaphore&) = delete;
    PosixSemaphore& operator=(const PosixSemaphore&) = delete;
    ~PosixSemaphore() { sem_destroy(&semaphore); }

    void Notify() { sem_post(&semaphore); }
    void Wait()
    {
        while (sem_wait(&semaphore) != 0) {
            // interrupted by a signal
        }
    }
    bool TryWait() { return sem_trywait(&semaphore) == 0; }

private:
    sem_t semaphore{};
};

// One token in, one out, on one thread; the rate is pairs per second.
template <typename Semaphore>
void NotifyAndTryWait(benchmark::State& state)
{
    Semaphore semaphore;
    for (auto _ : state) {
        semaphore.Notify();
        benchmark::DoNotOptimize(semaphore.TryWait());
    }
    state.SetItemsProcessed(state.iterations());
}

// A token goes to another thread and comes back; the rate is round trips per second.
template <typename Semaphore>
void PingPong(benchmark::State& state)
{
    Semaphore there;
    Semaphore back;
    bool stopping = false;
    std::thread partner([&] {
        for (;;) {
            there.Wait();
            if (stopping) {
                return;
            }
            back.Notify();
        }
    });

    for (auto _ : state) {
        there.Notify();
        back.Wait();
    }
    state.SetItemsProcessed(state.iterations());

    stopping = true;
    there.Notify();
    partner.join();
}

BENCHMARK(NotifyAndTryWait<TolvexSemaphore>);
BENCHMARK(NotifyAndTryWait<StandardSemaphore>);
BENCHMARK(NotifyAndTryWait<PosixSemaphore>);
BENCHMARK(PingPong<TolvexSemaphore>)->UseRealTime();
BENCHMARK(PingPong<StandardSemaphore>)->UseRealTime();
BENCHMARK(PingPong<PosixSemaphore>)->UseRealTime();

}  // namespace
