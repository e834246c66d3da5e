/// @file
/// What happens to whole threads and to the process, passed on to the loggers. Not installed.
#pragma once

#include <cstdint>

#include "Tolvex/Log/Private/LineState.h"

namespace Tolvex::Ilog {

/// Adds a logger. The first call prepares for the end of threads, forks and exit().
void RegisterLine(LineState& state);

/// Removes a logger, if it is there.
void UnregisterLine(LineState& state);

/// Sees to it that lines of the calling thread, which has begun one, do not survive it.
void WatchCallingThread();

/// @return what tells the calling thread from all others that are alive; its low 3 bits are 0.
std::uintptr_t CallingThread();

}  // namespace Tolvex::Ilog
