#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/Stopped.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Base::LoadShared;
using Tolvex::Base::StoreShared;
using Tolvex::Interfaces::IThread;
using Tolvex::Interfaces::Stopped;
using Tolvex::Support::Eventually;
using Tolvex::Support::LogFile;
using Tolvex::Support::Nap;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::underThreadSanitizer;

constexpr int scale = Tolvex::Support::threadsAreSlow ? 10 : 1;
constexpr int cycles = 20000 / scale;
constexpr int restarts = 10000 / scale;
constexpr int workersAtOnce = 64;

/// Counts its passes outside the object, and only yields between them.
class BusyThread : public IThread
{
public:
    explicit BusyThread(std::atomic<int>& counted) : passes(counted) {}

    using IThread::deleteOnStop;
    using IThread::running;

protected:
    void Run() override
    {
        ++passes;
        std::this_thread::yield();
    }

    // If Stopping() is overridden, Stop() tests once before its first sleep. Here the thread is
    // asked to end and given time, so that a cycle rarely costs a whole poll.
    void Stopping() override
    {
        StoreShared(running, false);
        for (int i = 0; i < 200 && !LoadShared(finished); ++i) {
            std::this_thread::sleep_for(10us);
        }
    }

private:
    std::atomic<int>& passes;
};

enum class Ending
{
    Stop,
    Cancel,
    Abort,
    Destructor,
    SelfDeletion
};

/// Creates, runs and destroys one object; the worker ends in the given way.
void LiveOnce(Ending ending, std::atomic<int>& passes)
{
    if (ending == Ending::SelfDeletion) {
        auto* const worker = new Stopped<BusyThread>(passes);
        worker->deleteOnStop = true;
        worker->Start();
        worker->Stop();
        return;
    }
    Stopped<BusyThread> worker(passes);
    worker.Start();
    switch (ending) {
        case Ending::Stop:
            return worker.Stop();
        case Ending::Cancel:
            worker.Cancel();
            EXPECT_TRUE(worker.WaitUntilFinished(patience));
            return;
        case Ending::Abort:
            return worker.Abort();
        case Ending::Destructor:
        case Ending::SelfDeletion:
            return;
    }
}

void LiveInParallel(int lives, const std::vector<Ending>& endings)
{
    constexpr int drivers = 8;
    std::atomic<int> passes = 0;
    std::atomic<int> next = 0;
    std::vector<std::thread> threads;
    threads.reserve(drivers);
    for (int i = 0; i < drivers; ++i) {
        threads.emplace_back([&] {
            for (int life = next++; life < lives; life = next++) {
                LiveOnce(endings[static_cast<std::size_t>(life) % endings.size()], passes);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(IThreadTortureTest, TwentyThousandObjectsAreStartedEndedInAllWaysAndDestroyed)
{
    LiveInParallel(cycles, {Ending::Stop, Ending::Cancel, Ending::Abort, Ending::Destructor,
                            Ending::SelfDeletion});
}

TEST(IThreadTortureTest, ObjectsThatLogAreStartedEndedInAllWaysAndDestroyed)
{
    LogFile log;

    LiveInParallel(cycles / 20, {Ending::Stop, Ending::Cancel, Ending::Abort, Ending::Destructor,
                                 Ending::SelfDeletion});

    // Each object has logged its start, and its end or its abort.
    EXPECT_TRUE(Eventually([&, lines = 0]() mutable {
        lines += static_cast<int>(log.TakeLines().size());
        return lines == 2 * (cycles / 20);
    }));
}

TEST(IThreadTortureTest, ManyWorkersAtOnceRunAndAreStoppedByTheOneThreadOrTheOther)
{
    std::atomic<int> running = 0;
    std::vector<std::unique_ptr<ProbeThread>> workers;
    for (int i = 0; i < workersAtOnce; ++i) {
        auto worker = std::make_unique<ProbeThread>();
        worker->SetThreadName("worker " + std::to_string(i));
        worker->onRunBefore = [&] { ++running; };
        worker->onRun = [probe = worker.get()] { probe->ThreadSleep(1ms, 1s); };
        worker->onRunAfter = [&] { --running; };
        workers.push_back(std::move(worker));
        workers.back()->Start();
    }
    EXPECT_TRUE(Eventually([&] { return running == workersAtOnce; }));

    std::vector<std::thread> stoppers;
    stoppers.reserve(workers.size());
    for (const auto& worker : workers) {
        stoppers.emplace_back([probe = worker.get()] { probe->Stop(); });
    }
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }

    EXPECT_EQ(running, 0);
    for (const auto& worker : workers) {
        EXPECT_FALSE(worker->IsRunning());
    }
}

TEST(IThreadTortureTest, OneObjectIsStartedTenThousandTimesAfterItsEnd)
{
    ProbeThread probe;
    int starts = 0;
    probe.onRunBefore = [&] { ++starts; };
    probe.onRun = [&] { StoreShared(probe.running, false); };

    for (int i = 0; i < restarts; ++i) {
        probe.Start();
        for (int looks = 0; !LoadShared(probe.finished); ++looks) {
            if (looks < 20) {  // the next start comes as close to the end as it can
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(100us);
            }
        }
        ASSERT_EQ(LoadShared(probe.threadHandle), 0U);
    }

    EXPECT_EQ(starts, restarts);
}

TEST(IThreadTortureTest, OneObjectIsSteeredByManyThreadsAtOnce)
{
    ProbeThread probe;
    std::atomic<int> inPass = 0;
    std::atomic<bool> overlap = false;
    probe.onRun = [&] {
        struct Presence
        {
            explicit Presence(std::atomic<int>& counted) : count(counted) { ++count; }
            ~Presence() { --count; }
            std::atomic<int>& count;
        };
        const Presence presence(inPass);
        overlap = overlap || inPass > 1;
        Nap(1ms);
    };
    const auto end = std::chrono::steady_clock::now() + 2s;
    const auto steer = [&](auto operation) {
        while (std::chrono::steady_clock::now() < end) {
            operation();
            std::this_thread::sleep_for(100us);
        }
    };

    std::vector<std::thread> threads;
    threads.emplace_back([&] { steer([&] { probe.Start(); }); });
    threads.emplace_back([&] { steer([&] { probe.Start(); }); });
    threads.emplace_back([&] { steer([&] { probe.Cancel(); }); });
    threads.emplace_back([&] { steer([&] { probe.Abort(); }); });
    threads.emplace_back([&] {
        steer([&] {
            if (!underThreadSanitizer) {
                probe.Pause();
            }
            probe.Resume();
        });
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    probe.Start();
    probe.Stop();

    EXPECT_FALSE(overlap);
    EXPECT_FALSE(probe.IsRunning());
}

}  // namespace
