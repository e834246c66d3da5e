#include "Tolvex/Log/Private/LineRegistry.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <pthread.h>

#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Log/Private/LineFacts.h"
#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Ilog {

namespace {

constexpr std::chrono::milliseconds longestDrain(2100);

alignas(8) thread_local char threadMark;  // only its address is used

constinit std::mutex registryMutex;  // guards the list; taken before the mutexes of its members
LineState* firstState = nullptr;     // the loggers of the process

std::atomic<std::uintptr_t> forkingThread = 0;  // the thread that holds the locks for a fork

bool keyCreated = false;  // set before the first logger can be enabled, constant afterwards
pthread_key_t threadEndKey;

/// Required: whatever ends the thread, no line of it stays open.
void DropLinesOfThread(void* mark)
{
    const std::lock_guard lock(registryMutex);
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        state->ThreadEnds(reinterpret_cast<std::uintptr_t>(mark));
    }
}

/// Does nothing where this has been done for the fork already, see RegisterLine().
void LockBeforeFork()
{
    if (forkingThread == CallingThread()) {
        return;
    }
    registryMutex.lock();
    forkingThread = CallingThread();
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        state->LockForFork();
    }
    LockLineFacts();
}

/// Gives what LockBeforeFork() has locked back; a second time there is nothing left.
void UnlockAfterFork(bool inChild)
{
    if (forkingThread != CallingThread()) {
        return;
    }
    UnlockLineFacts();
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        if (inChild) {
            state->RenewInChild();
        }
        state->UnlockAfterFork();
    }
    forkingThread = 0;
    registryMutex.unlock();
}

void UnlockInParent()
{
    UnlockAfterFork(false);
}

void UnlockInChild()
{
    UnlockAfterFork(true);
}

bool AllDrained()
{
    const std::lock_guard lock(registryMutex);
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        if (!state->Drained()) {
            return false;
        }
    }
    return true;
}

/// Required: a line that was ended before exit() is written; a writer that hangs costs 2.1 s.
void DrainAtExit()
{
    {
        const std::lock_guard lock(registryMutex);
        for (LineState* state = firstState; state != nullptr; state = state->next) {
            state->NoteDrainTarget();
        }
    }
    // By the clock: on a busy machine each of the short sleeps takes many times its length.
    const auto deadline = std::chrono::steady_clock::now() + longestDrain;
    while (!AllDrained() && std::chrono::steady_clock::now() < deadline) {
        Base::SleepFor(std::chrono::milliseconds(1));
    }
}

/// Best effort: what the system has no room for does not keep the logger from working.
void PrepareProcess()
{
    keyCreated = pthread_key_create(&threadEndKey, DropLinesOfThread) == 0;
    // For its preparation only, and before ours: a lock that is prepared while a fork goes on may
    // stay taken in the child.
    Util::EnumString<LogModule>::GetMap();
    pthread_atfork(LockBeforeFork, UnlockInParent, UnlockInChild);
    std::atexit(DrainAtExit);
}

}  // namespace

void RegisterLine(LineState& state)
{
    // Unlike a static's initialisation, one that a fork interrupts begins anew in the child.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareProcess);

    const std::lock_guard lock(registryMutex);
    state.next = firstState;
    firstState = &state;
}

void UnregisterLine(LineState& state)
{
    const std::lock_guard lock(registryMutex);
    for (LineState** link = &firstState; *link != nullptr; link = &(*link)->next) {
        if (*link == &state) {
            *link = state.next;
            return;
        }
    }
}

void WatchCallingThread()
{
    if (keyCreated) {
        pthread_setspecific(threadEndKey, &threadMark);
    }
}

std::uintptr_t CallingThread()
{
    return reinterpret_cast<std::uintptr_t>(&threadMark);
}

}  // namespace Tolvex::Ilog
