/// @file
/// A mutex that no other thread holds while the process forks.
#pragma once

#include <atomic>
#include <mutex>
#include <pthread.h>

#include "Tolvex/Base/Private/CallingThread.h"

namespace Tolvex::Base {

/// Guards data that a forked child still uses. Fork handlers call the functions below: those that
/// LockForkMutex() registers, or those of the owner.
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

template <ForkMutex& mutex>
void LockBeforeFork()
{
    mutex.LockBeforeFork();
}

template <ForkMutex& mutex>
void UnlockAfterFork()
{
    mutex.UnlockAfterFork();
}

/// Locks a mutex. The first call registers its fork handlers.
///
/// If a fork interrupts the registration, the child registers again. Best effort: without memory
/// for it, a child that is forked while another thread holds the mutex finds it taken.
/// @tparam before    The handler before the fork; has to lock the mutex.
/// @tparam inParent  The handler of the parent after it; has to unlock the mutex.
/// @tparam inChild   As inParent, for the child.
/// @par Thread safety
/// Thread-safe. Waits for other threads that hold the mutex.
template <ForkMutex& mutex, void (*before)() = LockBeforeFork<mutex>,
          void (*inParent)() = UnlockAfterFork<mutex>, void (*inChild)() = inParent>
std::unique_lock<std::mutex> LockForkMutex()
{
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, [] { pthread_atfork(before, inParent, inChild); });
    return std::unique_lock<std::mutex>(mutex);
}

}  // namespace Tolvex::Base
