/// @file
/// The life of the writers of a logger: which one is current, when it ends, and who is told.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "Tolvex/Log/Private/LineLock.h"

namespace Tolvex::Ilog {

/// At most one writer of a logger is current. A writer that hangs in its policy is left behind: the
/// logger may start another one, or be destroyed, and the old writer ends when its policy returns.
/// @par Thread safety
/// Thread-safe.
class WriterLife
{
public:
    /// @param lineLock  Of the same logger.
    /// @param enabled   Flag of the logger: lines are accepted.
    /// @param stopped   Flag of the logger: there is no current writer.
    WriterLife(LineLock& lineLock, bool& enabled, bool& stopped);

    WriterLife(const WriterLife&) = delete;
    WriterLife& operator=(const WriterLife&) = delete;

    // For the logger.

    /// Waits until the writer that was told to end has ended or hangs in its policy.
    void AwaitOldWriter() const;
    /// Clears stopped. @return the number of the writer to be created, which is the current one
    /// now.
    std::uint32_t Announce();
    /// Lets lines begin and sets enabled.
    /// @return false when the writer has ended already; then nothing has changed.
    bool Admit();
    /// Clears enabled, and tells the current writer to end. Refuse lines and drop the open one
    /// first: a value that is streamed while enabled is false is missing in its line. Wake the
    /// writer then: it writes a complete line before it ends. Not while another thread is in
    /// Announce().
    void TellToEnd();
    /// Polls stopped up to 21 times, every 100 ms, or until the deadline.
    /// @return whether it became true.
    bool AwaitStopped(std::chrono::steady_clock::time_point deadline =
                          std::chrono::steady_clock::time_point::max()) const;
    /// The logger is about to be destroyed: waits for a writer that is about to end, and leaves one
    /// that hangs in its policy behind.
    void Detach();

    // For the writer with this number, on its thread.

    /// What a writer has to do next.
    enum class Step
    {
        Write,  ///< there is a complete line, which is the writer's now
        Wait,   ///< for the next token
        End,    ///< the logger must not be touched any more
    };

    void Begin(std::uint32_t number);
    Step Next(std::uint32_t number);
    /// The thread ends, perhaps because it was cancelled, or could not be created. It has no line.
    void Gone(std::uint32_t number);

    /// Keep all other threads out while the process forks; before those of LineLock.
    void LockForFork() { mutex.lock(); }
    void UnlockAfterFork() { mutex.unlock(); }
    /// In a forked child: there is no writer.
    void RenewInChild();

private:
    bool Stopped() const;
    bool TryDetach();

    LineLock& lock;
    bool& enabledFlag;
    bool& stoppedFlag;

    std::atomic<std::uint32_t> current = 0;         ///< number of the writer started last
    std::atomic<std::uint32_t> toldToEnd = 0;       ///< writers up to this number are to end
    std::atomic<Base::ThreadId> currentThread = 0;  ///< of the current writer, once it runs
    std::mutex mutex;                               ///< guards changes of current and of the flags
    bool loggerGone = false;                        ///< the flags do not exist any more
};

}  // namespace Tolvex::Ilog
