/// @file
/// A mutex that no other thread holds while the process forks.
#pragma once

#include <atomic>
#include <mutex>

#include "Tolvex/Base/Private/CallingThread.h"

namespace Tolvex::Base {

/// Guards what a forked child finds again. The fork handlers of its owner call the functions below.
///
/// If a fork interrupts the registration of the handlers, the child registers them once more. Then
/// each handler runs twice for one fork, and the second calls do nothing.
/// @par Thread safety
/// Thread-safe.
class ForkMutex : public std::mutex
{
public:
    /// Call before the fork. @return whether this call has locked the mutex.
    bool LockBeforeFork()
    {
        if (IsHeldForFork()) {
            return false;
        }
        lock();
        forkingThread = CallingThread();
        return true;
    }

    /// @return whether the calling thread holds the mutex for a fork.
    bool IsHeldForFork() const { return forkingThread == CallingThread(); }

    /// Call after the fork, in the parent and in the child.
    void UnlockAfterFork()
    {
        if (IsHeldForFork()) {
            forkingThread = 0;
            unlock();
        }
    }

private:
    std::atomic<ThreadId> forkingThread = 0;  ///< the thread that holds the mutex for a fork
};

}  // namespace Tolvex::Base
