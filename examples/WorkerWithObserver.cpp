// A worker counts to three on its own thread, notifies an observer of each number, and is stopped.
#include <chrono>
#include <future>
#include <iostream>

#include "Tolvex/Interfaces/Stopped.h"

using namespace std::chrono_literals;
using Tolvex::Interfaces::IThread;
using Tolvex::Interfaces::Stopped;

class Counter : public IThread
{
public:
    std::promise<void> done;

protected:
    void RunBefore() override { std::cout << "before the first pass" << std::endl; }

    void Run() override
    {
        if (number < 3) {
            ++number;
            DoCallback(&number);
            if (number == 3) {
                done.set_value();
            }
        }
        ThreadSleep(100ms, 10ms);  // returns within 10 ms after a stop
    }

    void RunAfter() override { std::cout << "after the last pass" << std::endl; }

private:
    int number = 0;
};

class Printer : public IThread::IThreadDelegate
{
public:
    void Invoke(IThread* /*thread*/, void* data) override
    {
        std::cout << "counted " << *static_cast<int*>(data) << std::endl;
    }

    void InvokeStop(IThread* /*thread*/) override { std::cout << "stopped" << std::endl; }
};

int main()
{
    Printer printer;
    Stopped<Counter> counter;  // its thread ends before any part of it is destroyed
    counter.SetThreadName("counter");
    counter.AddCallback(&printer);

    counter.Start();
    counter.done.get_future().wait();
    counter.Stop();
}
