#include "Tolvex/Base/Private/TimeZone.h"

#include <atomic>
#include <ctime>
#include <mutex>

#include "Tolvex/Base/Private/ForkMutex.h"
#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Base {
namespace {

constinit std::atomic<std::uint32_t> generation = 0;
constinit ForkMutex forkMutex;  // held while the zone is used

}  // namespace

std::uint32_t TimeZoneGeneration()
{
    return generation.load(std::memory_order_acquire);
}

std::unique_lock<std::mutex> LockAgainstForks()
{
    return LockForkMutex<forkMutex>();
}

void RefreshTimeZone()
{
    const NoCancellation scope;
    const std::unique_lock<std::mutex> lock = LockAgainstForks();
    tzset();
    // After tzset(): a time of the old zone never gets the new number.
    generation.fetch_add(1, std::memory_order_release);
}

}  // namespace Tolvex::Base
