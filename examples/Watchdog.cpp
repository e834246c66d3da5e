// Shows a watchdog that names the worker that hangs, and workers with a priority and processors of
// their own.
#include <chrono>
#include <iostream>
#include <sched.h>
#include <string>
#include <thread>

#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Interfaces/WorkerHealth.h"

using namespace std::chrono_literals;

/// A pass takes as long as it is told.
class Worker : public Tolvex::Interfaces::IThread
{
public:
    Worker(const std::string& name, std::chrono::milliseconds length) : passLength(length)
    {
        SetThreadName(name);
    }

protected:
    void Run() override { ThreadSleep(passLength, 5ms); }

private:
    const std::chrono::milliseconds passLength;
};

int main()
{
    Tolvex::Interfaces::Stopped<Worker> camera("Camera", 10ms);
    Tolvex::Interfaces::Stopped<Worker> encoder("Encoder", 1h);
    // The camera may not wait for others. Without the right to this the system refuses it, a
    // warning is logged, and the worker runs as others do.
    camera.SetPriority(SCHED_FIFO, 1);
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(0, &processors);
    encoder.SetCpuAffinity(processors);
    camera.Start();
    encoder.Start();

    std::this_thread::sleep_for(1500ms);
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        const bool hangs = worker.runningPass > 1s;
        std::cout << worker.name << (hangs ? " hangs" : " is well") << std::endl;
    }
}
