// Starts two delayed callbacks. Each prints its user data and deletes its object; the later one
// ends the program.
#include <chrono>
#include <iostream>
#include <semaphore>

#include "Tolvex/Util/IAsync.h"

using namespace std::chrono_literals;
using Tolvex::Util::IAsync;

int main()
{
    std::binary_semaphore done(0);
    const char* first = "after 100 ms";
    const char* second = "after 300 ms";

    new IAsync(
        300ms,
        [&done](IAsync* async) {
            std::cout << static_cast<const char*>(async->GetUserData()) << std::endl;
            delete async;
            done.release();
        },
        const_cast<char*>(second));
    new IAsync(
        100ms,
        [](IAsync* async) {
            std::cout << static_cast<const char*>(async->GetUserData()) << std::endl;
            delete async;
        },
        const_cast<char*>(first));

    std::cout << "at once" << std::endl;
    done.acquire();
    return 0;
}
