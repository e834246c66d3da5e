#include "Tolvex/Log/LineState.h"

#include <memory>
#include <new>
#include <system_error>

#include "Tolvex/Log/LineRegistry.h"
#include "Tolvex/Util/AdaptiveSpin.h"
#include "Tolvex/Util/NoCancellation.h"
#include "Tolvex/Util/SharedValue.h"

namespace Tolvex::Ilog {

namespace {

/// How many lines other threads may begin while the first of the queue waits. Not none: waking it
/// takes the time of several lines, and those that are awake go on meanwhile.
constexpr int mostOvertakings = 64;

}  // namespace

LineState::LineState(bool& enabledFlag, bool& stoppedFlag, void* loggerOwner, void (*renew)(void*))
    : enabled(enabledFlag), stopped(stoppedFlag), owner(loggerOwner), renewOwner(renew)
{
}

std::uintptr_t LineState::Mine(Phase phase)
{
    return CallingThread() | phase;
}

bool LineState::Advance(Phase from, Phase to)
{
    std::uintptr_t expected = Mine(from);
    return word.compare_exchange_strong(expected, Mine(to));
}

void LineState::FreeLocked()
{
    word = Free;
    if (firstWaiter != nullptr) {
        CallWaiter(*firstWaiter);
    }
}

/// In a child that was forked in the middle of an insertion the line is no longer the caller's.
void LineState::FreeIfHeldLocked()
{
    if (HeldByCaller()) {
        FreeLocked();
    }
}

bool LineState::HeldByCaller() const
{
    return (word & ~phaseMask) == CallingThread();
}

bool LineState::Begin()
{
    if (HeldByCaller()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }

    // As with a std::mutex, waiting for the lock is no cancellation point.
    const Util::NoCancellation scope;
    std::unique_lock lock(mutex, std::defer_lock);
    LockOnceFree(lock);
    if (word != Free || overtakings == mostOvertakings) {
        QueueForLine(lock);
    } else if (firstWaiter != nullptr) {
        ++overtakings;
    }
    if (!admitting) {
        return false;
    }
    WatchCallingThread();
    word = Mine(Inserting);
    return true;
}

/// Locks the mutex, when the line is free or refused if that is soon.
void LineState::LockOnceFree(std::unique_lock<std::mutex>& lock)
{
    static constinit thread_local Util::AdaptiveSpin spin;
    // More of them would keep processors from those that have the line.
    if (!spinning.exchange(true)) {
        spin.Until([&] { return (word == Free || !Util::LoadShared(enabled)) && lock.try_lock(); });
        spinning = false;
    }
    if (!lock.owns_lock()) {
        lock.lock();
    }
}

/// Returns when it is the caller's turn and the line is free, or when the logger refuses lines.
void LineState::QueueForLine(std::unique_lock<std::mutex>& lock)
{
    Waiter self;
    Waiter** end = &firstWaiter;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = &self;

    while (admitting && (word != Free || firstWaiter != &self)) {
        self.called = false;
        self.turn.wait(lock);
        if (admitting && word != Free) {
            overtakings = mostOvertakings;  // this thread is awake now, so the next line is its
            lock.unlock();
            LockOnceFree(lock);
        }
    }

    Waiter** link = &firstWaiter;
    while (*link != &self) {
        link = &(*link)->next;
    }
    *link = self.next;
    if (link == &firstWaiter) {
        overtakings = 0;  // they are those of the first
    }
}

void LineState::CallWaiter(Waiter& waiter)
{
    if (!waiter.called) {
        waiter.called = true;
        waiter.turn.notify_one();
    }
}

void LineState::CallAllWaiters()
{
    for (Waiter* waiter = firstWaiter; waiter != nullptr; waiter = waiter->next) {
        CallWaiter(*waiter);
    }
}

bool LineState::Enter()
{
    return Advance(Open, Inserting);
}

bool LineState::TryOccupy()
{
    const std::lock_guard lock(mutex);
    if (word != Free) {
        return false;
    }
    word = Mine(Inserting);
    return true;
}

void LineState::Leave()
{
    if (!Advance(Inserting, Open)) {
        Drop();
    }
}

bool LineState::HandOver()
{
    const std::lock_guard lock(mutex);
    if (word != Mine(Inserting)) {
        // GCOV_EXCL_START: closed by another thread within the insertion, or a child forked in it
        FreeIfHeldLocked();
        return false;
        // GCOV_EXCL_STOP
    }
    word = Complete;
    ++handedOver;
    return true;
}

void LineState::Drop()
{
    const std::lock_guard lock(mutex);
    FreeIfHeldLocked();
}

void LineState::TakeBack()
{
    const std::lock_guard lock(mutex);
    if (word == Complete) {
        ++finished;
        FreeLocked();
    }
}

void LineState::Admit()
{
    const std::lock_guard lock(mutex);
    admitting = true;
    Util::StoreShared(enabled, true);
}

void LineState::Refuse()
{
    const std::lock_guard lock(mutex);
    Util::StoreShared(enabled, false);
    admitting = false;

    // The composing thread changes the word without the mutex, between these two phases only.
    std::uintptr_t value = word;
    while (PhaseOf(value) == Open || PhaseOf(value) == Inserting) {
        const std::uintptr_t dropped =
            PhaseOf(value) == Open ? Free : (value & ~phaseMask) | Dropped;
        if (word.compare_exchange_strong(value, dropped)) {
            break;
        }
    }
    CallAllWaiters();
}

bool LineState::Stopped() const
{
    return Util::LoadShared(stopped);
}

bool LineState::WriterIsBusy()
{
    const std::lock_guard lock(mutex);
    return inPolicy;
}

std::uint32_t LineState::AnnounceWriter()
{
    const std::lock_guard lock(mutex);
    Util::StoreShared(stopped, false);
    return ++writer;
}

void LineState::CancelWriter()
{
    const std::lock_guard lock(mutex);
    Util::StoreShared(stopped, true);
}

bool LineState::TextIsStale()
{
    const std::lock_guard lock(mutex);
    const bool stale = textStale;
    textStale = false;
    return stale;
}

bool LineState::TryDetach()
{
    const std::lock_guard lock(mutex);
    if (!Stopped() && !inPolicy) {
        return false;  // GCOV_EXCL_LINE: a writer between its policy and its end
    }
    loggerGone = true;
    return true;
}

LineWriter::Step LineState::Next(std::uint32_t number)
{
    const std::lock_guard lock(mutex);
    if (number != writer) {
        // GCOV_EXCL_START: a thread that took longer to begin than Close() waits
        return LineWriter::Step::End;
        // GCOV_EXCL_STOP
    }
    // Required: what is complete is written before the writer looks at whether it is to end.
    if (word == Complete) {
        word = Mine(Writing);
        return LineWriter::Step::Write;
    }
    if (admitting) {
        // GCOV_EXCL_START: the token of a line that was written for an earlier token
        return LineWriter::Step::Wait;
        // GCOV_EXCL_STOP
    }
    Util::StoreShared(stopped, true);
    return LineWriter::Step::End;
}

void LineState::EnterPolicy()
{
    const std::lock_guard lock(mutex);
    inPolicy = true;
}

bool LineState::FinishLine(std::uint32_t number)
{
    const std::lock_guard lock(mutex);
    inPolicy = false;
    ++finished;
    FreeLocked();
    if (loggerGone || number != writer) {
        return false;
    }
    if (!admitting) {
        Util::StoreShared(stopped, true);
    }
    return admitting;
}

void LineState::WriterGone(std::uint32_t number)
{
    const std::lock_guard lock(mutex);
    if (HeldByCaller()) {
        inPolicy = false;
        ++finished;
        FreeLocked();
    }
    if (loggerGone || number != writer || Stopped()) {
        return;
    }
    // Only a cancelled writer comes here. Nobody is left to take a line.
    if (word == Complete) {
        // GCOV_EXCL_START: a line that ends while the writer is being unwound
        ++finished;
        FreeLocked();
        // GCOV_EXCL_STOP
    }
    admitting = false;
    Util::StoreShared(enabled, false);
    Util::StoreShared(stopped, true);
    CallAllWaiters();
}

bool LineState::EnterControl()
{
    if (controlling == CallingThread()) {
        return false;
    }
    control.lock();
    controlling = CallingThread();
    return true;
}

void LineState::LeaveControl()
{
    controlling = 0;
    control.unlock();
}

void LineState::ThreadEnds(std::uintptr_t thread)
{
    const std::lock_guard lock(mutex);
    if ((word & ~phaseMask) == thread) {
        FreeLocked();
    }
}

void LineState::RenewInChild()
{
    // The text is in use in these phases, perhaps by a thread that does not exist here.
    const Phase phase = PhaseOf(word);
    textStale = textStale || phase == Inserting || phase == Dropped || phase == Writing;

    // Those who wait are threads of the parent.
    firstWaiter = nullptr;
    overtakings = 0;
    spinning = false;
    new (&control) std::mutex;  // not destroyed, as one of them may hold it
    controlling = 0;
    word = Free;
    admitting = false;
    inPolicy = false;
    finished = handedOver;
    ++writer;
    Util::StoreShared(enabled, false);
    Util::StoreShared(stopped, true);
    renewOwner(owner);
}

void LineState::NoteDrainTarget()
{
    const std::lock_guard lock(mutex);
    drainTarget = handedOver;
}

bool LineState::Drained()
{
    const std::lock_guard lock(mutex);
    return finished >= drainTarget || HeldByCaller();
}

}  // namespace Tolvex::Ilog
