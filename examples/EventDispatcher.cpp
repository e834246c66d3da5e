// Rings a bell three times. Each ring is handled on its own thread, which notifies an observer.
#include <iostream>

#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Interfaces/ISignal.h"

using Tolvex::Interfaces::ISemaphore;
using Tolvex::Interfaces::ISignal;

class Bell : public ISignal
{
public:
    Bell() { signalName = "bell"; }

    bool WaitSignal(void** data) override
    {
        rings.Wait();
        *data = &handled;
        return true;
    }

    void FireSignal(void* data) override
    {
        DoCallback(data);
        static_cast<ISemaphore*>(data)->Notify();
    }

    ISemaphore rings{0};
    ISemaphore handled{0};
};

class Porter : public ISignal::ISignalDelegate
{
public:
    void InvokeSignal(ISignal* /*signal*/, void* /*data*/) override
    {
        std::cout << "Coming!" << std::endl;
    }
};

int main()
{
    // Neither object is destroyed: the listener thread uses both until the process ends.
    static Bell& bell = *new Bell;
    static Porter& porter = *new Porter;
    bell.AddCallback(&porter);
    bell.Start();

    for (int ring = 0; ring < 3; ++ring) {
        bell.rings.Notify();
        bell.handled.Wait();
    }
}
