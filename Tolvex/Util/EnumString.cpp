#include "Tolvex/Util/EnumString.h"

#include <new>
#include <pthread.h>

namespace Tolvex::Util {

namespace {

constinit std::recursive_mutex tableMutex;

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

/// Best effort: without memory a child that is forked in the wrong moment finds the lock taken.
void PrepareForForks()
{
    pthread_atfork(LockBeforeFork, UnlockAfterFork, RenewInChild);
}

}  // namespace

std::recursive_mutex& EnumStringMutex()
{
    // No thread comes to lock it before forks are prepared for. Unlike a static's initialisation,
    // one that a fork interrupts begins anew in the child; to be prepared twice does no harm.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareForForks);
    return tableMutex;
}

}  // namespace Tolvex::Util
