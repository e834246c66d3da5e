/// @file
/// The command line that all counted programs share: "PROGRAM OPERATION COUNT" does an operation so
/// many times, and "PROGRAM" lists the operations with a count that suits each.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace Tolvex::Benchmarks {

struct Operation
{
    std::string name;
    int count;                     ///< enough for an exact mean
    std::function<void(int)> run;  ///< sets up, then does it so many times
};

inline int RunOperation(const std::vector<Operation>& operations, int argc, char** argv)
{
    if (argc == 1) {
        for (const Operation& operation : operations) {
            std::printf("%s %d\n", operation.name.c_str(), operation.count);
        }
        return EXIT_SUCCESS;
    }
    for (const Operation& operation : operations) {
        if (argc == 3 && operation.name == argv[1]) {
            operation.run(std::atoi(argv[2]));
            return EXIT_SUCCESS;
        }
    }
    std::fprintf(stderr, "usage: %s [OPERATION COUNT]\n", argv[0]);
    return 2;
}

/// Tells the compiler that the object is read and changed here.
template <typename T>
void Keep(T& object)
{
    asm volatile("" : : "r"(&object) : "memory");
}

}  // namespace Tolvex::Benchmarks
