// Prints a week's sunrise and sunset in Prague, in local time.
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "Tolvex/Util/SunCalculator.h"
#include "Tolvex/Util/UtilTime.h"

int main()
{
    using Tolvex::Util::Date;

    // Central European time with daylight saving time, spelled out so that no time zone files are
    // needed.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);  // NOLINT(concurrency-mt-unsafe): one thread
    Tolvex::Util::RefreshTimeZone();

    const Tolvex::Util::SunCalculator calculator;
    constexpr std::time_t firstNoon = 1711537200;  // Wednesday before the clocks change in 2024
    constexpr std::time_t day = 86400;

    std::cout << "Prague           rise   set\n";
    for (std::time_t noon = firstNoon; noon < firstNoon + 7 * day; noon += day) {
        const auto sun = calculator.GetTimes(noon, 50.09, 14.42);
        std::cout << Date(noon, "%a %Y-%m-%d") << "   " << Date(sun.sunrise, "%H:%M") << "  "
                  << Date(sun.sunset, "%H:%M") << '\n';
    }
}
