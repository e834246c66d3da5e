#include "Tolvex/Log/Private/WriterLife.h"

#include <algorithm>
#include <chrono>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Ilog {

using Base::CallingThread;

namespace {

// Required: stopped is polled 21 times, so a writer that hangs costs 2.1 seconds, not two.
constexpr int stopPolls = 21;
constexpr std::chrono::milliseconds stopPollInterval(100);
constexpr std::chrono::milliseconds pollInterval(1);

}  // namespace

WriterLife::WriterLife(LineLock& lineLock, bool& enabled, bool& stopped)
    : lock(lineLock), enabledFlag(enabled), stoppedFlag(stopped)
{
}

bool WriterLife::Stopped() const
{
    return Base::LoadShared(stoppedFlag);
}

void WriterLife::AwaitOldWriter() const
{
    while (!Stopped() &&
           (lock.CurrentPhase() != LineLock::Writing || lock.Owner() != currentThread)) {
        Base::SleepFor(pollInterval);
    }
}

std::uint32_t WriterLife::Announce()
{
    const std::lock_guard guard(mutex);
    Base::StoreShared(stoppedFlag, false);
    currentThread = 0;
    return ++current;
}

bool WriterLife::Admit()
{
    const std::lock_guard guard(mutex);
    if (Stopped()) {
        return false;
    }
    lock.Admit();
    Base::StoreShared(enabledFlag, true);
    return true;
}

void WriterLife::TellToEnd()
{
    Base::StoreShared(enabledFlag, false);
    toldToEnd = current.load();
}

bool WriterLife::AwaitStopped(std::chrono::steady_clock::time_point deadline) const
{
    const Base::NoCancellation scope;
    for (int poll = 0; poll < stopPolls; ++poll) {
        const auto now = std::chrono::steady_clock::now();
        if (Stopped() || now >= deadline) {
            break;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
        Base::SleepFor(std::min(left, stopPollInterval));
    }
    return Stopped();
}

void WriterLife::Detach()
{
    const Base::NoCancellation scope;
    while (!TryDetach()) {
        Base::SleepFor(pollInterval);
    }
}

bool WriterLife::TryDetach()
{
    const std::lock_guard guard(mutex);
    const LineLock::Phase phase = lock.CurrentPhase();
    const bool hanging = phase == LineLock::Writing && lock.Owner() == currentThread;
    if (phase == LineLock::Taken || (!Stopped() && !hanging)) {
        return false;
    }
    if (phase == LineLock::Writing && !lock.Abandon()) {
        return false;
    }
    loggerGone = true;
    return true;
}

void WriterLife::Begin(std::uint32_t number)
{
    const std::lock_guard guard(mutex);
    if (number == current) {
        currentThread = CallingThread();
    }
}

WriterLife::Step WriterLife::Next(std::uint32_t number)
{
    if (number != current) {
        return Step::End;
    }
    // Read before the look for a line: no line becomes complete once the writer is told to end.
    const bool ending = toldToEnd >= number;
    // Required: a line that is complete is written before the writer ends.
    if (lock.Advance(LineLock::Complete, LineLock::Taken)) {
        return Step::Write;
    }
    if (!ending) {
        return Step::Wait;
    }
    const std::lock_guard guard(mutex);
    if (number == current && !loggerGone) {
        Base::StoreShared(stoppedFlag, true);
    }
    return Step::End;
}

void WriterLife::Gone(std::uint32_t number)
{
    const std::lock_guard guard(mutex);
    if (loggerGone || number != current || Stopped()) {
        return;
    }
    // Its thread could not be created or was cancelled. No thread is left that could take a line.
    lock.Refuse();
    lock.Drop();
    TellToEnd();
    if (lock.Advance(LineLock::Complete, LineLock::Taken)) {
        lock.Release(CallingThread());
    }
    Base::StoreShared(stoppedFlag, true);
}

void WriterLife::RenewInChild()
{
    ++current;
    toldToEnd = current.load();
    currentThread = 0;
    Base::StoreShared(enabledFlag, false);
    Base::StoreShared(stoppedFlag, true);
}

}  // namespace Tolvex::Ilog
