#include "Tolvex/Util/EnumString.h"

#include <atomic>
#include <new>
#include <pthread.h>

namespace Tolvex::Util {

namespace {

constinit std::recursive_mutex tableMutex;
constinit std::atomic<bool> forkIsHandled = false;

void LockBeforeFork()
{
    tableMutex.lock();
}

void UnlockAfterFork()
{
    tableMutex.unlock();
}

/// To unlock is not enough in the child: the owner that a recursive mutex has noted is a thread of
/// the parent.
void RenewInChild()
{
    tableMutex.unlock();  // fails, but tells the thread sanitizer that nobody has it
    new (&tableMutex) std::recursive_mutex;
}

}  // namespace

std::recursive_mutex& EnumStringMutex()
{
    if (!forkIsHandled.exchange(true)) {
        // Best effort: without it a child that is forked in the wrong moment finds the lock taken.
        pthread_atfork(LockBeforeFork, UnlockAfterFork, RenewInChild);
    }
    return tableMutex;
}

}  // namespace Tolvex::Util
