/// @file
/// The C library's own functions behind the ones that a test program replaces.
#pragma once

#include <cerrno>
#include <dlfcn.h>

namespace Tolvex::Support {

/// Finds the function that a definition of the same name in the test program hides.
///
/// @tparam Function  Its type: decltype(system), or int(const char*).
template <typename Function>
Function* RealFunction(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// What a replaced function returns to fail as a system call does.
inline int FailWith(int error)
{
    errno = error;
    return -1;
}

}  // namespace Tolvex::Support
