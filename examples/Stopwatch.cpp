// Measures a sleep of a fifth of a second with the stopwatch, twice.
#include <chrono>
#include <iostream>
#include <thread>

#include "Tolvex/Util/TimeMonitor.h"

using namespace std::chrono_literals;

int main()
{
    Tolvex::Util::TimeMonitor whole(true);
    Tolvex::Util::TimeMonitor stopwatch(true);
    std::this_thread::sleep_for(200ms);
    const double first = stopwatch.GetElapsedTime();
    std::cout << "at least 0.2 s: " << std::boolalpha << (first > 0.199) << std::endl;

    std::this_thread::sleep_for(200ms);
    const double both = stopwatch.GetElapsedTime();
    std::cout << "a reading does not restart it: " << (both > first + 0.199) << std::endl;

    const bool result = stopwatch.StartTimer();  // restarts it; the result does not show success
    std::cout << "result of StartTimer: " << result << std::endl;
    const double restarted = stopwatch.GetElapsedTime();
    std::cout << "restarted: " << (restarted < whole.GetElapsedTime()) << std::endl;

    // The enabled loggers get the line "[...]Time elapsed [pause] => 0.2001".
    std::this_thread::sleep_for(200ms);
    stopwatch.ShowElapsedTime("pause");
}
