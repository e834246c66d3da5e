#include "Tolvex/Interfaces/ISemaphore.h"

#include <limits>

#include "Tolvex/Base/Private/AdaptiveSpin.h"
#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Interfaces {

ISemaphore::ISemaphore(long long initialCount) : count(initialCount) {}

void ISemaphore::Notify()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (count < std::numeric_limits<std::int64_t>::max()) {
        Base::StoreShared(count, count + 1);
    }
    // Under the lock: the waiter may destroy the semaphore as soon as it gets the lock.
    condition.notify_one();
}

void ISemaphore::Wait()
{
    static constinit thread_local Base::AdaptiveSpin spin;
    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
    if (!spin.Until([&] { return Base::LoadShared(count) != 0 && lock.try_lock(); })) {
        lock.lock();
    }
    // Required: only a count of exactly 0 blocks. A negative count is lowered further. TryWait()
    // differs: it fails for every count below 1.
    while (count == 0) {
        condition.wait(lock);
    }
    if (count > std::numeric_limits<std::int64_t>::min()) {
        Base::StoreShared(count, count - 1);
    }
}

bool ISemaphore::TryWait()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (count < 1) {
        return false;
    }
    Base::StoreShared(count, count - 1);
    return true;
}

}  // namespace Tolvex::Interfaces
