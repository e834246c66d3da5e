/// @file
/// The list of all workers that were started and are not destroyed yet, which ListWorkers() reads.
/// Defined in WorkerHealth.cpp. A forked child begins with an empty list.
#pragma once

namespace Tolvex::Interfaces {

class IThread;

/// Puts a worker at the end of the list, unless it is there already.
/// @throws std::bad_alloc without memory for it.
/// @par Thread safety
/// Thread-safe, like the following. Do not call them while the mutex of a worker's threads is held.
void ListWorker(const IThread& worker);

/// Takes a worker off the list. From then on no other thread reads it through the list.
void UnlistWorker(const IThread& worker);

}  // namespace Tolvex::Interfaces
