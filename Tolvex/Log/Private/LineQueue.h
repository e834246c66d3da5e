/// @file
/// Waiting for the line of a logger.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <semaphore.h>

#include "Tolvex/Base/Private/AdaptiveSpin.h"

namespace Tolvex::Ilog {

/// The threads that wait until a line is free: first one of them spins, then they sleep in the
/// order in which they came.
///
/// A thread keeps its place until it has the line or gives up.
/// @par Errors
/// std::system_error when the mutex cannot be locked.
/// @par Thread safety
/// Thread-safe, except for the functions that need the lock.
class LineQueue
{
public:
    using Deadline = std::chrono::steady_clock::time_point;
    static constexpr Deadline noDeadline = Deadline::max();

    /// The place of one waiting thread in the queue; lives on the stack of that thread.
    class Place
    {
    public:
        Place() { sem_init(&semaphore, 0, 0); }
        ~Place() { sem_destroy(&semaphore); }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

    private:
        friend class LineQueue;

        bool Wait(Deadline deadline);

        sem_t semaphore;
        bool woken = false;  ///< signalled, or about to be, and its thread has not run since
        Place* previous = nullptr;
        Place* next = nullptr;
    };

    LineQueue() = default;
    LineQueue(const LineQueue&) = delete;
    LineQueue& operator=(const LineQueue&) = delete;

    /// Spins until the line is free, unless another thread does so already. More spinning threads
    /// would take processors from the thread that has the line.
    /// @param condition  See Base::AdaptiveSpin.
    template <typename Condition>
    void Spin(const Condition& condition)
    {
        if (!spinning.exchange(true, std::memory_order_acquire)) {
            spin.Until(condition);
            spinning.store(false, std::memory_order_release);
        }
    }

    /// Adds a place at the end.
    /// @return the lock of the queue.
    std::unique_lock<std::mutex> Append(Place& place);
    /// Takes a place out. Call with the lock.
    void Remove(const Place& place);
    /// Call with the lock.
    /// @return the place of the thread that is the next; null when no thread waits.
    const Place* First() const { return first; }

    /// Blocks until the place is woken, without the lock meanwhile. Call with cancellation
    /// disabled.
    /// @return false when the deadline came first.
    bool Sleep(Place& place, std::unique_lock<std::mutex>& lock, Deadline deadline);

    /// Wakes the first thread. Call without the lock.
    void WakeFirst();
    /// Wakes all threads. Call without the lock.
    void WakeAll();

private:
    std::atomic<bool> spinning = false;  ///< a thread spins for the line
    Base::AdaptiveSpin spin;             ///< used by the thread that has set spinning

    std::mutex mutex;  ///< guards the places; held for one change of them
    Place* first = nullptr;
    Place* last = nullptr;
};

}  // namespace Tolvex::Ilog
