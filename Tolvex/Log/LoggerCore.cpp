#include "Tolvex/Log/LoggerCore.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <utility>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Log/Private/LoggerRegistry.h"
#include "Tolvex/Log/Private/LoggerState.h"
#include "Tolvex/Log/Private/Writer.h"
#include "Tolvex/Util/EnumString.h"

namespace Tolvex::Ilog {

using Clock = std::chrono::steady_clock;

namespace {

/// Lets one thread at a time run Enable() or Close(). A nested call from the policy is refused, and
/// so is a call that has waited until its deadline. Disables cancellation while it exists.
class Control
{
public:
    explicit Control(LoggerState& state, Clock::time_point deadline = LineQueue::noDeadline)
        : lock(state.control), taken(!lock.IsMine() && lock.Take(LineLock::Entry::Policy, deadline))
    {
    }
    ~Control()
    {
        if (taken) {
            lock.Release();
        }
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    explicit operator bool() const { return taken; }

private:
    const Base::NoCancellation scope;
    LineLock& lock;
    const bool taken;
};

/// The calling thread's right to use the buffer and the policy. If an exception or a cancellation
/// ends the scope early, the line is dropped.
class LineStep
{
public:
    /// Continues the line that the calling thread has open, if there is one.
    explicit LineStep(LoggerState& loggerState)
        : LineStep(loggerState, loggerState.lock.Advance(LineLock::Open, LineLock::Inserting))
    {
    }
    /// @param lineTaken  Whether the calling thread has just taken the line.
    LineStep(LoggerState& loggerState, bool lineTaken) : state(loggerState), taken(lineTaken) {}
    ~LineStep()
    {
        if (taken) {
            state.lock.Release();
        }
    }
    LineStep(const LineStep&) = delete;
    LineStep& operator=(const LineStep&) = delete;

    explicit operator bool() const { return taken; }

    /// Ends the step. If the logger was closed meanwhile, the line is dropped.
    void LeaveOpen() { taken = !state.lock.Advance(LineLock::Inserting, LineLock::Open); }

    /// Ends the line, with a newline if there is none at the end, and hands it over to the writer.
    /// A policy that needs no writer takes the line at once. Then, and when there is no memory for
    /// a line, the end of the scope frees the line.
    void End()
    {
        std::stringstream& buffer = state.buffer;
        if (!buffer.view().ends_with('\n')) {
            // A failed insertion, such as of a null pointer, must not keep the line from ending.
            buffer.clear();
            if (!buffer.put('\n').good()) {
                // No memory for one more character: the newline takes the place of the last one.
                buffer.clear();
                if (!buffer.seekp(-1, std::ios_base::end).put('\n').good()) {
                    return;
                }
            }
        }
        if (state.calls.keep != nullptr) {
            // Not a line that a Close() or a fork has dropped while a manipulator ran.
            if (state.lock.Advance(LineLock::Inserting, LineLock::Inserting)) {
                state.calls.keep(state.policy, buffer.view());
            }
            return;
        }
        taken = !state.lock.Advance(LineLock::Inserting, LineLock::Complete);
        if (taken) {
            return;
        }
        try {
            state.lineReady.Notify();
        } catch (const std::system_error&) {
            // The writer was not woken. If it has not taken the line yet, the line is dropped.
            taken = state.lock.Advance(LineLock::Complete, LineLock::Inserting);
            if (taken) {
                throw;
            }
        }
    }

private:
    LoggerState& state;
    bool taken;
};

/// Begins the text of a line, formatting as a new stream does. Keeps the memory of the buffer.
void Begin(LoggerState& state, LogType type)
{
    std::stringstream& buffer = state.buffer;
    // Only a manipulator can have changed the format.
    if (std::exchange(state.formatChanged, false)) {
        std::ios fresh(nullptr);
        fresh.imbue(state.locale);
        buffer.copyfmt(fresh);
        static_cast<std::ios&>(buffer).rdbuf(buffer.rdbuf());
    }
    buffer.clear();
    if (!buffer.view().empty()) {
        buffer.str(std::string());
    }

    state.calls.writeHeader(state.policy, type);
    if (state.model != nullptr) {
        // The header of the line that the calling thread has just begun there.
        LineStep step(*state.model);
        if (step) {
            buffer << state.model->buffer.view();
            step.LeaveOpen();
            return;
        }
    }
    state.header.InsertInto(buffer, type);
}

/// Inserts "[#", the text of the module, and "]".
std::ostream& operator<<(std::stringstream& buffer, LogModule module)
{
    const std::string& text = Util::EnumString<LogModule>::From(module);
    // In one piece: each insertion into a stream takes some hundred instructions.
    std::array<char, 64> tag{'[', '#'};
    if (text.size() > tag.size() - 3) {
        return buffer << "[#" << text << ']';
    }
    char* const end = std::copy(text.begin(), text.end(), tag.data() + 2);
    *end = ']';
    return buffer.write(tag.data(), end + 1 - tag.data());
}

/// Uses the policy outside of a line. @return false when the line was not free in time.
template <typename Call>
bool CallPolicy(LoggerState& state, Clock::time_point deadline, const Call& call)
{
    // In a step, so that no other thread takes the line. The calling thread may have a line open.
    const bool open = state.lock.Advance(LineLock::Open, LineLock::Inserting);
    if (!open && state.lock.IsMine()) {
        call();  // Called by the policy or by a manipulator: this thread is in a step already.
        return true;
    }
    LineStep step(state, open || state.lock.Take(LineLock::Entry::Policy, deadline));
    if (!step) {
        return false;
    }
    call();
    if (open) {
        step.LeaveOpen();
    }
    return true;
}

/// In a forked child the buffer may have been in use by a thread that does not exist there.
void RenewStaleBuffer(LoggerState& state)
{
    if (state.bufferStale) {
        new (&state.buffer) std::stringstream;  // The old one cannot even be destroyed.
        state.formatChanged = true;
        state.bufferStale = false;  // Last: a child that is forked meanwhile does it again.
    }
}

}  // namespace

LoggerCore::LoggerCore(const PolicyCalls& calls, void* policy, int* enabledCount,
                       const LoggerCore* model)
    : state(std::make_shared<LoggerState>(calls, policy, enabledCount,
                                          model == nullptr ? nullptr : model->state.get())),
      enabled(state->enabled)
{
    RegisterLogger(*state);
}

LoggerCore::~LoggerCore()
{
    const Base::NoCancellation scope;  // A cancellation that leaves a destructor ends the process.
    try {
        Close();
    } catch (const std::exception&) {
        // A lock could not be taken. The writer has to end all the same, because it uses the
        // policy.
        Writer(*state).Stop();
        Writer(*state).AwaitStopped();
    }
    UnregisterLogger(*state);
    Writer(*state).AwaitEndOrHang();
    RenewStaleBuffer(*state);
}

void LoggerCore::SetThreadName(const std::string& name)
{
    state->threadName = name;
}

std::locale LoggerCore::Locale() const
{
    return state->locale;
}

bool LoggerCore::Enable(const std::string* output)
{
    const Control control(*state);
    if (!control) {
        return false;
    }
    const auto openOutput = [&] {
        return output == nullptr || CallPolicy(*state, Clock::now() + longestWait, [&] {
                   state->calls.openOutput(state->policy, *output);
               });
    };
    if (IsEnabled()) {
        return openOutput() && IsEnabled();  // RunIgnitionOff() may have disabled it meanwhile.
    }

    RenewStaleBuffer(*state);
    Writer(*state).Stop();  // Again: a Close() before may have failed to wake the writer.
    try {
        if (Writer(*state).Start() && openOutput() && Writer(*state).Admit()) {
            return true;
        }
    } catch (...) {
        Writer(*state).Stop();
        throw;
    }
    Writer(*state).Stop();
    return false;
}

bool LoggerCore::ChangeOutput(const std::string& name)
{
    return CallPolicy(*state, Clock::now() + longestWait,
                      [&] { state->calls.setOutput(state->policy, name); });
}

void LoggerCore::WriteHeader(LogType type)
{
    const int errorOfCaller = errno;
    pthread_setspecific(threadEndKey, &Base::threadMark);
    LineStep step(*state, state->lock.Take(LineLock::Entry::Line));
    if (step) {
        Begin(*state, type);
        // The lock is held on return. The writer releases it after it has written the line.
        step.LeaveOpen();
    }
    errno = errorOfCaller;  // The line may be about it.
}

void LoggerCore::Append(const LogArgument& argument)
{
    LineStep step(*state);
    if (!step) {
        return;
    }
    const LogManipulator* const manipulator = std::get_if<LogManipulator>(&argument);
    if (manipulator == nullptr) {
        std::visit([this](auto value) { state->buffer << value; }, argument);
        step.LeaveOpen();
        return;
    }

    if (*manipulator == static_cast<LogManipulator>(std::endl)) {
        state->buffer.clear();
        state->buffer.put('\n');  // also after another newline
        step.End();
        return;
    }
    if (*manipulator != nullptr) {
        state->formatChanged = true;
        (*manipulator)(state->buffer);
    }
    // A newline in the middle of the text ends nothing.
    if (state->buffer.view().ends_with('\n')) {
        step.End();
    } else {
        step.LeaveOpen();
    }
}

void LoggerCore::EndOpenLine()
{
    LineStep step(*state);
    if (step) {
        step.End();
    }
}

void LoggerCore::DropLine()
{
    const LineStep step(*state);
}

bool LoggerCore::IsInUseByCaller() const
{
    return state->lock.IsInUseByMe();
}

void LoggerCore::WriteNotice(std::string_view text, bool last, Clock::time_point deadline)
{
    // Another thread's Close() would drop the last notice while it is being composed.
    std::optional<Control> control;
    if (last && !control.emplace(*state, deadline)) {
        return;
    }
    LineStep step(*state, state->lock.Take(LineLock::Entry::Line, deadline));
    if (!step) {
        return;
    }
    if (last) {
        state->lock.Refuse();
        state->calls.beginLastLine(state->policy);
    }
    Begin(*state, LogType::Notice);
    state->buffer << text;
    step.End();
}

void LoggerCore::Close(Clock::time_point deadline)
{
    const Control control(*state, deadline);
    Writer(*state).Stop();
    if (!control) {
        return;  // The thread that has the control uses the policy.
    }
    const bool stopped = Writer(*state).AwaitStopped(deadline);
    const auto close = [this] { state->calls.close(state->policy); };
    const auto end = stopped ? std::min(deadline, Clock::now() + longestWait) : Clock::now();
    if (!CallPolicy(*state, end, close)) {
        // Required: a policy that hangs in Write() for longer than the wait is closed while that
        // call still runs.
        close();
    }
}

}  // namespace Tolvex::Ilog
