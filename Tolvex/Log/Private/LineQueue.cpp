#include "Tolvex/Log/Private/LineQueue.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace Tolvex::Ilog {

bool LineQueue::Place::Sleep(Deadline deadline)
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

void LineQueue::Append(Place& place)
{
    place.previous = last;
    (last == nullptr ? first : last->next) = &place;
    last = &place;
}

void LineQueue::Remove(const Place& place)
{
    (place.previous == nullptr ? first : place.previous->next) = place.next;
    (place.next == nullptr ? last : place.next->previous) = place.previous;
}

void LineQueue::WakeAll()
{
    for (Place* place = first; place != nullptr; place = place->next) {
        if (!std::exchange(place->woken, true)) {
            place->Signal();
        }
    }
}

}  // namespace Tolvex::Ilog
