#include "Tolvex/Log/Private/LineState.h"

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>

#include "Tolvex/Base/Private/AdaptiveSpin.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/LineRegistry.h"

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

bool LineState::Advance(Phase from, Phase to)
{
    const std::uintptr_t caller = CallingThread();
    std::uintptr_t expected = caller | from;
    // Looked at first: the attempt alone would take the word from the processor that works with it.
    return word == expected && word.compare_exchange_strong(expected, caller | to);
}

bool LineState::TryTake()
{
    std::uintptr_t expected = Free;
    return word.compare_exchange_strong(expected, CallingThread() | Inserting);
}

/// Takes a line that waits for the writer.
bool LineState::TakeComplete(Phase phase)
{
    std::uintptr_t expected = Complete;
    return word.compare_exchange_strong(expected, CallingThread() | phase);
}

void LineState::FreeLocked()
{
    word = Free;
    if (firstWaiter != nullptr) {
        Wake(*firstWaiter);
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
    const Base::NoCancellation scope;
    WatchCallingThread();
    try {
        return TakeOrQueue();
    } catch (const std::system_error&) {
        Drop();  // the line, if it was taken before the mutex could not be locked
        throw;
    }
}

bool LineState::TakeOrQueue()
{
    std::unique_lock lock(mutex, std::defer_lock);
    bool taken = SpinForLine(lock);
    if (!taken || queued) {
        taken = TakeInTurn(lock, taken);
    }
    // A Refuse() that has looked for open lines before this one was taken has left it to us.
    if (taken && !admitting) {
        // GCOV_EXCL_START: closed by another thread in the moment of the taking
        if (!lock.owns_lock()) {
            lock.lock();
        }
        FreeIfHeldLocked();
        return false;
        // GCOV_EXCL_STOP
    }
    return taken;
}

/// Takes the line if it is free soon and nobody queues for it.
///
/// @param lock  Locked if the line is free soon and somebody does.
/// @return whether the line was taken.
bool LineState::SpinForLine(std::unique_lock<std::mutex>& lock)
{
    static constinit thread_local Base::AdaptiveSpin spin;
    bool taken = false;
    // More of them would keep processors from those that have the line.
    if (!spinning.exchange(true)) {
        spin.Until([&] {
            if (!admitting) {
                return true;  // GCOV_EXCL_LINE: it was closed within the spin
            }
            if (word != Free) {
                return false;
            }
            if (queued) {
                return lock.try_lock();  // GCOV_EXCL_LINE: it became free within the spin
            }
            taken = TryTake();
            return taken;
        });
        spinning = false;
    }
    return taken;
}

/// Counts as overtaking, or queues; locks the mutex first.
///
/// @param taken  The line is the caller's already.
/// @return whether it is now.
bool LineState::TakeInTurn(std::unique_lock<std::mutex>& lock, bool taken)
{
    if (!lock.owns_lock()) {
        lock.lock();
    }
    if (firstWaiter == nullptr || overtakings < mostOvertakings) {
        if (taken || TryTake()) {
            overtakings += firstWaiter != nullptr ? 1 : 0;
            return true;
        }
    } else if (taken) {
        FreeIfHeldLocked();  // GCOV_EXCL_LINE: somebody has queued in the moment of the taking
    }
    return QueueForLine(lock);
}

/// Takes the line when it is the caller's turn. @return false when the logger refuses lines.
bool LineState::QueueForLine(std::unique_lock<std::mutex>& lock)
{
    Waiter self;
    Waiter** end = &firstWaiter;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = &self;
    queued = true;  // before the line is tried: who frees it later sees this

    const bool taken = AwaitTurn(self, lock);

    Waiter** link = &firstWaiter;
    while (*link != &self) {
        link = &(*link)->next;
    }
    *link = self.next;
    queued = firstWaiter != nullptr;
    if (link == &firstWaiter) {
        overtakings = 0;  // they are those of the first
    }
    return taken;
}

bool LineState::AwaitTurn(Waiter& self, std::unique_lock<std::mutex>& lock)
{
    while (admitting) {
        if (firstWaiter == &self && TryTake()) {
            return true;
        }
        self.woken = false;
        self.turn.wait(lock);
        if (admitting && word != Free) {
            overtakings = mostOvertakings;  // this thread is awake now, so the next line is its
            lock.unlock();
            SpinForLine(lock);
            if (!lock.owns_lock()) {
                lock.lock();
            }
        }
    }
    return false;
}

void LineState::Wake(Waiter& waiter)
{
    if (!waiter.woken) {
        waiter.woken = true;
        waiter.turn.notify_one();
    }
}

void LineState::WakeAll()
{
    for (Waiter* waiter = firstWaiter; waiter != nullptr; waiter = waiter->next) {
        Wake(*waiter);
    }
}

bool LineState::Enter()
{
    return Advance(Open, Inserting);
}

void LineState::Leave()
{
    if (!Advance(Inserting, Open)) {
        Drop();
    }
}

bool LineState::HandOver(std::string_view line)
{
    text = line;
    ++handedOver;  // first: a line that is finished has been counted here
    std::uintptr_t expected = CallingThread() | Inserting;
    if (word.compare_exchange_strong(expected, Complete)) {
        return true;
    }
    // GCOV_EXCL_START: closed by another thread within the insertion, or a child forked in it
    --handedOver;
    Drop();
    return false;
    // GCOV_EXCL_STOP
}

void LineState::Drop()
{
    const std::lock_guard lock(mutex);
    FreeIfHeldLocked();
}

bool LineState::TakeBack()
{
    const std::lock_guard lock(mutex);
    if (!TakeComplete(Inserting)) {
        return false;  // GCOV_EXCL_LINE: the writer has seen the line in the last microsecond
    }
    ++finished;
    FreeLocked();
    return true;
}

bool LineState::Admit()
{
    const std::lock_guard lock(mutex);
    announced = false;
    if (Stopped()) {
        return false;  // GCOV_EXCL_LINE: a writer that was cancelled as soon as it was started
    }
    admitting = true;
    Base::StoreShared(enabled, true);
    return true;
}

void LineState::Refuse()
{
    const std::lock_guard lock(mutex);
    RefuseLocked();
}

void LineState::RefuseLocked()
{
    Base::StoreShared(enabled, false);
    admitting = false;

    // A line that is taken after this look is given up by its thread, which then sees admitting.
    std::uintptr_t value = word;
    while (PhaseOf(value) == Open || PhaseOf(value) == Inserting) {
        const std::uintptr_t dropped =
            PhaseOf(value) == Open ? Free : (value & ~phaseMask) | Dropped;
        if (word.compare_exchange_strong(value, dropped)) {
            break;
        }
    }
    WakeAll();
}

bool LineState::Stopped() const
{
    return Base::LoadShared(stopped);
}

bool LineState::WriterIsBusy() const
{
    return inPolicy == writer;  // none has the number 0
}

std::uint32_t LineState::AnnounceWriter()
{
    const std::lock_guard lock(mutex);
    Base::StoreShared(stopped, false);
    announced = true;
    return ++writer;
}

void LineState::CancelWriter()
{
    const std::lock_guard lock(mutex);
    announced = false;
    Base::StoreShared(stopped, true);
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
    std::uintptr_t value = word;
    // A writer that a later one has followed is left behind only once that one has ended.
    const bool hanging = Stopped() ? inPolicy != 0 : WriterIsBusy();
    const bool abandoned = hanging && PhaseOf(value) == Writing &&
                           word.compare_exchange_strong(value, (value & ~phaseMask) | Abandoned);
    if (!Stopped() && !abandoned) {
        return false;  // GCOV_EXCL_LINE: a writer between its policy and its end
    }
    loggerGone = true;
    return true;
}

bool LineState::TakeSoon(std::uint32_t number, std::string_view lastLine)
{
    static constinit thread_local Base::AdaptiveSpin spin;
    return spin.Until([&] {
        if (handedOver == finished) {
            return false;
        }
        // Fetched together: all of it lies with the processor that has composed the line. The text
        // most likely stands where the last one did.
        __builtin_prefetch(&word, 1);
        __builtin_prefetch(lastLine.data());
        __builtin_prefetch(lastLine.data() + lastLine.size());
        return number == writer && TakeComplete(Writing);
    });
}

LineWriter::Step LineState::Next(std::uint32_t number)
{
    const std::lock_guard lock(mutex);
    if (number != writer) {
        return LineWriter::Step::End;
    }
    // Required: what is complete is written before the writer looks at whether it is to end.
    // No line becomes complete once lines are refused, so the order of the looks is this.
    // Not between the start and the first line: a token of an earlier line may come late.
    const bool ending = !admitting && !announced;
    if (TakeComplete(Writing)) {
        return LineWriter::Step::Write;
    }
    if (!ending) {
        return LineWriter::Step::Wait;
    }
    Base::StoreShared(stopped, true);
    return LineWriter::Step::End;
}

void LineState::EnterPolicy(std::uint32_t number)
{
    // No fence, which would delay every line: Enable() and Detach() only poll it.
    inPolicy.store(number, std::memory_order_release);
}

LineWriter::Step LineState::FinishLine(std::uint32_t number)
{
    inPolicy.store(0, std::memory_order_release);
    std::uintptr_t held = CallingThread() | Writing;
    if (!word.compare_exchange_strong(held, Free)) {
        return LineWriter::Step::End;  // WriterGone() does the rest
    }
    if (queued) {
        const std::lock_guard lock(mutex);
        if (firstWaiter != nullptr && word == Free) {
            Wake(*firstWaiter);
        }
    }
    ++finished;
    // Looked at after the policy was left: Enable() does not go past a writer that is not in it.
    return admitting && number == writer ? LineWriter::Step::Wait : Next(number);
}

void LineState::WriterGone(std::uint32_t number)
{
    const std::lock_guard lock(mutex);
    if (HeldByCaller()) {
        inPolicy = 0;
        ++finished;
        FreeLocked();
    }
    if (loggerGone || number != writer || Stopped()) {
        return;
    }
    // Only a cancelled writer comes here. Nobody is left to take a line.
    RefuseLocked();
    if (TakeComplete(Writing)) {
        // GCOV_EXCL_START: a line that ends while the writer is being unwound
        ++finished;
        FreeLocked();
        // GCOV_EXCL_STOP
    }
    Base::StoreShared(stopped, true);
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
    queued = false;
    overtakings = 0;
    spinning = false;
    new (&control) std::mutex;  // not destroyed, as one of them may hold it
    controlling = 0;
    word = Free;
    inPolicy = 0;
    announced = false;
    admitting = false;
    finished = handedOver.load();
    ++writer;
    Base::StoreShared(enabled, false);
    Base::StoreShared(stopped, true);
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
    // A line may have been dropped since, in the moment of its hand-over.
    return finished >= std::min<std::uint64_t>(drainTarget, handedOver) || HeldByCaller();
}

}  // namespace Tolvex::Ilog
