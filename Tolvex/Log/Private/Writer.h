/// @file
/// The thread that writes the lines of a logger.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "Tolvex/Base/Private/CallingThread.h"

namespace Tolvex::Ilog {

struct LoggerState;

/// The writers of one logger, of which at most one is current.
///
/// A writer that hangs in its policy is left behind: the logger may start another one, or be
/// destroyed, and the old writer ends when its policy returns.
/// @par Thread safety
/// Thread-safe, except that Start(), Stop() and the waits need LoggerState::control.
class Writer
{
public:
    /// @param loggerState  The one that this object belongs to.
    explicit Writer(LoggerState& loggerState) : logger(loggerState) {}

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Starts a writer and clears stopped. Waits until the one before has ended or hangs.
    /// @return false when the thread cannot be created.
    bool Start();

    /// Lets lines begin and sets enabled.
    /// @return false when the writer has ended already; then nothing has changed.
    bool Admit();

    /// Refuses lines, drops the one that is being composed, clears enabled, and tells the current
    /// writer to end. It writes a complete line before it ends.
    void Stop();

    /// Polls stopped up to 21 times, every 100 ms, or until the deadline.
    /// @return whether it became true.
    bool AwaitStopped(std::chrono::steady_clock::time_point deadline =
                          std::chrono::steady_clock::time_point::max()) const;

    /// Waits until no writer uses the logger: each has ended, or hangs in its policy.
    void AwaitEndOrHang() const;

    /// Keep all other threads out while the process forks; before those of LineLock. In a forked
    /// child there is no writer.
    void LockForFork() { mutex.lock(); }
    void UnlockAfterFork(bool inChild);

private:
    struct Thread;

    std::uint32_t Announce();
    void TellToEnd();
    void End(std::uint32_t number);

    LoggerState& logger;
    std::atomic<std::uint32_t> current = 0;         ///< number of the writer started last
    std::atomic<std::uint32_t> toldToEnd = 0;       ///< writers up to this number are to end
    std::atomic<Base::ThreadId> currentThread = 0;  ///< of the current writer, once it runs
    std::mutex mutex;  ///< guards changes of current and of the flags of the logger
};

}  // namespace Tolvex::Ilog
