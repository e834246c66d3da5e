#include "Tolvex/Log/Private/LineQueue.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace Tolvex::Ilog {

/// Blocks until the semaphore is posted. @return false when the deadline came first.
bool LineQueue::Place::Wait(Deadline deadline)
{
    if (deadline == noDeadline) {  // The conversion takes a hundred instructions on 32-bit ARM.
        while (sem_wait(&semaphore) != 0) {
        }
        return true;
    }
    const auto time = deadline.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const timespec end{static_cast<std::time_t>(seconds.count()),
                       static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
    while (sem_clockwait(&semaphore, CLOCK_MONOTONIC, &end) != 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

std::unique_lock<std::mutex> LineQueue::Append(Place& place)
{
    std::unique_lock lock(mutex);
    place.previous = last;
    (last == nullptr ? first : last->next) = &place;
    last = &place;
    return lock;
}

void LineQueue::Remove(const Place& place)
{
    (place.previous == nullptr ? first : place.previous->next) = place.next;
    (place.next == nullptr ? last : place.next->previous) = place.previous;
}

bool LineQueue::Sleep(Place& place, std::unique_lock<std::mutex>& lock, Deadline deadline)
{
    lock.unlock();
    const bool signalled = place.Wait(deadline);
    lock.lock();
    if (!signalled && place.woken) {
        // Another thread has marked the place and signals it now.
        place.Wait(noDeadline);
    }
    return std::exchange(place.woken, false);
}

/// In two steps: marks the place with the mutex, and signals it without. Otherwise the woken thread
/// could run at once and block on the mutex, which costs two context switches a line where there is
/// one processor. There is one signal for each mark: after the first one the place may be gone.
void LineQueue::WakeFirst()
{
    std::unique_lock lock(mutex);
    Place* const place = first;
    if (place == nullptr || std::exchange(place->woken, true)) {
        return;
    }
    lock.unlock();
    sem_post(&place->semaphore);
}

void LineQueue::WakeAll()
{
    const std::lock_guard lock(mutex);
    for (Place* place = first; place != nullptr; place = place->next) {
        if (!std::exchange(place->woken, true)) {
            sem_post(&place->semaphore);
        }
    }
}

}  // namespace Tolvex::Ilog
