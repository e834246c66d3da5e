#include "Tolvex/Log/Private/Writer.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/LoggerState.h"

namespace Tolvex::Ilog {

namespace {

constexpr std::chrono::milliseconds stopPollInterval(100);
constexpr std::chrono::milliseconds pollInterval(1);

}  // namespace

/// One writer. Made by Start(), then owned by its own thread.
struct Writer::Thread
{
    /// Makes the writer the current one.
    explicit Thread(LoggerState& logger) : state(logger.shared_from_this())
    {
        const std::lock_guard guard(state->writerMutex);
        Base::StoreShared(state->stopped, false);
        number = ++state->currentWriter;
    }
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    static void* Run(void* thread);

    const std::shared_ptr<LoggerState> state;
    std::uint32_t number = 0;
};

/// The writer has ended: it was told to, it was cancelled, or its thread could not be created.
Writer::Thread::~Thread()
{
    const std::lock_guard guard(state->writerMutex);
    if (number != state->currentWriter) {
        return;
    }
    Writer(*state).TellToEnd();
    // No thread is left that could write a complete line.
    if (state->lock.Advance(LineLock::Complete, LineLock::Taken)) {
        state->lock.Release();
    }
    Base::StoreShared(state->stopped, true);
}

/// Writes the lines that become complete, until it is told to end.
void* Writer::Thread::Run(void* thread)
{
    const std::unique_ptr<Thread> self(static_cast<Thread*>(thread));
    LoggerState& state = *self->state;
    const auto toldToEnd = [&] { return state.toldToEnd >= self->number; };
    const auto release = [](LineLock* taken) { taken->Release(); };
    std::string text;  // the line in hand; keeps its memory
    for (;;) {
        // A writer that is told to end does not wait for a token: no further one may come.
        if (!toldToEnd()) {
            state.lineReady.Wait();
        }
        // Read before looking for a line: no line becomes complete after the writer is told to end.
        const bool ending = toldToEnd();
        if (self->number != state.currentWriter ||
            !state.lock.Advance(LineLock::Complete, LineLock::Taken)) {
            if (ending) {
                break;
            }
            continue;
        }

        // By scope: the writer may also be cancelled in the policy.
        const std::unique_ptr<LineLock, decltype(release)> scope(&state.lock);
        try {
            text.assign(state.buffer.view());
            // From here on the logger may be destroyed: only the state and the text are used.
            state.lock.Advance(LineLock::Taken, LineLock::Writing);
            state.calls.write(state.policy, text);
        } catch (const std::exception&) {
            // The line is lost; the next one is not.
        }
        ++state.written;
    }
    // The token that this writer took may have been meant for the current one.
    state.lineReady.Notify();
    return nullptr;
}

bool Writer::Start()
{
    if (logger.calls.keep != nullptr) {
        return true;
    }
    AwaitEndOrHang();
    std::unique_ptr<Thread> thread(new (std::nothrow) Thread(logger));
    if (thread == nullptr ||
        Base::StartDetachedThread(logger.writerHandle, logger.threadName.c_str(), Thread::Run,
                                  thread.get(), Base::SignalHandlers::Blocked) != 0) {
        return false;
    }
    static_cast<void>(thread.release());  // owned by its thread
    return true;
}

bool Writer::Admit()
{
    const std::lock_guard guard(logger.writerMutex);
    if (logger.calls.keep == nullptr && logger.toldToEnd == logger.currentWriter) {
        return false;
    }
    if (logger.enabledCount != nullptr) {
        Base::AddShared(*logger.enabledCount, 1);
    }
    Base::StoreShared(logger.enabled, true);
    // Last: the calls for an open line do nothing while its logger is not enabled and counted.
    logger.lock.Admit();
    return true;
}

void Writer::Stop()
{
    {
        const std::lock_guard guard(logger.writerMutex);
        TellToEnd();
    }
    logger.lineReady.Notify();
}

/// Call with writerMutex held.
void Writer::TellToEnd()
{
    // In this order: once enabled is cleared, values are missing in an open line, so the line is
    // dropped before.
    logger.lock.Refuse();
    logger.lock.Drop();
    const bool wasEnabled = Base::LoadShared(logger.enabled);
    Base::StoreShared(logger.enabled, false);
    if (wasEnabled && logger.enabledCount != nullptr) {
        Base::AddShared(*logger.enabledCount, -1);
    }
    logger.toldToEnd = logger.currentWriter.load();
}

bool Writer::AwaitStopped(std::chrono::steady_clock::time_point deadline) const
{
    for (auto waited = stopPollInterval; waited <= longestWait && !Base::LoadShared(logger.stopped);
         waited += stopPollInterval) {
        // After the deadline `left` is not positive, and SleepFor() returns at once.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        Base::SleepFor(std::min(left, stopPollInterval));
    }
    return Base::LoadShared(logger.stopped);
}

void Writer::AwaitEndOrHang() const
{
    for (;;) {
        const bool stopped = Base::LoadShared(logger.stopped);
        const LineLock::Phase phase = logger.lock.CurrentPhase();
        if (phase == LineLock::Writing || (stopped && phase != LineLock::Taken)) {
            return;
        }
        Base::SleepFor(pollInterval);
    }
}

}  // namespace Tolvex::Ilog
