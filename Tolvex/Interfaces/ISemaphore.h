#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

/// Counting semaphore without an upper limit.
///
/// A thread that has returned from Wait() may destroy the semaphore at once, even if the Notify()
/// that woke it has not returned yet.
/// @code
/// Interfaces::ISemaphore ready(0);
/// std::thread producer([&ready] { ready.Notify(); });
/// ready.Wait();  // until the producer has notified
/// producer.join();
/// @endcode
/// @par Errors
/// std::system_error when the mutex cannot be locked.
/// @par Thread safety
/// Thread-safe.
class TOLVEX_EXPORT ISemaphore
{
public:
    /// @param initialCount  Number of tokens at the start; may be negative.
    ISemaphore(long long initialCount);

    ISemaphore(const ISemaphore&) = delete;
    ISemaphore& operator=(const ISemaphore&) = delete;

    /// Adds a token and wakes one waiting thread. Does not block.
    ///
    /// At the largest 64-bit number the count stays as it is.
    void Notify();

    /// Blocks while the count is exactly 0, then takes a token.
    ///
    /// Spins for up to 50 microseconds before it sleeps, unless spinning has failed recently or
    /// there is only one processor.
    ///
    /// A cancellation point: a thread that is cancelled here takes no token and leaves the
    /// semaphore usable.
    /// @note A negative count does not block: the call lowers the count by one and returns at once.
    /// At the smallest 64-bit number the count stays as it is.
    void Wait();

    /// Takes a token if there is one. Does not block.
    ///
    /// @return true if the count was 1 or more; otherwise false, and the count does not change.
    bool TryWait();

private:
    std::mutex mutex;                   ///< held for one update of count
    std::condition_variable condition;  ///< signals that count is no longer 0
    std::int64_t count;                 ///< shared: tokens; written under mutex
};

}  // namespace Tolvex::Interfaces
