#include "Tolvex/Log/Private/LineQueue.h"

#include <cerrno>
#include <ctime>

namespace Tolvex::Ilog {

LineQueue::Place::Place()
{
    sem_init(&woken, 0, 0);
}

LineQueue::Place::~Place()
{
    sem_destroy(&woken);
}

bool LineQueue::Place::Sleep(Deadline deadline)
{
    int result = 0;
    if (deadline == Deadline::max()) {
        do {
            result = sem_wait(&woken);
        } while (result != 0 && errno == EINTR);
        return result == 0;
    }

    using std::chrono::seconds;
    const auto time = deadline.time_since_epoch();
    const auto whole = std::chrono::duration_cast<seconds>(time);
    const timespec end{static_cast<std::time_t>(whole.count()),
                       static_cast<long>(std::chrono::nanoseconds(time - whole).count())};
    do {
        result = sem_clockwait(&woken, CLOCK_MONOTONIC, &end);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void LineQueue::Append(Place& place)
{
    place.previous = last;
    place.next = nullptr;
    (last == nullptr ? first : last->next) = &place;
    last = &place;
}

void LineQueue::Prepend(Place& place)
{
    place.previous = nullptr;
    place.next = first;
    (first == nullptr ? last : first->previous) = &place;
    first = &place;
}

void LineQueue::Remove(Place& place)
{
    if (!Contains(place)) {
        return;
    }
    (place.previous == nullptr ? first : place.previous->next) = place.next;
    (place.next == nullptr ? last : place.next->previous) = place.previous;
    place.previous = nullptr;
}

LineQueue::Place* LineQueue::TakeFirst()
{
    Place* const place = first;
    if (place != nullptr) {
        Remove(*place);
    }
    return place;
}

LineQueue::Place* LineQueue::TakeAll()
{
    Place* const all = first;
    for (Place* place = all; place != nullptr; place = place->next) {
        place->previous = nullptr;  // No longer in the queue, see Contains().
    }
    Clear();
    return all;
}

}  // namespace Tolvex::Ilog
