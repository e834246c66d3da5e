#pragma once

#include <concepts>
#include <exception>
#include <memory>
#include <new>
#include <ostream>
#include <pthread.h>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Log/LineLock.h"
#include "Tolvex/Log/LineText.h"
#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/LogType.h"
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
/// WriteHeader() takes the line lock, which stays taken until the writer has written the line, so a
/// second line waits for the first. A value that is streamed by a thread without an open line is
/// dropped. A line left open blocks all other threads; it is dropped when its thread ends, is
/// cancelled or lets an exception out of an insertion, or when the logger is closed, and it is
/// ended by its thread's next WriteHeader(). Prefer LogLine, which cannot leave one open.
///
/// The policy is default-constructed: see ILogPolicy for what an application's own has to keep to.
/// Each line begins with the formatting of a new stream (decimal, precision 6), in the locale that
/// was the global one when the logger was made.
///
/// A forked child finds the logger disabled and may enable it. exit() waits up to 2.1 s for lines
/// that were ended before. See examples/LogLines.cpp.
/// @tparam Policy  Where the lines go; derived from ILogPolicy, or with its operations.
/// @par Errors
/// std::system_error when a lock cannot be taken. Values that cannot be inserted are missing in the
/// line; a line for which there is no memory at all is missing.
/// @par Thread safety
/// Thread-safe, but for SetTheadName() (before Enable()), GetPolicy() and the destructor.
template <typename Policy>
class TOLVEX_EXPORT LoggerBase
{
public:
    /// Makes a disabled logger over a new policy. Starts no thread.
    LoggerBase();

    /// Closes the logger. Blocks as Close() does, and for as long as its writer, if it is not in
    /// the policy, needs to end. A policy's Write() that hangs is left behind; a policy of an
    /// application's own must then not touch its members any more.
    virtual ~LoggerBase();

    LoggerBase(const LoggerBase&) = delete;
    LoggerBase& operator=(const LoggerBase&) = delete;

    /// Sets the OS name of the writer's thread; used by the next Enable().
    /// @param name  15 characters at most; a longer one leaves the thread unnamed.
    /// @note The name lacks the r of "Thread".
    // Required: the name lacks an r, as callers write it.
    void SetTheadName(const std::string& name) { threadName = name; }

    /// Tells the policy where the lines go. Waits up to 2.1 s for a line that is being composed or
    /// written; if that is not enough, the output stays as it is.
    /// @param name  Handed to the policy as it is.
    void SetOutput(const std::string& name) { ChangeOutput(name); }

    /// As SetOutput().
    /// @param name  Handed to the policy as it is.
    /// @return false when the output stays as it is.
    bool ChangeOutput(const std::string& name);

    /// Starts the writer and enables the logger. Waits for the end of a Close() on another thread.
    ///
    /// @return true, also when it was enabled already; false when there is no thread to be had. The
    /// logger is disabled then.
    bool Enable();

    /// @return whether lines are accepted.
    bool IsEnabled() const { return Base::LoadShared(enabled); }

    /// @return the policy. The writer uses it while the logger is enabled.
    Policy& GetPolicy() { return policy; }

    /// Begins a line with "[date time]", "[temperature C]" if it is known, and the tag of the type.
    /// Does nothing while the logger is disabled.
    ///
    /// Blocks until the line before has been written. On return the line lock is held. A line that
    /// the calling thread has left open is ended and written first.
    /// @param type  Severity of the line.
    /// @throws std::system_error when the lock cannot be taken; resource_deadlock_would_occur when
    /// it is the calling thread that has it: the policy, or a manipulator, must not log.
    void WriteHeader(LogType type);

    /// Inserts "[#", the text of the module, and "]".
    /// @param module  Where the line comes from.
    /// @return this logger.
    LoggerBase& operator<<(LogModule module);

    /// Inserts a value as a stream does.
    /// @tparam T     One of the types of LogValue.
    /// @param value  A null pointer makes the values after it fail.
    /// @return this logger.
    template <LogValue T>
    LoggerBase& operator<<(T value)
    {
        return Insert(value);
    }

    /// Inserts a text.
    /// @tparam T     std::string.
    /// @param value  Any bytes.
    /// @return this logger.
    template <std::same_as<std::string> T>
    LoggerBase& operator<<(const T& value)
    {
        return Insert(value);
    }

    /// Applies the manipulator; std::endl, or any other that leaves a newline at the end of the
    /// text, ends the line and hands it to the writer. Does not wait for it.
    /// @param manipulator  Applied to the text of the line; must not log.
    /// @return this logger.
    LoggerBase& operator<<(std::ostream& (*manipulator)(std::ostream&));

    /// Hands the line to the writer if its text ends in a newline.
    /// @note A newline in the middle of the text ends nothing.
    void CheckEndOfStream();

    /// Ends the line that the calling thread has left open, if there is one.
    void FinishLine();

    /// Drops the line that the calling thread has left open, if there is one.
    void DropLine() { lineLock.Enter(); }

    /// Disables the logger, lets the writer write what is complete and end, and closes the policy.
    ///
    /// Blocks up to 2.1 s, in steps of 100 ms, until the writer has ended; when that is not enough
    /// the policy is closed all the same. Blocks up to 2.1 s more while a writer of before a last
    /// Close() still hangs, and for another thread's Enable() or Close(). Does not sleep when there
    /// is no writer. A line that is
    /// being composed is dropped, and threads that wait for the line lock go on without a line.
    void Close();

private:
    /// What a writer's thread starts from.
    struct WriterStart
    {
        LoggerBase* logger;
        std::uint32_t number;
    };

    static void* RunWriter(void* argument);
    static void RenewInChild(void* self);

    template <typename T>
    LoggerBase<Policy>& Insert(const T& value);
    void EndStep(LineEntry& line);
    void HandOver(LineEntry& line);
    void ClosePolicy(bool writerStopped);
    bool StartWriter();
    void WriteLines(LineWriter& writer);
    void WriteLine(LineWriter& writer);
    void RenewStaleBuffer();

    Policy policy;
    // The composing thread, the writer and those who enable the logger each write to cache lines of
    // their own.

    /// The line; belongs to whoever has the line lock.
    alignas(cacheLineBytes) std::stringstream buffer;
    LineLock lineLock;  ///< from WriteHeader() until the line has been written
    /// One token per complete line, and one per Close().
    alignas(cacheLineBytes) Interfaces::ISemaphore lineReady;
    alignas(cacheLineBytes) std::string threadName;
    pthread_t writerHandle = 0;  ///< of the writer that was started last
    bool enabled = false;        ///< shared: lines are accepted
    bool stopped = true;         ///< shared: there is no writer
};

template <typename Policy>
LoggerBase<Policy>::LoggerBase() : lineLock(enabled, stopped, this, RenewInChild), lineReady(0)
{
}

template <typename Policy>
LoggerBase<Policy>::~LoggerBase()
{
    try {
        Close();
    } catch (const std::exception&) {
        // Nobody can be told.
    }
    lineLock.Detach();
    RenewStaleBuffer();
}

template <typename Policy>
bool LoggerBase<Policy>::ChangeOutput(const std::string& name)
{
    if (lineLock.HeldByCaller()) {
        policy.SetOutput(name);
        return true;
    }
    const LineEntry turn = lineLock.Occupy(true);
    if (!turn) {
        return false;
    }
    policy.SetOutput(name);
    return true;
}

template <typename Policy>
bool LoggerBase<Policy>::Enable()
{
    const LineLock::Control control(lineLock);
    if (!control) {
        return false;
    }
    if (IsEnabled()) {
        return true;
    }

    RenewStaleBuffer();
    lineLock.AwaitOldWriter();
    while (lineReady.TryWait()) {
        // Tokens of the writer before, which has ended without taking them.
    }
    return StartWriter() && lineLock.Admit();
}

template <typename Policy>
bool LoggerBase<Policy>::StartWriter()
{
    std::unique_ptr<WriterStart> start(new (std::nothrow) WriterStart{this, 0});
    if (start == nullptr) {
        return false;
    }
    start->number = lineLock.AnnounceWriter();
    if (Base::StartDetachedThread(writerHandle, threadName.c_str(), RunWriter, start.get()) != 0) {
        lineLock.CancelWriter();
        return false;
    }
    static_cast<void>(start.release());  // the thread's
    return true;
}

template <typename Policy>
void LoggerBase<Policy>::WriteHeader(LogType type)
{
    if (!IsEnabled()) {
        return;
    }
    FinishLine();

    LineHeader header(type);
    // Held on return. Released by the writer, once it has written the line.
    LineEntry line = lineLock.Begin();
    if (!line) {
        return;
    }
    ResetLine(buffer);
    policy.WriteHeader(type);
    header.InsertInto(buffer);
    line.Keep();
}

template <typename Policy>
LoggerBase<Policy>& LoggerBase<Policy>::operator<<(LogModule module)
{
    if (LineEntry line = lineLock.Enter()) {
        // Required: the tag is there also for a module without a text, then empty.
        buffer << "[#" << Util::EnumString<LogModule>::From(module) << ']';
        line.Keep();
    }
    return *this;
}

template <typename Policy>
template <typename T>
LoggerBase<Policy>& LoggerBase<Policy>::Insert(const T& value)
{
    if (!IsEnabled()) {
        return *this;
    }
    if (LineEntry line = lineLock.Enter()) {
        buffer << value;
        line.Keep();
    }
    return *this;
}

template <typename Policy>
LoggerBase<Policy>& LoggerBase<Policy>::operator<<(std::ostream& (*manipulator)(std::ostream&))
{
    LineEntry line = lineLock.Enter();
    if (!line) {
        return *this;
    }
    if (!ApplyManipulator(buffer, manipulator)) {
        return *this;  // drops the line
    }
    EndStep(line);
    return *this;
}

template <typename Policy>
void LoggerBase<Policy>::CheckEndOfStream()
{
    if (LineEntry line = lineLock.Enter()) {
        EndStep(line);
    }
}

template <typename Policy>
void LoggerBase<Policy>::EndStep(LineEntry& line)
{
    if (EndsWithNewline(buffer)) {
        HandOver(line);
    } else {
        line.Keep();
    }
}

template <typename Policy>
void LoggerBase<Policy>::FinishLine()
{
    LineEntry line = lineLock.Enter();
    if (line && (EndsWithNewline(buffer) || TerminateLine(buffer))) {
        HandOver(line);
    }
}

template <typename Policy>
void LoggerBase<Policy>::HandOver(LineEntry& line)
{
    if (!line.HandOver(buffer.view())) {
        return;  // GCOV_EXCL_LINE: see LineState::HandOver()
    }
    try {
        lineReady.Notify();
    } catch (const std::system_error&) {
        if (lineLock.TakeBack()) {
            throw;
        }
    }
}

template <typename Policy>
void LoggerBase<Policy>::Close()
{
    const LineLock::Control control(lineLock);
    if (!control) {
        return;  // the policy calls it from its own Close() or SetOutput()
    }
    lineLock.Refuse();
    lineReady.Notify();
    ClosePolicy(lineLock.AwaitStopped());
}

template <typename Policy>
void LoggerBase<Policy>::ClosePolicy(bool writerStopped)
{
    if (lineLock.HeldByCaller()) {
        policy.Close();
        return;
    }
    // Required: a policy that hangs in Write() for longer than the wait is closed all the same.
    const LineEntry turn = lineLock.Occupy(writerStopped);
    policy.Close();
}

template <typename Policy>
void* LoggerBase<Policy>::RunWriter(void* argument)
{
    const std::unique_ptr<WriterStart> start(static_cast<WriterStart*>(argument));
    LineWriter writer(start->logger->lineLock, start->number);
    start->logger->WriteLines(writer);
    return nullptr;
}

template <typename Policy>
void LoggerBase<Policy>::WriteLines(LineWriter& writer)
{
    for (;;) {
        const bool early = writer.TakeSoon();
        if (!early) {
            lineReady.Wait();
        }
        LineWriter::Step step = early ? LineWriter::Step::Write : writer.Next();
        while (step == LineWriter::Step::Write) {
            WriteLine(writer);
            step = writer.FinishLine();
        }
        if (step == LineWriter::Step::End) {
            return;
        }
        if (early) {
            lineReady.TryWait();  // the token of the line; one that has yet to come wakes in vain
        }
    }
}

template <typename Policy>
void LoggerBase<Policy>::WriteLine(LineWriter& writer)
{
    try {
        writer.text.assign(writer.Line());
        writer.EnterPolicy();
        policy.Write(writer.text);
    } catch (const std::exception&) {
        // The line is lost; the next one is not.
    }
}

template <typename Policy>
void LoggerBase<Policy>::RenewInChild(void* self)
{
    // Made anew, not destroyed: a semaphore that a thread of the parent waits for cannot be.
    new (&static_cast<LoggerBase*>(self)->lineReady) Interfaces::ISemaphore(0);
}

template <typename Policy>
void LoggerBase<Policy>::RenewStaleBuffer()
{
    if (lineLock.TextIsStale()) {
        new (&buffer) std::stringstream;  // what was there cannot even be destroyed
    }
}

extern template class LoggerBase<FileLogPolicy>;
extern template class LoggerBase<ConsoleLogPolicy>;

}  // namespace Tolvex::Ilog
