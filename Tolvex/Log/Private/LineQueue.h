/// @file
/// Waiting for the line of a logger.
#pragma once

#include <chrono>
#include <semaphore.h>

namespace Tolvex::Ilog {

/// The threads that sleep until a line is free, in the order in which they came.
///
/// A thread keeps its place until it has the line or gives up. It is woken in two steps: its place
/// is marked with the mutex of the queue, and signalled without that mutex. Otherwise the woken
/// thread could run at once and block on the mutex, which costs two context switches a line where
/// there is one processor.
/// @par Thread safety
/// Caller serialises, except for Place::Sleep() and Place::Signal().
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

        /// Blocks until Signal() or the deadline. Call with cancellation disabled.
        /// @return false when the deadline came first.
        bool Sleep(Deadline deadline);

        /// Ends Sleep(). Mark the place as woken first. Do not touch it after a call without the
        /// mutex: its thread may have destroyed it.
        void Signal() { sem_post(&semaphore); }

        bool woken = false;  ///< signalled, or about to be, and its thread has not run since

    private:
        friend class LineQueue;

        sem_t semaphore;
        Place* previous = nullptr;
        Place* next = nullptr;
    };

    /// @return the place of the thread that is the next; null when no thread waits.
    Place* First() const { return first; }

    /// Adds a place at the end.
    void Append(Place& place);
    /// Takes a place out.
    void Remove(const Place& place);
    /// Wakes all threads.
    void WakeAll();
    /// Forgets all places: in a forked child their threads do not exist.
    void Clear() { first = last = nullptr; }

private:
    Place* first = nullptr;
    Place* last = nullptr;
};

}  // namespace Tolvex::Ilog
