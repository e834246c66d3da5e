/// @file
/// The list of all workers that were started and are not destroyed yet.
#pragma once

#include <functional>

namespace Tolvex::Interfaces {

class IThread;

/// Puts a worker at the end of the list, unless it is there already.
/// @throws std::bad_alloc without memory for it.
/// @par Thread safety
/// Thread-safe, like the following. Do not call them while the mutex of a worker's threads is held.
void ListWorker(const IThread& worker);

/// Takes a worker off the list. From then on no other thread reads it through the list.
void UnlistWorker(const IThread& worker);

/// Calls visit for all workers, in the order in which they were listed. Meanwhile none of them is
/// destroyed. visit must not start or destroy a worker. A forked child begins with an empty list.
void VisitWorkers(const std::function<void(const IThread&)>& visit);

}  // namespace Tolvex::Interfaces
