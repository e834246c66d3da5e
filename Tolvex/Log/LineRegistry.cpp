#include "Tolvex/Log/LineRegistry.h"

#include <chrono>
#include <cstdlib>
#include <pthread.h>

#include "Tolvex/Log/LineFacts.h"
#include "Tolvex/Util/Sleep.h"

namespace Tolvex::Ilog {

namespace {

constexpr std::chrono::milliseconds longestDrain(2100);

alignas(8) thread_local char threadMark;  // only its address is used

constinit std::mutex registryMutex;  // guards the list; taken before the mutexes of its members
LineState* firstState = nullptr;     // the loggers of the process

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

void LockBeforeFork()
{
    registryMutex.lock();
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        state->LockForFork();
    }
    LockLineFacts();
}

void UnlockInParent()
{
    UnlockLineFacts();
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        state->UnlockAfterFork();
    }
    registryMutex.unlock();
}

void UnlockInChild()
{
    UnlockLineFacts();
    for (LineState* state = firstState; state != nullptr; state = state->next) {
        state->RenewInChild();
        state->UnlockAfterFork();
    }
    registryMutex.unlock();
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
        Util::SleepFor(std::chrono::milliseconds(1));
    }
}

/// Best effort: what the system has no room for does not keep the logger from working.
void PrepareProcess()
{
    keyCreated = pthread_key_create(&threadEndKey, DropLinesOfThread) == 0;
    pthread_atfork(LockBeforeFork, UnlockInParent, UnlockInChild);
    std::atexit(DrainAtExit);
}

}  // namespace

void RegisterLine(LineState& state)
{
    static const bool prepared = (PrepareProcess(), true);
    static_cast<void>(prepared);

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
