#include "Tolvex/Log/LoggerCore.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <optional>
#include <system_error>
#include <type_traits>
#include <utility>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Log/Private/LineRegistry.h"
#include "Tolvex/Log/Private/LoggerState.h"
#include "Tolvex/Util/EnumString.h"

namespace Tolvex::Ilog {

using Base::CallingThread;
using Step = WriterLife::Step;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds longestWaitForPolicy(2100);

/// One Enable() or Close() at a time; a second one on the same thread, out of the policy, does not
/// enter. Disables cancellation while it exists.
class Control
{
public:
    explicit Control(LoggerState& state) : controlling(state.controlling)
    {
        if (controlling != CallingThread()) {
            lock = std::unique_lock(state.control);
            controlling = CallingThread();
        }
    }
    ~Control()
    {
        if (lock) {
            controlling = 0;
        }
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    explicit operator bool() const { return lock.owns_lock(); }

private:
    const Base::NoCancellation scope;
    std::unique_lock<std::mutex> lock;
    std::atomic<Base::ThreadId>& controlling;
};

/// The calling thread's right to use the buffer and the policy. Whatever ends the scope early, an
/// exception or a cancellation, gives the line up.
class LineStep
{
public:
    LineStep(LineLock& lineLock, bool lineTaken) : lock(lineLock), taken(lineTaken) {}
    ~LineStep()
    {
        if (taken) {
            lock.Release(CallingThread());
        }
    }
    LineStep(const LineStep&) = delete;
    LineStep& operator=(const LineStep&) = delete;

    explicit operator bool() const { return taken; }

    /// Ends the step as intended: the line stays open, or is complete.
    /// @return false when the logger was closed meanwhile; the line is given up then.
    bool End(LineLock::Phase phase)
    {
        const bool ended = lock.Advance(LineLock::Inserting, phase);
        taken = !ended;
        return ended;
    }

private:
    LineLock& lock;
    bool taken;
};

/// Makes the buffer empty, good and formatting as a new stream does. Keeps its memory.
void Reset(std::stringstream& buffer, const std::locale& locale)
{
    std::ios& stream = buffer;
    if (stream.rdbuf() != buffer.rdbuf()) {
        stream.rdbuf(buffer.rdbuf());
    }
    buffer.tie(nullptr);
    if (buffer.getloc() != locale) {
        buffer.imbue(locale);
    }
    buffer.exceptions(std::ios_base::goodbit);
    buffer.clear();
    buffer.flags(std::ios_base::skipws | std::ios_base::dec);
    buffer.precision(6);
    buffer.width(0);
    buffer.fill(' ');
    if (!buffer.view().empty()) {
        buffer.str(std::string());
    }
}

bool EndsWithNewline(const std::stringstream& buffer)
{
    // Required: a newline in the middle of the text ends nothing.
    return buffer.view().ends_with('\n');
}

/// Ends the text with a newline, also when insertions have failed. @return false without memory.
bool Terminate(std::stringstream& buffer)
{
    // A failed insertion, such as of a null pointer, must not keep the line from ending.
    buffer.clear();
    if (buffer.put('\n').good()) {
        return true;
    }
    // No memory for one more character: the newline takes the place of the last one.
    buffer.clear();
    return buffer.seekp(-1, std::ios_base::end).put('\n').good();
}

bool IsEndl(LogManipulator manipulator)
{
    return manipulator == static_cast<LogManipulator>(std::endl);
}

/// A writer of a logger. Made by the logger, then owned by the writer's thread.
class Writer
{
public:
    explicit Writer(std::shared_ptr<LoggerState> loggerState)
        : state(std::move(loggerState)), number(state->writers.Announce())
    {
    }
    /// Also when the thread could not be created or was cancelled.
    ~Writer()
    {
        if (running) {
            state->lock.Release(CallingThread());
        }
        state->writers.Gone(number);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    static void* Run(void* writer)
    {
        const std::unique_ptr<Writer> self(static_cast<Writer*>(writer));
        self->running = true;
        self->state->writers.Begin(self->number);
        while (self->WriteLines()) {
        }
        return nullptr;
    }

private:
    /// Waits for a token and writes what is complete. @return false when the writer has to end.
    bool WriteLines()
    {
        state->lineReady.Wait();
        for (;;) {
            const Step step = state->writers.Next(number);
            if (step != Step::Write) {
                return step == Step::Wait;
            }
            WriteLine();
            if (state->lock.Release(CallingThread()) == LineLock::Abandoned) {
                return false;
            }
        }
    }

    void WriteLine()
    {
        try {
            text.assign(state->buffer.view());
            // From here on the logger may be destroyed: only the policy and the text are used.
            state->lock.Advance(LineLock::Taken, LineLock::Writing);
            state->calls.write(state->policy, text);
        } catch (const std::exception&) {
            // The line is lost; the next one is not.
        }
        ++state->written;
    }

    std::shared_ptr<LoggerState> state;
    std::uint32_t number;
    bool running = false;  ///< on its own thread
    std::string text;      ///< the line in hand; keeps its memory
};

/// Begins the text of a line.
void Begin(LoggerState& state, LogType type)
{
    Reset(state.buffer, state.locale);
    state.calls.writeHeader(state.policy, type);
    state.header.InsertInto(state.buffer, type);
}

/// Inserts "[#", the text of the module, and "]".
void Insert(std::stringstream& buffer, LogModule module)
{
    const std::string& text = Util::EnumString<LogModule>::From(module);
    // In one piece: each insertion into a stream takes some hundred instructions.
    std::array<char, 64> tag{'[', '#'};
    if (text.size() > tag.size() - 3) {
        buffer << "[#" << text << ']';
        return;
    }
    // Required: the tag is there also for a module without a text, then empty.
    char* const end = std::copy(text.begin(), text.end(), tag.data() + 2);
    *end = ']';
    buffer.write(tag.data(), end + 1 - tag.data());
}

/// Inserts a module or a value.
void Insert(std::stringstream& buffer, const LogArgument& argument)
{
    std::visit(
        [&buffer](auto value) {
            if constexpr (std::is_same_v<decltype(value), LogModule>) {
                Insert(buffer, value);
            } else {
                buffer << value;
            }
        },
        argument);
}

/// Hands the complete line over to the writer.
void HandOver(LoggerState& state, LineStep& step)
{
    if (!step.End(LineLock::Complete)) {
        return;
    }
    try {
        state.lineReady.Notify();
    } catch (const std::system_error&) {
        // The writer was not woken. If it has not taken the line yet, the line is dropped.
        if (state.lock.Advance(LineLock::Complete, LineLock::Inserting)) {
            state.lock.Release(CallingThread());
            throw;
        }
    }
}

/// Hands the line over if it is complete, or leaves it open.
void EndStep(LoggerState& state, LineStep& step)
{
    if (EndsWithNewline(state.buffer)) {
        HandOver(state, step);
    } else {
        step.End(LineLock::Open);
    }
}

/// Uses the policy outside of a line. @return false when the line could not be had in time.
template <typename Call>
bool CallPolicy(LoggerState& state, Clock::duration longest, const Call& call)
{
    if (state.lock.Owner() == CallingThread()) {
        call();
        return true;
    }
    const LineStep step(state.lock,
                        state.lock.Take(LineLock::Entry::Policy, Clock::now() + longest));
    if (step) {
        call();
    }
    return static_cast<bool>(step);
}

/// Refuses lines, drops the one that is being composed, and tells the writer to end. Under Control.
void StopWriter(LoggerState& state)
{
    state.lock.Refuse();
    state.lock.Drop();
    state.writers.TellToEnd();
    state.lineReady.Notify();
}

/// In a forked child the buffer may have been in use by a thread that does not exist there.
void RenewStaleBuffer(LoggerState& state)
{
    if (std::exchange(state.bufferStale, false)) {
        new (&state.buffer) std::stringstream;  // The old one cannot even be destroyed.
    }
}

}  // namespace

LoggerCore::LoggerCore(const PolicyCalls& calls, void* policy)
    : state(std::make_shared<LoggerState>(buffer, lineReady, calls, policy, enabled, stopped)),
      lineReady(0)
{
    RegisterLogger(*state);
}

LoggerCore::~LoggerCore()
{
    try {
        Close();
    } catch (const std::exception&) {
        // A lock could not be taken. The writer has to end all the same, because it uses this
        // object.
        StopWriter(*state);
    }
    UnregisterLogger(*state);
    state->writers.Detach();
    RenewStaleBuffer(*state);
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
        return output == nullptr || CallPolicy(*state, longestWaitForPolicy, [&] {
                   state->calls.openOutput(state->policy, *output);
               });
    };
    if (IsEnabled()) {
        return openOutput();
    }

    RenewStaleBuffer(*state);
    StopWriter(*state);  // A notice that is the last line leaves its writer to Close().
    state->writers.AwaitOldWriter();
    while (lineReady.TryWait()) {
        // Tokens that the writer before has not taken.
    }
    std::unique_ptr<Writer> writer(new (std::nothrow) Writer(state));
    if (writer == nullptr ||
        Base::StartDetachedThread(writerHandle, threadName.c_str(), Writer::Run, writer.get(),
                                  Base::SignalHandlers::Blocked) != 0) {
        return false;
    }
    static_cast<void>(writer.release());  // owned by its thread
    bool opened = false;
    try {
        opened = openOutput();
    } catch (...) {
        StopWriter(*state);
        throw;
    }
    if (!opened) {
        StopWriter(*state);
        state->writers.AwaitStopped();
        return false;
    }
    return state->writers.Admit();
}

bool LoggerCore::ChangeOutput(const std::string& name)
{
    return CallPolicy(*state, longestWaitForPolicy,
                      [&] { state->calls.setOutput(state->policy, name); });
}

void LoggerCore::WriteHeader(LogType type)
{
    if (!IsEnabled()) {
        return;
    }
    EndOpenLine();
    WatchCallingThread();
    LineStep step(state->lock, state->lock.Take(LineLock::Entry::Line));
    if (step) {
        Begin(*state, type);
        // Held on return. Released by the writer, once it has written the line.
        step.End(LineLock::Open);
    }
}

void LoggerCore::Append(const LogArgument& argument)
{
    LineStep step(state->lock, state->lock.Advance(LineLock::Open, LineLock::Inserting));
    if (!step) {
        return;
    }
    const LogManipulator* const manipulator = std::get_if<LogManipulator>(&argument);
    if (manipulator == nullptr) {
        Insert(buffer, argument);
        step.End(LineLock::Open);
        return;
    }

    if (IsEndl(*manipulator)) {
        if (!Terminate(buffer)) {
            return;  // drops the line
        }
    } else if (*manipulator != nullptr) {
        (*manipulator)(buffer);
    }
    EndStep(*state, step);
}

void LoggerCore::CheckEndOfStream()
{
    LineStep step(state->lock, state->lock.Advance(LineLock::Open, LineLock::Inserting));
    if (step) {
        EndStep(*state, step);
    }
}

void LoggerCore::EndOpenLine()
{
    LineStep step(state->lock, state->lock.Advance(LineLock::Open, LineLock::Inserting));
    if (step && (EndsWithNewline(buffer) || Terminate(buffer))) {
        HandOver(*state, step);
    }
}

void LoggerCore::DropLine()
{
    const LineStep step(state->lock, state->lock.Advance(LineLock::Open, LineLock::Inserting));
}

void LoggerCore::WriteNotice(std::string_view text, bool last, Clock::time_point deadline)
{
    if (!IsEnabled()) {
        return;
    }
    EndOpenLine();
    WatchCallingThread();
    // Another thread's Close() would drop the last notice while it is being composed.
    std::optional<Control> control;
    if (last && !control.emplace(*state)) {
        return;  // The policy calls this from its own Close() or SetOutput().
    }
    LineStep step(state->lock, state->lock.Take(LineLock::Entry::Line, deadline));
    if (!step) {
        return;
    }
    if (last) {
        state->lock.Refuse();
    }
    Begin(*state, LogType::Notice);
    buffer << text;
    if (Terminate(buffer)) {
        HandOver(*state, step);
    }
}

void LoggerCore::Close(Clock::time_point deadline)
{
    const Control control(*state);
    if (!control) {
        return;  // The policy calls this from its own Close() or SetOutput().
    }
    StopWriter(*state);
    // Required: a policy that hangs in Write() for longer than the wait is closed all the same.
    const Clock::duration longest = state->writers.AwaitStopped(deadline)
                                        ? Clock::duration(longestWaitForPolicy)
                                        : Clock::duration(0);
    const auto close = [this] { state->calls.close(state->policy); };
    if (!CallPolicy(*state, longest, close)) {
        close();
    }
}

}  // namespace Tolvex::Ilog
