/// @file
/// Waiting for the line of a logger.
#pragma once

#include <chrono>
#include <semaphore.h>

namespace Tolvex::Ilog {

/// The threads that sleep until a line is free, in the order in which they came.
///
/// A thread is woken by taking it out of the queue and then signalling it. The signal is sent
/// without the mutex of the queue: otherwise the woken thread could run at once and block on that
/// mutex, which costs two context switches a line where there is one processor.
/// @par Thread safety
/// Caller serialises, except for Place::Sleep() and Place::Wake().
class LineQueue
{
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// The place of one waiting thread in the queue; lives on the stack of that thread.
    class Place
    {
    public:
        Place();
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        /// Blocks until Wake() or the deadline. Call with cancellation disabled.
        /// @return false when the deadline came first.
        bool Sleep(Deadline deadline);

        /// Ends Sleep(). Take the place out of the queue first. Do not touch it after the call: its
        /// thread may have destroyed it.
        void Wake() { sem_post(&woken); }

        /// @return the place behind this one when all places were taken out.
        Place* Next() const { return next; }

    private:
        friend class LineQueue;

        sem_t woken;
        Place* previous = nullptr;
        Place* next = nullptr;
    };

    bool Empty() const { return first == nullptr; }
    bool IsFirst(const Place& place) const { return first == &place; }
    bool Contains(const Place& place) const { return place.previous != nullptr || IsFirst(place); }

    /// Adds a place at the end.
    void Append(Place& place);
    /// Adds a place at the beginning.
    void Prepend(Place& place);
    /// Takes a place out, if it is in the queue.
    void Remove(Place& place);
    /// Takes the first place out. @return it, to be woken; null when there is none.
    Place* TakeFirst();
    /// Takes all places out. @return the first, to be woken after its Next() was read.
    Place* TakeAll();
    /// Forgets all places: in a forked child their threads do not exist.
    void Clear() { first = last = nullptr; }

private:
    Place* first = nullptr;
    Place* last = nullptr;
};

}  // namespace Tolvex::Ilog
