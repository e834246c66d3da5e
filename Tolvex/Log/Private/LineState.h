/// @file
/// What a line lock and its writers share. Not installed.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "Tolvex/Log/LineLock.h"

namespace Tolvex::Ilog {

/// The state of one logger's line and writers. Shared by the logger and its writers' threads, so
/// that a writer that hangs in its policy may outlive the logger.
/// @par Thread safety
/// Thread-safe.
class LineState
{
public:
    LineState(bool& enabledFlag, bool& stoppedFlag, void* loggerOwner, void (*renew)(void*));

    LineState(const LineState&) = delete;
    LineState& operator=(const LineState&) = delete;

    // The thread that composes. See LineLock and LineEntry.
    bool Begin();
    bool Enter();
    bool TryTake();
    void Leave();
    bool HandOver(std::string_view line);
    void Drop();
    bool TakeBack();
    bool HeldByCaller() const;

    // The logger.
    bool Admit();
    void Refuse();
    bool Stopped() const;
    bool WriterIsBusy() const;
    std::uint32_t AnnounceWriter();
    void CancelWriter();
    bool TextIsStale();
    bool TryDetach();

    // The writers.
    bool TakeSoon(std::uint32_t number, std::string_view lastLine);
    LineWriter::Step Next(std::uint32_t number);
    std::string_view Text() const { return text; }
    void EnterPolicy(std::uint32_t number);
    LineWriter::Step FinishLine(std::uint32_t number);
    void WriterGone(std::uint32_t number);

    // Enable() and Close().
    bool EnterControl();
    void LeaveControl();

    // What happens to the process; called by the registry, which serialises.
    void ThreadEnds(std::uintptr_t thread);
    void LockForFork() { mutex.lock(); }
    void UnlockAfterFork() { mutex.unlock(); }
    void RenewInChild();
    void NoteDrainTarget();
    bool Drained();

    LineState* next = nullptr;  ///< in the registry; under its lock

private:
    /// Who has the line is kept in one word with what is done to it: both change together, or not
    /// at all. Threads are told apart by the address of a thread-local object of theirs.
    enum Phase : std::uintptr_t
    {
        Free = 0,
        Open = 1,       ///< a thread has the line, between two insertions
        Inserting = 2,  ///< a thread has the line and changes the text
        Dropped = 3,    ///< as Inserting, but the line is to be given up afterwards
        Complete = 4,   ///< nobody's; the writer is to take it
        Writing = 5,    ///< the writer has the line
        Abandoned = 6,  ///< the writer has the line, but the logger exists no more
    };
    static constexpr std::uintptr_t phaseMask = 7;

    /// A thread that sleeps until the line is free; on its stack.
    struct Waiter
    {
        std::condition_variable turn;  ///< it is the first, and the line is free or refused
        Waiter* next = nullptr;
        bool woken = false;  ///< since it last looked
    };

    static Phase PhaseOf(std::uintptr_t value) { return static_cast<Phase>(value & phaseMask); }
    bool Advance(Phase from, Phase to);
    bool TakeComplete(Phase phase);
    void FreeLocked();
    void FreeIfHeldLocked();
    bool TakeOrQueue();
    void RefuseLocked();
    bool SpinForLine(std::unique_lock<std::mutex>& lock);
    bool TakeInTurn(std::unique_lock<std::mutex>& lock, bool taken);
    bool QueueForLine(std::unique_lock<std::mutex>& lock);
    bool AwaitTurn(Waiter& self, std::unique_lock<std::mutex>& lock);
    void Wake(Waiter& waiter);
    void WakeAll();

    // Each group begins a cache line: a thread that spins reads one while the thread that it waits
    // for writes another.

    alignas(cacheLineBytes) std::atomic<std::uintptr_t> word = Free;  ///< a thread and a Phase
    std::atomic<bool> admitting = false;    ///< lines may begin; changed under the mutex
    std::atomic<bool> queued = false;       ///< there is a first waiter; changed under the mutex
    std::atomic<std::uint32_t> writer = 0;  ///< number of the writer whose flags these are
    std::string_view text;                  ///< of a complete line; belongs to who has the line

    alignas(cacheLineBytes) std::atomic<std::uint64_t> handedOver = 0;  ///< lines so far
    std::atomic<std::uint64_t> finished = 0;                            ///< written, or taken back

    /// Number of the writer that is in the policy, for as long as that takes; 0: none. Its own, so
    /// that it is set without a delay while others spin for the word.
    alignas(cacheLineBytes) std::atomic<std::uint32_t> inPolicy = 0;

    alignas(cacheLineBytes) std::atomic<bool> spinning = false;  ///< a thread spins for the line

    std::mutex mutex;               ///< guards what follows up to drainTarget
    Waiter* firstWaiter = nullptr;  ///< the queue of those that sleep for the line
    int overtakings = 0;            ///< lines begun by others while the first waiter waits
    bool announced = false;         ///< a writer is started; lines are not admitted yet
    bool loggerGone = false;        ///< the flags and the owner exist no more
    bool textStale = false;         ///< the text was left in any state by a fork
    std::uint64_t drainTarget = 0;  ///< lines that the exit of the process waits for

    std::mutex control;                           ///< held during one Enable() or Close()
    std::atomic<std::uintptr_t> controlling = 0;  ///< the thread that holds control

    bool& enabled;  ///< of the logger; shared
    bool& stopped;  ///< of the logger; shared
    void* owner;
    void (*renewOwner)(void* owner);
};

}  // namespace Tolvex::Ilog
