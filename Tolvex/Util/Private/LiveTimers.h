/// @file
/// The timers that exist at this moment.
#pragma once

#include <mutex>
#include <unordered_set>

namespace Tolvex::Util {

/// Tells whether an expiry that the C library delivers still has a timer to go to.
///
/// The C library starts a thread for each expiry and hands it a bare address. By the time that
/// thread runs the timer may be destroyed. So every timer is listed here while it exists, and an
/// expiry whose address is not in the list is dropped.
/// @par Thread safety
/// Thread-safe. A child of fork() begins with an empty list.
class LiveTimers
{
public:
    /// The one list of the process. Never destroyed: expiries may arrive until the process ends.
    static LiveTimers& Get();

    /// Lists a new timer. May throw std::bad_alloc.
    /// @return a lock that keeps expiries waiting while it is held.
    std::unique_lock<std::mutex> Add(const void* timer);

    /// Takes a timer out of the list.
    void Remove(const void* timer);

    /// @return a lock that keeps the timer from being destroyed while it is held, or an empty one
    /// when there is no timer at that address.
    std::unique_lock<std::mutex> Lock(const void* timer);

private:
    explicit LiveTimers(LiveTimers* ofParent) : parents(ofParent) {}

    static LiveTimers* Make();
    static void MakeInChild();

    /// Of the process that forked this one. Kept only so that leak checkers find it reachable.
    [[maybe_unused]] LiveTimers* parents;
    std::unordered_set<const void*> timers;
    std::mutex mutex;  ///< guards timers; a leaf
};

}  // namespace Tolvex::Util
