#include "Tolvex/Log/Private/LineQueue.h"

#include <cerrno>
#include <ctime>
#include <utility>

namespace Tolvex::Ilog {

namespace {

timespec ToTimespec(LineQueue::Deadline deadline)
{
    const auto time = deadline.time_since_epoch();
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {static_cast<std::time_t>(whole.count()),
            static_cast<long>(std::chrono::nanoseconds(time - whole).count())};
}

}  // namespace

bool LineQueue::Place::Sleep(Deadline deadline)
{
    // The conversion takes a hundred instructions on 32-bit ARM.
    const timespec end = deadline == noDeadline ? timespec() : ToTimespec(deadline);
    int result = 0;
    do {
        result = deadline == noDeadline ? sem_wait(&semaphore)
                                        : sem_clockwait(&semaphore, CLOCK_MONOTONIC, &end);
    } while (result != 0 && errno == EINTR);
    return result == 0;
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
