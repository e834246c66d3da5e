/// @file
/// What happens to the loggers at the end of a thread, at a fork and at the exit of the process.
#pragma once

#include <pthread.h>

namespace Tolvex::Ilog {

struct LoggerState;

/// Adds a logger. The first call registers the handlers for thread end, fork and exit.
/// @par Thread safety
/// Thread-safe; so are the other functions.
void RegisterLogger(LoggerState& state);

/// Removes a logger, if it is there.
void UnregisterLogger(LoggerState& state);

/// Set a value before the calling thread begins a line: a line that is open when the thread ends is
/// then dropped. Constant after the first RegisterLogger().
extern pthread_key_t threadEndKey;

}  // namespace Tolvex::Ilog
