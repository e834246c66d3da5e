#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/LogType.h"
#include "Tolvex/Log/LoggerCore.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Ilog {

/// The types of values that can be streamed into a logger. LogLine takes everything else.
template <typename T>
concept LogValue = std::same_as<T, const char*> || std::same_as<T, char*> || std::same_as<T, int> ||
    std::same_as<T, double> || std::same_as<T, std::string_view>;

/// Composes log lines and has a thread of its own write them through a policy.
///
/// A line comes from exactly these calls, all on one thread:
/// @code
/// LoggerBase<ConsoleLogPolicy> logger;
/// logger.Enable();
/// logger.WriteHeader(LogType::Error);
/// logger << LogModule::WNET << "eth0 is down, attempt " << 3 << std::endl;
/// @endcode
/// WriteHeader() takes the line lock. The writer releases the lock after it has written the line,
/// so a second line waits for the first. A value that a thread streams without an open line is
/// dropped. A line that is left open blocks all other threads. It is dropped when its thread ends
/// or is cancelled, when an exception leaves a `<<` or SetOutput(), or when the logger is
/// closed. It is ended and written when its thread calls WriteHeader() again. Prefer LogLine, which
/// cannot leave one open.
///
/// The policy is default-constructed: ILogPolicy says what an application's own must observe. Each
/// line begins with the formatting of a new stream (decimal, precision 6), in the locale that was
/// the global one when the logger was made.
///
/// A forked child finds the logger disabled and may enable it. exit() and quick_exit() wait up to
/// 2.1 s for lines that were ended before. See examples/LogLines.cpp.
/// @tparam Policy  Where the lines go; derived from ILogPolicy, or with its operations.
/// @par Errors
/// std::system_error when a lock cannot be taken. A value that cannot be inserted is missing in its
/// line. A line for which there is no memory at all is lost.
/// @par Thread safety
/// Thread-safe, except for SetTheadName() (before Enable()), GetPolicy() and the destructor.
template <typename Policy>
class TOLVEX_EXPORT LoggerBase
{
public:
    /// Makes a disabled logger over a new policy. Starts no thread.
    LoggerBase() : core(policyCallsOf<Policy>, &policy) {}

    /// Closes the logger. Blocks as Close() does, and until the writer has ended. A writer that
    /// hangs in the policy's Write() is left behind: a policy of an application's own must then not
    /// touch its members any more.
    /// @warning A writer that has taken a line counts as hanging after 2.1 s, even if the system
    /// has not let it run since. It would then call Write() of a destroyed policy. If threads of a
    /// higher priority can keep the writer from running for that long, do not destroy the logger.
    virtual ~LoggerBase() = default;

    LoggerBase(const LoggerBase&) = delete;
    LoggerBase& operator=(const LoggerBase&) = delete;

    /// Sets the OS name of the writer's thread; used by the next Enable().
    /// @param name  15 characters at most; a longer one leaves the thread unnamed.
    /// @note The name lacks the r of "Thread".
    // Required: the name lacks an r, because callers write it so.
    void SetTheadName(const std::string& name) { core.SetThreadName(name); }

    /// Tells the policy where the lines go. Waits up to 2.1 s for a line that is being composed or
    /// written; after that the output stays as it is.
    /// @param name  Handed to the policy as it is.
    void SetOutput(const std::string& name) { core.ChangeOutput(name); }

    /// As SetOutput().
    /// @param name  Handed to the policy as it is.
    /// @return false when the output stays as it is.
    bool ChangeOutput(const std::string& name) { return core.ChangeOutput(name); }

    /// Starts the writer and enables the logger. Waits for the end of a Close() on another thread.
    /// @return true, also when it was enabled already; false when the writer thread cannot be
    /// created. The logger is disabled then. Also false when the policy calls it from its own
    /// Close() or SetOutput().
    bool Enable() { return core.Enable(nullptr); }

    /// @return whether lines are accepted. While another thread is in Enable() or Close(), true may
    /// come too early or too late.
    bool IsEnabled() const { return core.IsEnabled(); }

    /// @return the policy. The writer uses it while the logger is enabled.
    Policy& GetPolicy() { return policy; }

    /// Begins a line with "[date time]", "[temperature C]" if it is known, and the tag of the type.
    /// Does nothing while the logger is disabled.
    ///
    /// Blocks until the line before has been written. On return the line lock is held. A line that
    /// the calling thread has left open is ended and written first. Leaves errno as it is, so that
    /// the line may hold std::strerror(errno).
    /// @param type  Severity of the line.
    /// @throws std::system_error when the lock cannot be taken; resource_deadlock_would_occur when
    /// the calling thread has it already: the policy, or a manipulator, must not log.
    void WriteHeader(LogType type)
    {
        if (IsEnabled()) {
            core.EndOpenLine();
            core.WriteHeader(type);
        }
    }

    /// Inserts "[#", the text of the module, and "]".
    /// @param module  Where the line comes from.
    /// @return this logger.
    LoggerBase& operator<<(LogModule module)
    {
        core.Append(module);
        return *this;
    }

    /// Inserts a value as a stream does.
    /// @tparam T     One of the types of LogValue.
    /// @param value  After a null pointer, the values that follow are missing in the line.
    /// @return this logger.
    template <LogValue T>
    LoggerBase& operator<<(T value)
    {
        if (IsEnabled()) {
            core.Append(value);
        }
        return *this;
    }

    /// Inserts a text.
    /// @tparam T     std::string.
    /// @param value  Any bytes.
    /// @return this logger.
    template <std::same_as<std::string> T>
    LoggerBase& operator<<(const T& value)
    {
        return *this << std::string_view(value);
    }

    /// Applies the manipulator. std::endl, or another one that leaves a newline at the end of the
    /// text, ends the line and hands it to the writer. Does not wait for the writer.
    /// @param manipulator  Applied to the text of the line; must not log.
    /// @return this logger.
    LoggerBase& operator<<(LogManipulator manipulator)
    {
        core.Append(manipulator);
        return *this;
    }

    /// Hands the line to the writer if its text ends in a newline.
    /// @note A newline in the middle of the text ends nothing.
    void CheckEndOfStream() { core.Append(LogManipulator()); }

    /// Ends and hands over the line that the calling thread has left open, if there is one.
    void EndOpenLine() { core.EndOpenLine(); }

    /// Drops the line that the calling thread has left open, if there is one.
    void DropLine() { core.DropLine(); }

    /// Disables the logger, waits for the writer to write what is complete and to end, and closes
    /// the policy.
    ///
    /// Blocks up to 2.1 s, in steps of 100 ms, until the writer has ended; after that the policy is
    /// closed all the same. If an older writer still hangs, blocks up to 2.1 s more. Also waits for
    /// another thread's Enable() or Close(). Does not sleep when there is no writer.
    /// A line that is being composed is dropped, and threads that wait for the line lock return
    /// without a line.
    void Close() { core.Close(); }

private:
    friend class Logger;  // composes for several loggers at once

    /// @param enabledCount  See LoggerCore.
    explicit LoggerBase(int* enabledCount) : core(policyCallsOf<Policy>, &policy, enabledCount) {}

    Policy policy;
    LoggerCore core;
};

}  // namespace Tolvex::Ilog
