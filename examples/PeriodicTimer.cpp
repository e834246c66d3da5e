// Prints three beats, one every 200 ms, and ends.

#include <iostream>
#include <memory>
#include <semaphore>

#include "Tolvex/Util/Timer.h"

using Tolvex::Util::Timer;

int main()
{
    // Shared with the callback: a call may still run after the timer is destroyed.
    const auto beats = std::make_shared<std::counting_semaphore<>>(0);
    Timer timer(
        200, [beats](Timer*) { beats->release(); }, nullptr, 16384);
    if (!timer.GetErrorText().empty()) {
        std::cerr << timer.GetErrorText() << std::endl;
        return 1;
    }

    for (int beat = 1; beat <= 3; ++beat) {
        beats->acquire();
        std::cout << "beat " << beat << std::endl;
    }

    timer.Remove();
    if (!timer.SetTime(200)) {
        std::cout << timer.GetErrorText() << std::endl;
    }
    return 0;
}
