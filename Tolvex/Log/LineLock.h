/// @file
/// The line lock of a logger: who may compose the line, and when its writer has to do what.
/// Applications use LoggerBase, which is built on this; see examples/LogLines.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Ilog {

class LineLock;
class LineState;

/// What processors exchange at a time, in bytes. What different threads write is kept so far apart.
/// Not std::hardware_destructive_interference_size: the layout of loggers must not depend on the
/// options of the compiler.
constexpr std::size_t cacheLineBytes = 64;

/// A step of composing a line: while it exists, the calling thread alone changes the text.
///
/// Whatever ends the scope early, an exception or a cancellation, drops the line and gives the lock
/// back. Keep() and HandOver() are the ways to end it as intended.
/// @par Thread safety
/// Belongs to the thread that made it.
class TOLVEX_EXPORT LineEntry
{
public:
    /// Made by LineLock.
    /// @param lineState  Not owned; null for no line.
    explicit LineEntry(LineState* lineState) : state(lineState) {}
    /// Drops the line, unless Keep() or HandOver() came before.
    ~LineEntry();

    /// Goes on with the step of another entry.
    /// @param other  Left without a line.
    LineEntry(LineEntry&& other) noexcept : state(other.state) { other.state = nullptr; }
    LineEntry(const LineEntry&) = delete;
    LineEntry& operator=(const LineEntry&) = delete;

    /// @return whether there is a line that the calling thread may change.
    explicit operator bool() const { return state != nullptr; }

    /// Ends the step. The line stays open, and the lock taken.
    void Keep();

    /// Ends the step and the line, which is the writer's from now on.
    ///
    /// @param text  The line. Not copied: to be left as it is until the lock is free again.
    /// @return false when the logger was closed meanwhile; the line is dropped then.
    bool HandOver(std::string_view text);

private:
    LineState* state;  ///< null: no line. Not owned
};

/// Mutual exclusion of the lines of one logger, and the life of the logger's writers.
///
/// Unlike a std::mutex it is taken by the thread that composes a line and released by the writer
/// that has written it. It is given back too when the composing thread ends, is cancelled, or
/// closes the logger; and a forked child finds it free and the logger disabled.
/// @par Errors
/// As std::mutex: std::system_error with the error number.
/// @par Thread safety
/// Thread-safe.
class TOLVEX_EXPORT LineLock
{
public:
    /// @param enabledFlag  Set and cleared here, polled by the logger.
    /// @param stoppedFlag  Set and cleared here, polled by the logger.
    /// @param owner        Handed to renew.
    /// @param renew        Called in a forked child: makes the locks of the owner anew.
    LineLock(bool& enabledFlag, bool& stoppedFlag, void* owner, void (*renew)(void* owner));
    /// Call Detach() before what the writers use goes away.
    ~LineLock();

    LineLock(const LineLock&) = delete;
    LineLock& operator=(const LineLock&) = delete;

    /// Takes the lock for a new line. Blocks until the line before has been written; no
    /// cancellation point.
    ///
    /// @return no line when the logger was closed meanwhile.
    /// @throws std::system_error resource_deadlock_would_occur when the calling thread has the
    /// lock, because it is the writer or in the middle of an insertion.
    LineEntry Begin();

    /// Goes on with the line that the calling thread has begun. Does not block.
    ///
    /// @return no line when the calling thread has none open.
    LineEntry Enter();

    /// Takes the lock to use the policy outside of a line, also while the logger is disabled.
    ///
    /// @param patient  Wait for up to 2.1 s; else not at all.
    /// @return nothing when the lock was not to be had.
    LineEntry Occupy(bool patient);

    /// @return whether the calling thread has the lock, as composer or as writer.
    bool HeldByCaller() const;

    /// Takes a line back that was handed over, when its writer could not be told.
    /// @return false when the writer has seen it before.
    bool TakeBack();

    /// One Enable() or Close() at a time. While it exists the calling thread is not cancelled.
    /// @par Thread safety
    /// Belongs to the thread that made it.
    class TOLVEX_EXPORT Control
    {
    public:
        /// Blocks while another thread is in one; a thread that is in one already does not enter.
        /// @param lineLock  Not owned; must outlive this object.
        explicit Control(LineLock& lineLock);
        /// Lets the next one enter, and cancellation too.
        ~Control();

        Control(const Control&) = delete;
        Control& operator=(const Control&) = delete;

        /// @return false when the calling thread is in the middle of another one already.
        explicit operator bool() const { return entered; }

    private:
        LineState* state;
        int cancelState = 0;
        bool entered;
    };

    /// Sets enabled: lines may begin.
    /// @return false when the writer that was announced has ended already; then nothing has
    /// changed.
    bool Admit();

    /// Clears enabled. A line that is open is dropped, and whoever waits for the lock goes on; a
    /// line that is complete stays the writer's.
    void Refuse();

    /// Polls stopped up to 21 times, every 100 ms.
    ///
    /// @return whether it became true. Does not sleep when it is.
    bool AwaitStopped() const;

    /// Waits until the writer of a closed logger has ended or hangs in its policy.
    void AwaitOldWriter() const;

    /// Clears stopped. @return the number of the writer to be created.
    std::uint32_t AnnounceWriter();

    /// Sets stopped again: the writer could not be created.
    void CancelWriter();

    /// @return whether this is a forked child in which the text of the line may be in any state.
    /// The question clears it.
    bool TextIsStale();

    /// Keeps the writers off the logger, which is about to be destroyed: waits for one that is
    /// about to end, and leaves one that hangs in its policy behind.
    void Detach();

private:
    friend class LineWriter;

    std::shared_ptr<LineState> state;  ///< shared with the writers; never null
};

/// The writer's side of the line lock. Lives on the writer's thread and may outlive the logger.
/// @par Thread safety
/// Belongs to the writer's thread.
class TOLVEX_EXPORT LineWriter
{
public:
    /// @param lineLock      That of the logger; not kept.
    /// @param writerNumber  As LineLock::AnnounceWriter() gave it.
    LineWriter(const LineLock& lineLock, std::uint32_t writerNumber);
    /// Tells the logger, if there still is one, that its writer has ended.
    ~LineWriter();

    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// What a writer has to do next.
    enum class Step
    {
        Write,  ///< there is a complete line: take its text, then EnterPolicy()
        Wait,   ///< for the semaphore
        End,    ///< stopped is set; the logger must not be touched any more
    };

    /// Spins for a complete line, for up to 50 microseconds, unless that has been in vain lately.
    /// @return whether there is one, and the next step is Step::Write.
    bool TakeSoon();

    /// Finds out what to do after the semaphore has been woken. Does not block.
    /// @return the next step.
    Step Next();

    /// @return the text of the complete line, good until EnterPolicy().
    std::string_view Line();

    /// From here to FinishLine() the logger may be destroyed: only the policy and the text of this
    /// object may be used.
    void EnterPolicy();

    /// Releases the line lock. Does not block.
    /// @return the next step.
    Step FinishLine();

    std::string text;  ///< the line in hand; keeps its memory

private:
    std::shared_ptr<LineState> state;
    std::uint32_t number;
    std::string_view lastLine;  ///< where the text of the next one will most likely be; not read
};

}  // namespace Tolvex::Ilog
