/// @file
/// The part of a logger that does not depend on its policy. Applications use LoggerBase; see
/// examples/LogLines.cpp.
#pragma once

#include <chrono>
#include <locale>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/LogType.h"
#include "Tolvex/Log/PolicyCalls.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Ilog {

struct LoggerState;

/// A manipulator such as std::endl.
using LogManipulator = std::ostream& (*)(std::ostream&);

/// What can be appended to a line: one of the types of LogValue, a module or a manipulator.
using LogArgument =
    std::variant<LogModule, const char*, int, double, std::string_view, LogManipulator>;

/// Composes the lines of a logger and has a writer thread hand them to the policy.
///
/// LoggerBase documents the operations: those of the same name do what it says there.
/// @par Thread safety
/// As LoggerBase.
class TOLVEX_EXPORT LoggerCore
{
public:
    /// Makes a disabled logger. Starts no thread.
    /// @param calls   How to call the policy; must outlive this object.
    /// @param policy  Not owned; must outlive this object.
    /// @param enabledCount  Counts enabled loggers, shared. This logger adds 1 before it accepts
    /// lines, and subtracts 1 when it does not any more. Must outlive this object and its writers.
    /// May be null.
    /// @param model   A logger in which each line is begun first. This one copies the header of the
    /// line from there, and the locale. Not owned; must outlive this object. May be null.
    LoggerCore(const PolicyCalls& calls, void* policy, int* enabledCount = nullptr,
               const LoggerCore* model = nullptr);

    /// Closes the logger; see ~LoggerBase().
    ~LoggerCore();

    LoggerCore(const LoggerCore&) = delete;
    LoggerCore& operator=(const LoggerCore&) = delete;

    /// As LoggerBase::SetTheadName().
    void SetThreadName(const std::string& name);
    /// @return whether lines are accepted. While another thread is in Enable() or Close(), true may
    /// come too early or too late.
    bool IsEnabled() const { return Base::LoadShared(enabled); }

    /// @return the locale that lines are formatted in: the global one when the logger was made.
    std::locale Locale() const;

    /// Enables the logger.
    /// @param output  Where the lines go from now on; null for where they went before. Not owned.
    /// @return false if it is not enabled, or if it keeps its old output.
    bool Enable(const std::string* output);
    /// As LoggerBase::ChangeOutput().
    bool ChangeOutput(const std::string& name);
    /// Begins a line, unless the logger is disabled. Call EndOpenLine() of all loggers first.
    void WriteHeader(LogType type);

    /// Appends to the line that the calling thread has begun. std::endl ends the line.
    /// @param argument  After a null text the values that follow are missing; a null manipulator
    /// does nothing.
    void Append(const LogArgument& argument);
    /// As LoggerBase::EndOpenLine().
    void EndOpenLine();
    /// As LoggerBase::DropLine().
    void DropLine();
    /// @return whether the caller is called by a manipulator or the policy, which must not log.
    bool IsInUseByCaller() const;

    /// Writes a whole notice, unless the logger is disabled or the line lock is not free in time.
    /// Call EndOpenLine() of all loggers first.
    /// @param text      Without the newline.
    /// @param last      true: no other line can begin after this one; the caller then calls
    /// Close().
    /// @param deadline  When to give up.
    void WriteNotice(std::string_view text, bool last,
                     std::chrono::steady_clock::time_point deadline);
    /// As LoggerBase::Close().
    /// @param deadline  When to stop waiting. If another thread is in Enable() or Close() until
    ///                  then, lines are refused, but the policy is left to that thread.
    void Close(std::chrono::steady_clock::time_point deadline =
                   std::chrono::steady_clock::time_point::max());

private:
    std::shared_ptr<LoggerState> state;  ///< shared with the writers
    const bool& enabled;                 ///< shared: lines are accepted; in the state
};

}  // namespace Tolvex::Ilog
