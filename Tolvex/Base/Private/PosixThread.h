/// @file
/// Creation of the library's threads: detached POSIX threads with a fixed stack.
/// @code
/// pthread_t handle = 0;
/// void* (*const beep)(void*) = [](void*) -> void* {
///     std::cout << '\a';
///     return nullptr;
/// };
/// if (Base::StartDetachedThread(handle, "beep", beep, nullptr) != 0) {
///     std::cout << "the thread cannot be created\n";
/// }
/// @endcode
#pragma once

#include <cstddef>
#include <pthread.h>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Base {

/// Stack of every thread that the library creates, in bytes.
constexpr std::size_t workerStackBytes = 524288;

/// Whether the signal handlers of the process may run on a new thread.
enum class SignalHandlers
{
    Allowed,  ///< the thread inherits the signal mask of its creator
    Blocked,  ///< the thread blocks every signal except those that report a fault of its own
};

/// Starts a detached thread with a stack of workerStackBytes that runs entry(argument).
///
/// @param handle    Receives the handle; untouched on failure. It is valid only while the thread
///                  runs, and the thread may end before this function returns.
/// @param name      OS name of the thread; null or empty for none. A name of more than 15
///                  characters leaves the thread unnamed.
/// @param entry     Runs on the new thread. Exceptions and cancellation may leave it.
/// @param argument  Passed to entry as it is; not owned.
/// @param handlers  Blocked for threads that do the library's own work: a handler that interrupts
///                  such a thread could wait for that same thread.
/// @return 0, or the error number of pthread_create(); then no thread exists.
/// @par Thread safety
/// Thread-safe. Does not block.
TOLVEX_EXPORT int StartDetachedThread(pthread_t& handle, const char* name, void* (*entry)(void*),
                                      void* argument,
                                      SignalHandlers handlers = SignalHandlers::Allowed);

}  // namespace Tolvex::Base
