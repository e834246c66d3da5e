#include "Tolvex/Base/Private/TimeZone.h"

#include <atomic>
#include <ctime>
#include <mutex>
#include <pthread.h>

#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Base {
namespace {

constinit std::atomic<std::uint32_t> generation = 0;
constinit std::mutex refreshMutex;  // held while the zone is read, and during a fork

void LockBeforeFork()
{
    refreshMutex.lock();
}

void UnlockAfterFork()
{
    refreshMutex.unlock();
}

/// Best effort: without memory, a child forked during a refresh finds the lock taken.
void PrepareForForks()
{
    pthread_atfork(LockBeforeFork, UnlockAfterFork, UnlockAfterFork);
}

}  // namespace

std::uint32_t TimeZoneGeneration()
{
    return generation.load(std::memory_order_acquire);
}

void RefreshTimeZone()
{
    // If a fork interrupts the registration, the child registers again, which does no harm.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareForForks);

    const NoCancellation scope;
    const std::lock_guard<std::mutex> lock(refreshMutex);
    tzset();
    // After tzset(): a time of the old zone never gets the new number.
    generation.fetch_add(1, std::memory_order_release);
}

}  // namespace Tolvex::Base
