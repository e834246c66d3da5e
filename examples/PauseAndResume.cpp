// Shows that a paused worker makes no pass, and continues when it is resumed.
#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

#include "Tolvex/Interfaces/Stopped.h"

using namespace std::chrono_literals;

class Worker : public Tolvex::Interfaces::IThread
{
public:
    std::atomic<int> passes = 0;

    void AwaitPasses(int count) const
    {
        for (const int before = passes; passes < before + count;) {
            std::this_thread::sleep_for(1ms);
        }
    }

protected:
    void Run() override
    {
        ++passes;
        ThreadSleep(5ms, 5ms);
    }
};

int main()
{
    Tolvex::Interfaces::Stopped<Worker> worker;
    worker.Pause();
    worker.Start();
    std::this_thread::sleep_for(300ms);
    std::cout << "started in a pause: " << worker.passes << " passes" << std::endl;

    worker.Resume();
    worker.AwaitPasses(3);
    std::cout << "resumed: passes again" << std::endl;

    // The worker finishes the pass during which the pause begins.
    worker.Pause();
    std::cout << "paused: " << (worker.IsRunning() ? "runs, but sleeps" : "ended") << std::endl;

    worker.Stop();
    std::cout << "stopped: " << (worker.IsRunning() ? "runs" : "ended") << std::endl;
}
