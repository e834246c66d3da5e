/// @file
/// The thread that writes the lines of a logger.
#pragma once

#include <chrono>
#include <cstdint>

namespace Tolvex::Ilog {

struct LoggerState;

/// The writers of one logger, which are numbered. At most one of them is current.
///
/// A writer that hangs in its policy is left behind: the logger may start another one, or be
/// destroyed, and the old writer ends when its policy returns.
/// @par Thread safety
/// Thread-safe, except that Start(), Admit() and the waits need LoggerState::control.
class Writer
{
public:
    /// @param loggerState  Not owned; must outlive this object, which holds nothing else.
    explicit Writer(LoggerState& loggerState) : logger(loggerState) {}

    /// Starts a writer and clears stopped. Waits until the one before has ended or hangs. Does
    /// nothing for a policy that needs no writer.
    /// @return false when the thread cannot be created.
    bool Start();

    /// Sets enabled and lets lines begin.
    /// @return false when the writer has ended or was told to end; then nothing has changed.
    bool Admit();

    /// Refuses lines, drops the one that is being composed, clears enabled, and tells the current
    /// writer to end. It writes a complete line before it ends.
    void Stop();

    /// Polls stopped up to 21 times, every 100 ms, or until the deadline.
    /// @return whether it became true.
    bool AwaitStopped(std::chrono::steady_clock::time_point deadline =
                          std::chrono::steady_clock::time_point::max()) const;

    /// Waits until no writer can take a line any more: the current one has ended, or one is in its
    /// policy with the line. Call Stop() before, and AwaitStopped() if a slow policy is to end.
    void AwaitEndOrHang() const;

private:
    struct Thread;

    void TellToEnd();

    LoggerState& logger;
};

}  // namespace Tolvex::Ilog
