/// @file
/// Who may compose the line of a logger, and who may write it.
#pragma once

#include <atomic>
#include <cstdint>

#include "Tolvex/Base/Private/CallingThread.h"
#include "Tolvex/Log/Private/LineQueue.h"

namespace Tolvex::Ilog {

/// Mutual exclusion of the lines of one logger.
///
/// A thread takes the lock to compose a line and hands the complete line over; the writer takes the
/// complete line and frees the lock once the line is written. One word holds the owner, the phase
/// of the line and three flags, so that they change together or not at all:
///
///     Free -> Inserting <-> Open          a thread composes
///             Inserting  -> Complete      the line is handed over; no thread owns it
///             Complete   -> Inserting     the writer could not be woken: the thread has it again
///             Complete   -> Taken         the writer copies the text
///             Taken      -> Writing       the writer is in the policy
///     any phase with an owner -> Free     Release()
///     Open -> Free, Inserting -> Dropped  Drop()
/// @par Errors
/// std::system_error when the mutex of the queue cannot be locked.
/// @par Thread safety
/// Thread-safe.
class LineLock
{
public:
    enum Phase : std::uintptr_t
    {
        Free,       ///< owned by no thread
        Complete,   ///< handed over; owned by no thread
        Open,       ///< a thread has the line, between two insertions
        Inserting,  ///< a thread has the line and changes the text
        Dropped,    ///< as Inserting, but the logger was closed: the line is to be given up
        Taken,      ///< the writer has the line and copies the text
        Writing,    ///< the writer has the line and is in the policy
    };

    /// Who is let in by Take().
    enum class Entry
    {
        Line,    ///< a thread with a line to compose; not while lines are refused
        Policy,  ///< a thread that changes the policy; always
    };

    /// Free, and refuses lines.
    LineLock() = default;
    LineLock(const LineLock&) = delete;
    LineLock& operator=(const LineLock&) = delete;

    /// Waits until the line is free and takes it in phase Inserting. No cancellation point.
    ///
    /// Threads that sleep get the line in the order in which they came. A thread that does not
    /// sleep may overtake them until the first of them has been woken and runs.
    /// @param entry     Who asks for the line.
    /// @param deadline  When to give up; one in the past tries once.
    /// @return false when lines are refused or the deadline has passed.
    /// @throws std::system_error resource_deadlock_would_occur when the calling thread has the
    /// line.
    bool Take(Entry entry, LineQueue::Deadline deadline = LineQueue::noDeadline);

    /// Changes the phase of the calling thread's line. A change to Complete gives up the line, a
    /// change from Free or Complete takes it.
    /// @param allowedFlags  Only Take() allows less than all of them.
    /// @return false when the line is not in the phase `from`, is another thread's, or has a flag
    /// that is not allowed.
    bool Advance(Phase from, Phase to, std::uintptr_t allowedFlags = flags);

    /// Frees the line that the calling thread has, if it has one, and wakes the first waiting
    /// thread.
    void Release();

    /// Lets lines begin.
    void Admit() { word &= ~refusing; }

    /// Refuses lines from now on; waiting threads return from Take(). Leaves the line that is being
    /// composed to its owner.
    void Refuse();

    /// Drops the line that is being composed, if there is one.
    void Drop();

    /// @return the phase at this moment.
    Phase CurrentPhase() const { return PhaseOf(word); }

    /// @return whether the calling thread has the line.
    bool IsMine() const { return OwnerOf(word) == Base::CallingThread(); }

    /// @return whether the calling thread is changing the line at this moment, or its policy.
    bool IsInUseByMe() const
    {
        const std::uintptr_t seen = word;
        return OwnerOf(seen) == Base::CallingThread() && PhaseOf(seen) != Open;
    }

private:
    static constexpr std::uintptr_t phaseMask = 7;
    static constexpr std::uintptr_t refusing = 8;   ///< lines do not begin
    static constexpr std::uintptr_t waiting = 16;   ///< the queue is not empty
    static constexpr std::uintptr_t reserved = 32;  ///< the line is the first waiter's
    static constexpr std::uintptr_t flags = refusing | waiting | reserved;
    static_assert((phaseMask | flags) == Base::threadIdSpareBits);

    static Phase PhaseOf(std::uintptr_t value) { return static_cast<Phase>(value & phaseMask); }
    static Base::ThreadId OwnerOf(std::uintptr_t value) { return value & ~Base::threadIdSpareBits; }
    bool Await(std::uintptr_t allowedFlags, LineQueue::Deadline deadline);

    std::atomic<std::uintptr_t> word = refusing;  ///< owner, Phase and flags
    LineQueue queue;                              ///< the threads that wait in Take()
};

}  // namespace Tolvex::Ilog
