// A user's program with a main of its own: one delayed callback.
#include <chrono>
#include <future>
#include <iostream>

#include "Tolvex/Tolvex.h"

int main()
{
    std::promise<void> called;
    new Tolvex::Util::IAsync(
        std::chrono::milliseconds(1),
        [&called](Tolvex::Util::IAsync* async) {
            delete async;
            called.set_value();
        },
        nullptr);
    called.get_future().wait();
    std::cout << "called back" << std::endl;
    return 0;
}
