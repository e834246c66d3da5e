#include "Tolvex/Log/Private/LineLock.h"

#include <system_error>

#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Ilog {

using Base::CallingThread;

bool LineLock::Take(Entry entry, Deadline deadline)
{
    const std::uintptr_t ignoredFlags = entry == Entry::Policy ? refusing : 0;
    if (TryTake(waiting | ignoredFlags)) {
        return true;
    }
    if (Look().owner == CallingThread()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    return Await(ignoredFlags, deadline);
}

/// Takes the line if it is free and no flag is set except those allowed.
bool LineLock::TryTake(std::uintptr_t allowedFlags)
{
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    while ((seen & ~allowedFlags) == Free) {
        if (word.compare_exchange_weak(seen, CallingThread() | Inserting | (seen & ~reserved))) {
            return true;
        }
    }
    return false;
}

/// The slow part of Take(): spins, then sleeps in the queue.
bool LineLock::Await(std::uintptr_t ignoredFlags, Deadline deadline)
{
    // As with a std::mutex, waiting for the lock is no cancellation point.
    const Base::NoCancellation scope;
    SpinUntilFree(waiting | ignoredFlags);
    if (TryTake(waiting | ignoredFlags)) {
        return true;
    }

    LineQueue::Place place;
    std::unique_lock lock(mutex);
    queue.Append(place);
    bool taken = false;
    std::uintptr_t claimed = 0;  // reserved, once this thread has reserved the line
    for (;;) {
        // The flag first: a thread that frees the line after this thread has tried sees the flag.
        UpdateWaiting();
        // Read first: lines that are refused now may be admitted before this thread tries.
        const bool refused = (word & refusing & ~ignoredFlags) != 0;
        taken = queue.First() == &place && TryTake(waiting | claimed | ignoredFlags);
        if (taken || refused) {
            break;
        }

        lock.unlock();
        const bool signalled = place.Sleep(deadline);
        lock.lock();
        if (!signalled) {
            if (!place.woken) {
                break;
            }
            place.Sleep(noDeadline);  // Another thread has marked the place and signals it now.
        }
        place.woken = false;

        if (queue.First() == &place) {
            // The first line that becomes free from now on is this thread's.
            claimed = reserved;
            word |= reserved;
        }
    }

    if (!taken) {
        word &= ~claimed;
    }
    queue.Remove(place);
    UpdateWaiting();
    lock.unlock();
    if (!taken && Look().phase == Free) {
        WakeFirst();  // This thread may have been woken for a line that it does not take.
    }
    return taken;
}

/// Spins, unless another thread does so already. More spinning threads would take processors from
/// the thread that has the line.
void LineLock::SpinUntilFree(std::uintptr_t allowedFlags)
{
    if (spinning.exchange(true, std::memory_order_acquire)) {
        return;
    }
    spin.Until([this, allowedFlags] {
        const std::uintptr_t seen = word.load(std::memory_order_relaxed);
        return (seen & ~allowedFlags) == Free || (seen & refusing & ~allowedFlags) != 0;
    });
    spinning.store(false, std::memory_order_release);
}

/// Sets the flag when the next thread that frees the line has to wake a thread. Under the mutex.
void LineLock::UpdateWaiting()
{
    // One at a time: a second thread that is woken could overtake the first.
    if (queue.First() == nullptr || queue.First()->woken) {
        word &= ~waiting;
    } else {
        word |= waiting;
    }
}

void LineLock::WakeFirst()
{
    std::unique_lock lock(mutex);
    LineQueue::Place* const place = queue.First();
    if (place == nullptr || place->woken) {
        return;
    }
    place->woken = true;
    UpdateWaiting();
    lock.unlock();
    place->Signal();
}

bool LineLock::Advance(Phase from, Phase to)
{
    const std::uintptr_t before = from | (from == Complete ? 0 : CallingThread());
    const std::uintptr_t after = to | (to == Complete ? 0 : CallingThread());
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    while ((seen & ~flags) == before) {
        if (word.compare_exchange_weak(seen, after | (seen & flags))) {
            return true;
        }
    }
    return false;
}

void LineLock::Release()
{
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    do {
        if ((seen & ~Base::threadIdSpareBits) != CallingThread()) {
            return;
        }
    } while (!word.compare_exchange_weak(seen, seen & flags));
    if ((seen & waiting) != 0) {
        WakeFirst();
    }
}

void LineLock::Refuse()
{
    word |= refusing;
    const std::lock_guard lock(mutex);
    queue.WakeAll();
    UpdateWaiting();
}

void LineLock::Drop()
{
    std::uintptr_t seen = word;
    while (PhaseOf(seen) == Open || PhaseOf(seen) == Inserting) {
        const std::uintptr_t dropped =
            PhaseOf(seen) == Open ? seen & flags : (seen & ~phaseMask) | Dropped;
        if (word.compare_exchange_weak(seen, dropped)) {
            if (PhaseOf(seen) == Open && (seen & waiting) != 0) {
                WakeFirst();
            }
            return;
        }
    }
}

void LineLock::UnlockAfterFork(bool inChild)
{
    if (inChild) {
        word = refusing;
        spinning = false;
        queue.Clear();
    }
    mutex.unlock();
}

}  // namespace Tolvex::Ilog
