#include "Tolvex/Interfaces/ISemaphore.h"

#include <limits>

#include "Tolvex/Util/AdaptiveSpin.h"
#include "Tolvex/Util/SharedValue.h"

namespace Tolvex::Interfaces {

ISemaphore::ISemaphore(long long initialCount) : count(initialCount) {}

void ISemaphore::Notify()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (count < std::numeric_limits<std::int64_t>::max()) {
        Util::StoreShared(count, count + 1);
    }
    // Under the lock: a waiter can go on, and destroy the semaphore, only after the unlock.
    condition.notify_one();
}

void ISemaphore::Wait()
{
    static constinit thread_local Util::AdaptiveSpin spin;
    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
    if (!spin.Until([&] { return Util::LoadShared(count) != 0 && lock.try_lock(); })) {
        lock.lock();
    }
    // Required: exactly 0 blocks; a negative count lets the caller through and sinks further.
    while (count == 0) {
        condition.wait(lock);
    }
    if (count > std::numeric_limits<std::int64_t>::min()) {
        Util::StoreShared(count, count - 1);
    }
}

bool ISemaphore::TryWait()
{
    const std::lock_guard<std::mutex> lock(mutex);
    // Required: any count below 1 fails, unlike in Wait().
    if (count < 1) {
        return false;
    }
    Util::StoreShared(count, count - 1);
    return true;
}

}  // namespace Tolvex::Interfaces
