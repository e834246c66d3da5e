// Starts a delayed callback, which starts another one. Each prints its user data and deletes its
// object; the later one ends the program.
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

    const auto endProgram = [&done](IAsync* async) {
        std::cout << static_cast<const char*>(async->GetUserData()) << std::endl;
        delete async;
        done.release();
    };
    const auto startSecond = [&endProgram, second](IAsync* async) {
        std::cout << static_cast<const char*>(async->GetUserData()) << std::endl;
        delete async;
        new IAsync(200ms, endProgram, const_cast<char*>(second));
    };

    std::cout << "at once" << std::endl;
    new IAsync(100ms, startSecond, const_cast<char*>(first));
    done.acquire();
    return 0;
}
