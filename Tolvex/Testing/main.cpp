#include <cstdlib>
#include <iostream>

#include "Tolvex/Testing/Private/TestIAsync.h"
#include "Tolvex/Types/Export.h"

/// Entry of tolvex-driver, and of any program that links the library and has no main of its own.
TOLVEX_EXPORT int main()
{
    new TestIAsync;

    // Required: this code stays, although the constructor above never returns.
    std::cout << "Bye Bye" << std::endl;
    std::exit(0);  // NOLINT(concurrency-mt-unsafe)
}
