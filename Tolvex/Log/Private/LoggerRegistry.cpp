#include "Tolvex/Log/Private/LoggerRegistry.h"

#include <chrono>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <new>

#include "Tolvex/Base/Private/ForkMutex.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Base/Private/TimeZone.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/BlackBox.h"
#include "Tolvex/Log/Private/LoggerState.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/EnumString.h"

namespace Tolvex::Ilog {

namespace {

constexpr std::chrono::milliseconds pollInterval(1);

constinit Base::ForkMutex registryMutex;  // guards the list; taken before the locks of its members
LoggerState* firstLogger = nullptr;       // the loggers of the process

template <typename Action>
void ForEachLogger(const Action& action)
{
    for (LoggerState* state = firstLogger; state != nullptr; state = state->next) {
        action(*state);
    }
}

/// Called at the end of a thread, however it ends. Drops the lines that it has left open.
void DropLinesOfThread(void* /*value*/)
{
    const std::lock_guard guard(registryMutex);
    ForEachLogger([](LoggerState& state) { state.lock.Release(); });
}

void LockBeforeFork()
{
    if (registryMutex.LockBeforeFork()) {
        BlackBox::ringMutex.lock();
    }
}

/// Other threads may have been anywhere in the logger, and none of them exists here.
void RenewInChild(LoggerState& state)
{
    // In these phases a thread changes the buffer, perhaps one that does not exist here.
    const LineLock::Phase phase = state.lock.CurrentPhase();
    state.bufferStale =
        state.bufferStale || phase == LineLock::Inserting || phase == LineLock::Dropped;
    // Not destroyed first: threads of the parent may have held the locks, or waited for them.
    new (&state.lock) LineLock;
    new (&state.control) LineLock;
    // Replaced only if it is taken: the thread sanitizer reports a race with the last unlock().
    if (state.writerMutex.try_lock()) {
        state.writerMutex.unlock();
    } else {
        new (&state.writerMutex) std::mutex;
    }
    new (&state.lineReady) Interfaces::ISemaphore(0);
    state.toldToEnd = ++state.currentWriter;
    Base::StoreShared(state.stopped, true);
    Base::StoreShared(state.enabled, false);
    if (state.enabledCount != nullptr) {
        Base::StoreShared(*state.enabledCount, 0);
    }
}

void UnlockAfterFork(bool inChild)
{
    if (!registryMutex.IsHeldForFork()) {
        return;
    }
    BlackBox::ringMutex.unlock();
    if (inChild) {
        ForEachLogger(RenewInChild);
    }
    registryMutex.UnlockAfterFork();
}

/// @return whether an ended line of the logger is with its writer, which is another thread.
bool IsBusy(const LoggerState& state)
{
    const LineLock::Phase phase = state.lock.CurrentPhase();
    const bool withWriter =
        phase == LineLock::Complete || phase == LineLock::Taken || phase == LineLock::Writing;
    return withWriter && !state.lock.IsMine();
}

/// Waits until a line that was ended before exit() is written. A writer that hangs costs 2.1 s.
void DrainAtExit()
{
    // A deadline, not a number of sleeps: on a busy machine each short sleep takes many times its
    // length.
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    const std::lock_guard guard(registryMutex);
    ForEachLogger([deadline](const LoggerState& state) {
        const std::uint32_t written = state.written;
        while (IsBusy(state) && state.written == written &&
               std::chrono::steady_clock::now() < deadline) {
            Base::SleepFor(pollInterval);
        }
    });
}

/// Best effort: a registration that fails for lack of memory does not keep the logger from working.
void PrepareProcess()
{
    pthread_key_create(&threadEndKey, DropLinesOfThread);
    // These two calls register fork handlers for locks that are taken while a line is composed.
    // They come before the first line, because a fork that has begun before the registration does
    // not wait for the lock. They come before the registration below, because prepare handlers run
    // in reverse order.
    Util::EnumString<LogModule>::GetMap();
    static_cast<void>(Base::LockAgainstForks());
    pthread_atfork(
        LockBeforeFork, [] { UnlockAfterFork(false); }, [] { UnlockAfterFork(true); });
    std::atexit(DrainAtExit);
    std::at_quick_exit(DrainAtExit);
}

}  // namespace

// Not a valid key: while it has this value, setting a value fails and does nothing.
pthread_key_t threadEndKey = PTHREAD_KEYS_MAX;

void RegisterLogger(LoggerState& state)
{
    // If a fork interrupts the registration, the child registers again: pthread_once() notices.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareProcess);

    const std::lock_guard guard(registryMutex);
    state.next = firstLogger;
    firstLogger = &state;
}

void UnregisterLogger(LoggerState& state)
{
    const std::lock_guard guard(registryMutex);
    for (LoggerState** link = &firstLogger; *link != nullptr; link = &(*link)->next) {
        if (*link == &state) {
            *link = state.next;
            return;
        }
    }
}

}  // namespace Tolvex::Ilog
