#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/LogType.h"
#include "Tolvex/Log/LoggerBase.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Ilog {

/// The log of the process: passes every line on to a file, to the console and to a black box in
/// memory, if they are enabled.
///
/// Nothing is written until EnableFile(), EnableConsole() or EnableBlackBox() has been called.
/// LogLine is the way to write a line. Where its parts come from several places, the four steps are
/// @code
/// Logger::GetInstance()->WriteHeader(LogType::Warning);
/// *Logger::GetInstance() << LogModule::CELL << "signal " << -113 << " dBm" << std::endl;
/// @endcode
/// Every line must be ended with std::endl, on the thread that began it: a line left open keeps all
/// other threads from logging (see LoggerBase). Bytes, losses and blocking times are described in
/// docs/log-line.md.
/// @par Errors
/// std::system_error out of WriteHeader() when a line lock cannot be taken; no lock is held then.
/// @par Thread safety
/// Thread-safe. The order of the line locks is file, console, black box.
class TOLVEX_EXPORT Logger : public Interfaces::IgnitionOffMode
{
public:
    /// @return the logger of the process, made by the first call; never null, not to be deleted.
    static Logger* GetInstance()
    {
        Logger* const existing = Base::LoadShared(instance);
        return existing != nullptr ? existing : Create();
    }

    /// Closes all outputs. The library never destroys its logger. If a program destroys it,
    /// GetInstance() still returns its address: do not use it.
    ~Logger() override;

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Logs to a file from now on; on an enabled file log, to another file.
    ///
    /// The file is not opened before the first line. A file that ends in the middle of a line, or
    /// in NUL bytes after a power cut, gets a newline before the first line. Waits up to 2.1 s for
    /// a line that is being written.
    /// @param fileName  Path, relative to the working directory of each line.
    /// @return false when the name is empty, the writer thread cannot be created, or the wait was
    /// not enough; then nothing has changed. Also false when RunIgnitionOff() ends during the call.
    bool EnableFile(const std::string& fileName);

    /// Logs to standard output from now on.
    /// @return false when the writer thread cannot be created; then nothing has changed.
    bool EnableConsole();

    /// Keeps the last lines in memory from now on, whether they go to the file or not.
    ///
    /// The lines have the same bytes as in the file. They are dropped when the process ends,
    /// however it ends: call SaveLastLines() before. The thread that ends a line copies it into the
    /// black box, with hardly any system calls; docs/log-line.md names them. On an enabled black
    /// box the newest of the kept lines stay. Waits up to 2.1 s for a line that is being composed.
    ///
    /// The memory is allocated here and never grows: 256 bytes and the size of a pointer per line,
    /// and at least 64 KiB. If the lines are longer than that on average, fewer lines are kept. A
    /// line that is longer than all this memory loses its end.
    /// @param lines  How many lines to keep.
    /// @return false for 0 lines, if there is no memory, or if 2.1 s were not enough; then nothing
    /// has changed.
    bool EnableBlackBox(std::size_t lines);

    /// Stops logging to the file; see LoggerBase::Close(), also for how long it waits.
    void CloseFile();

    /// Stops logging to standard output; see LoggerBase::Close(), also for how long it waits.
    void CloseConsole();

    /// Stops keeping lines, and releases those that were kept. Drops a line that is open. Waits up
    /// to 2.1 s for a thread that is changing the line, for instance in a manipulator.
    void CloseBlackBox();

    /// Chooses when the lines of the file log reach the medium; see FileLogPolicy::SetDurability().
    /// Holds for all files, and may be called at any time.
    /// @param mode      LogDurability::None at the start of the process.
    /// @param interval  For LogDurability::Interval.
    void SetFileDurability(LogDurability mode, std::chrono::milliseconds interval = {})
    {
        fileLogger->policy.SetDurability(mode, interval);
    }

    /// Limits the size of the log file; see FileLogPolicy::SetSizeLimit(). Holds for all files, and
    /// may be called at any time.
    /// @param bytes      0 for no limit, as at the start of the process.
    /// @param keptFiles  How many full files are kept, as ".1", ".2" and so on.
    void SetFileSizeLimit(std::uint64_t bytes, unsigned keptFiles)
    {
        fileLogger->policy.SetSizeLimit(bytes, keptFiles);
    }

    /// @return whether lines go to the file.
    bool IsFileEnabled() const { return fileLogger->IsEnabled(); }

    /// @return whether lines go to standard output.
    bool IsConsoleEnabled() const { return consoleLogger->IsEnabled(); }

    /// @return whether lines are kept in memory.
    bool IsBlackBoxEnabled() const
    {
        const LoggerCore* const core = Base::LoadShared(blackBox);
        return core != nullptr && core->IsEnabled();
    }

    /// Writes the lines that the black box keeps to a file, the oldest first. Replaces the file in
    /// one step: after a failure or a loss of power there is the old file or the new one.
    ///
    /// Takes no line lock, so a watchdog may call it while another thread hangs in a line. Other
    /// threads can log during the call. Writes the file `path` + ".new", renames it, and returns
    /// when all is on the medium; waits up to 5 s while another thread or process does the same
    /// with that path. Also works in a forked child. A signal handler must not call it.
    /// @param path  Its directory must exist.
    /// @return false when the file could not be written; errno tells why (ENODATA: there is no
    /// black box). The old file is left as it was, except when only its directory could not be
    /// written to the medium.
    bool SaveLastLines(const std::string& path) const;

    /// Takes no line lock. Also works in a forked child.
    /// @return the lines that the black box keeps, the oldest first, without their newlines; none
    /// when there is no black box.
    /// @throws std::bad_alloc without memory.
    std::vector<std::string> GetLastLines() const;

    /// Begins a line in each enabled logger. Blocks until the lines before have been written.
    /// Leaves errno as it is.
    /// @param type  Severity of the line.
    /// @throws std::system_error when a line lock cannot be taken; resource_deadlock_would_occur in
    /// a manipulator. The open line is then left as it is in all outputs.
    void WriteHeader(LogType type)
    {
        if (AnyEnabled()) {
            BeginLines(type);
        }
    }

    /// Appends "[#", the text of the module, and "]".
    /// @param module  Where the line comes from.
    /// @return this logger.
    Logger& operator<<(LogModule module) { return AnyEnabled() ? Append(module) : *this; }

    /// Appends a value as a stream does.
    /// @tparam T     One of the types of LogValue.
    /// @param value  After a null pointer, the values that follow are missing in the line.
    /// @return this logger.
    template <LogValue T>
    Logger& operator<<(T value)
    {
        return AnyEnabled() ? Append(value) : *this;
    }

    /// Appends a text, without a copy of it.
    /// @tparam T     std::string.
    /// @param value  Any bytes.
    /// @return this logger.
    template <std::same_as<std::string> T>
    Logger& operator<<(const T& value)
    {
        return AnyEnabled() ? Append(std::string_view(value)) : *this;
    }

    /// Applies a manipulator to each enabled logger; std::endl ends the line. Does not wait for the
    /// writers.
    /// @param manipulator  Applied to the text of the line; must not log.
    /// @return this logger.
    Logger& operator<<(LogManipulator manipulator)
    {
        return AnyEnabled() ? Append(manipulator) : *this;
    }

    /// Drops the lines that the calling thread has left open, if there are any.
    void DropLine();

    /// Logs "All triggers have been stopped" as a notice, and stops logging to the file.
    ///
    /// The notice is the last line of the file. The console and the black box stay enabled. Waits
    /// up to 2.1 s in all: for another thread's EnableFile() or CloseFile(), for the lines before,
    /// and for the writer. When that is not enough, the notice may be missing, and another thread's
    /// EnableFile() may fail or take effect after this call.
    ///
    /// Unless the durability is LogDurability::None, the writer syncs the file before it ends: when
    /// the call returns before the 2.1 s are over, all lines in this file are on the medium. A file
    /// that was closed, or left for another one, is not synced again.
    void RunIgnitionOff() override;

private:
    friend class LogLine;

    Logger();
    static Logger* Create();

    /// Calls the action with the core of each enabled output, in the order of the line locks. When
    /// an exception or a cancellation ends the call for one, no line is left open in the others.
    template <typename Action>
    void ForEachEnabled(const Action& action)
    {
        try {
            if (fileLogger->IsEnabled()) {
                action(fileLogger->core);
            }
            if (consoleLogger->IsEnabled()) {
                action(consoleLogger->core);
            }
            if (IsBlackBoxEnabled()) {
                action(*Base::LoadShared(blackBox));
            }
        } catch (...) {
            DropLine();
            throw;
        }
    }

    /// @return true while an output accepts lines, and while one is being enabled or closed.
    /// Otherwise a line costs this call only.
    static bool AnyEnabled() { return Base::LoadShared(enabledOutputs) != 0; }

    void BeginLines(LogType type);
    Logger& Append(const LogArgument& argument);

    static Logger* instance;      ///< shared: set once
    static LoggerCore* blackBox;  ///< shared: set by the first EnableBlackBox(), never deleted
    static int enabledOutputs;    ///< shared: how many accept lines

    LoggerBase<FileLogPolicy>* fileLogger;        ///< owned
    LoggerBase<ConsoleLogPolicy>* consoleLogger;  ///< owned
};

}  // namespace Tolvex::Ilog
