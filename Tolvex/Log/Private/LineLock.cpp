#include "Tolvex/Log/Private/LineLock.h"

#include <system_error>

#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Ilog {

using Base::CallingThread;

bool LineLock::Advance(Phase from, Phase to, std::uintptr_t allowedFlags)
{
    const std::uintptr_t before = from > Complete ? from | CallingThread() : from;
    const std::uintptr_t after = to > Complete ? to | CallingThread() : to;
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    while ((seen & ~allowedFlags) == before) {
        if (word.compare_exchange_weak(seen, after | (seen & flags))) {
            return true;
        }
    }
    return false;
}

bool LineLock::Take(Entry entry, LineQueue::Deadline deadline)
{
    const std::uintptr_t allowedFlags = entry == Entry::Policy ? waiting | refusing : waiting;
    if (Advance(Free, Inserting, allowedFlags)) {
        return true;
    }
    if (IsMine()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    return Await(allowedFlags, deadline);
}

/// The slow part of Take(): spins, then sleeps in the queue.
bool LineLock::Await(std::uintptr_t allowedFlags, LineQueue::Deadline deadline)
{
    // As with a std::mutex, waiting for the lock is no cancellation point.
    const Base::NoCancellation scope;
    queue.Spin([this, allowedFlags] {
        const std::uintptr_t seen = word.load(std::memory_order_relaxed);
        return (seen & ~allowedFlags) == Free || (seen & refusing & ~allowedFlags) != 0;
    });
    if (Advance(Free, Inserting, allowedFlags)) {
        return true;
    }

    LineQueue::Place place;
    std::unique_lock lock = queue.Append(place);
    // Set before this thread tries: a thread that frees the line after that sees the flag.
    word |= waiting;
    bool taken = false;
    std::uintptr_t claimed = 0;  // reserved, once this thread has reserved the line
    for (;;) {
        // Read first: lines that are refused now may be admitted before this thread tries.
        const bool refused = (word & refusing & ~allowedFlags) != 0;
        taken = queue.First() == &place && Advance(Free, Inserting, allowedFlags | claimed);
        if (taken || refused || !queue.Sleep(place, lock, deadline)) {
            break;
        }
        if (queue.First() == &place) {
            // The first line that becomes free from now on is this thread's.
            claimed = reserved;
            word |= reserved;
        }
    }

    queue.Remove(place);
    word &= ~(claimed | (queue.First() == nullptr ? waiting : 0));
    lock.unlock();
    if (!taken && CurrentPhase() == Free) {
        queue.WakeFirst();  // This thread may have been woken for a line that it does not take.
    }
    return taken;
}

void LineLock::Release()
{
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    do {
        if (OwnerOf(seen) != CallingThread()) {
            return;
        }
    } while (!word.compare_exchange_weak(seen, seen & flags));
    if ((seen & waiting) != 0) {
        queue.WakeFirst();
    }
}

void LineLock::Refuse()
{
    word |= refusing;
    queue.WakeAll();
}

void LineLock::Drop()
{
    std::uintptr_t seen = word;
    while (PhaseOf(seen) == Open || PhaseOf(seen) == Inserting) {
        const std::uintptr_t dropped =
            PhaseOf(seen) == Open ? seen & flags : (seen & ~phaseMask) | Dropped;
        if (word.compare_exchange_weak(seen, dropped)) {
            if (PhaseOf(seen) == Open && (seen & waiting) != 0) {
                queue.WakeFirst();
            }
            return;
        }
    }
}

}  // namespace Tolvex::Ilog
