/// @file
/// Where finished log lines go: a file, the console, or a class of the application's own, as in
/// examples/LogLines.cpp.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "Tolvex/Log/LogDurability.h"
#include "Tolvex/Log/LogType.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Ilog {

/// The sink at the end of a logger (LoggerBase). It receives finished lines one at a time.
///
/// An application's own policy must be default-constructible. It must not log through the logger
/// that it belongs to: WriteHeader() of that logger throws std::system_error
/// (resource_deadlock_would_occur) when Write() calls it.
/// @par Errors
/// An exception out of Write(), if it is derived from std::exception, loses that line only.
/// @par Thread safety
/// Caller serialises; the logger that owns the policy does so.
class TOLVEX_EXPORT ILogPolicy
{
public:
    /// Called by the destructor of the logger that owns the policy.
    virtual ~ILogPolicy();

    /// Chooses where the lines go. Does nothing here.
    /// @param name  The policy defines its meaning, such as the name of a file.
    virtual void SetOutput(const std::string& name);

    /// Puts a finished line where it belongs.
    /// @param line  The whole line, its newline included.
    virtual void Write(const std::string& line) = 0;

    /// Ends the use of the output. Does nothing here.
    /// @note Is also called while a Write() hangs for more than 2.1 s.
    virtual void Close();

    /// Tells the type of the line that the next Write() brings. Does nothing here.
    /// @param type  Any value: LogType may be cast from other numbers.
    virtual void WriteHeader(LogType type);
};

/// Appends each line to a file, which is opened and closed for every line.
///
/// Between lines the file is closed: others may move, delete or truncate the file at any time, and
/// the next line creates the file again or appends to it. A line is one append, so lines of several
/// processes do not mix. If the disk is full, the line is lost. After a partial write the next line
/// for the same file starts on a new line. The policy remembers the last such file only.
/// @code
/// FileLogPolicy policy;
/// policy.SetOutput("/var/log/camera.log");
/// policy.SetDurability(LogDurability::Interval, std::chrono::seconds(1));
/// policy.SetSizeLimit(1000000, 3);  // camera.log, camera.log.1, camera.log.2, camera.log.3
/// policy.Write("a line\n");
/// @endcode
/// @par Errors
/// A file that cannot be opened or written loses the line. A line that cannot be brought to the
/// medium is as safe as with LogDurability::None; the next one tries again. A file that cannot be
/// renamed grows beyond its limit; the policy tries again every two seconds. Nothing is reported.
/// @par Thread safety
/// Caller serialises. SetDurability(), SetSizeLimit() and BeginIgnitionOff() are thread-safe.
class TOLVEX_EXPORT FileLogPolicy : public ILogPolicy
{
    struct State;

public:
    /// Has no output yet. LogDurability::None, no size limit.
    FileLogPolicy();
    /// Closes nothing: the file is open only while a line is written.
    ~FileLogPolicy() override;

    /// Stores the name of the file. The file is neither opened nor created nor checked.
    /// @param name  Path, relative to the working directory of each Write(); empty writes nothing.
    void SetOutput(const std::string& name) override;

    /// Appends exactly the bytes of the line. Does nothing without an output, or with an empty
    /// name. Blocks as long as the file system does.
    /// @param line  The whole line, its newline included.
    void Write(const std::string& line) override;

    /// Ends the output. The name is kept, but only a new SetOutput() lets lines be written again.
    void Close() override;

    /// Lets the next Write() look at the end of the file: if the file does not end in a newline, as
    /// after a power cut, a newline is written before the line. Also ends BeginIgnitionOff().
    void RepairEnd();

    /// Chooses when the lines reach the medium. Applies to all files, from the next line on. Other
    /// processes that log to the same file should choose the same.
    ///
    /// - LogDurability::EachLine: Write() returns when the line is on the medium, and with it all
    ///   lines before.
    /// - LogDurability::Interval: a thread of the policy syncs the file and ends. So Write() does
    ///   not wait. If the thread cannot be created, Write() syncs. The interval ends when the sync
    ///   begins. Close() does not wait for it. A process that exits before the time has passed
    ///   leaves the lines to the file system.
    ///
    /// The first line in a file also syncs the directory, so that the file itself is not lost.
    /// @param mode      Until the next call.
    /// @param interval  For LogDurability::Interval; with 0 or less it works as EachLine. If
    ///                  it is shortened, waiting lines follow it at most 100 ms later.
    void SetDurability(LogDurability mode, std::chrono::milliseconds interval = {});

    /// Limits the size of the file. Applies from the next line on.
    ///
    /// A line that would make the file longer goes to a new one. Before that the file gets the name
    /// with ".1" behind it, the one of that name ".2", and so on. The oldest one is removed. No
    /// line is divided: one that is longer than the limit gets a file of its own. The first line
    /// after RepairEnd() counts as one byte longer.
    ///
    /// Several processes may share the file. All of them should set the same limit. They lock the
    /// file (flock()) for each line, so that a file gets no lines after it was renamed. If another
    /// process keeps the lock for 200 ms, the line is written without it. A process that is killed
    /// at any moment loses no line of the others.
    /// @param bytes      0 for no limit.
    /// @param keptFiles  How many old files are kept, at most 65535; 0 removes the full file. Older
    ///                   ones that a larger number has left are not removed.
    /// @note If a numbered name is a directory, the file may not be renamed.
    void SetSizeLimit(std::uint64_t bytes, unsigned keptFiles);

    /// Syncs each line from now on until the next RepairEnd(), unless the mode is
    /// LogDurability::None. Thread-safe.
    void BeginIgnitionOff();

private:
    std::string fileName;
    bool outputSet = false;        ///< shared: Close() may come while a Write() hangs
    std::shared_ptr<State> state;  ///< settings and current file; Write() keeps the file
};

/// Prints each line on standard output, in the colour of its type.
///
/// Warnings are yellow, errors red, notices green; any other type has no colour. The line and its
/// escape sequences leave in one piece. Standard output is not flushed, unless std::unitbuf is set
/// in std::cout or std::cout is in a failed state. The policy neither sets nor clears that state.
/// @par Thread safety
/// Caller serialises. Other threads may write to standard output meanwhile, unless the application
/// has called std::ios_base::sync_with_stdio(false). They must not change the flags or the buffer
/// of std::cout.
class TOLVEX_EXPORT ConsoleLogPolicy : public ILogPolicy
{
public:
    /// Begins with LogType::Info.
    ConsoleLogPolicy();
    /// Leaves standard output as it is.
    ~ConsoleLogPolicy() override;

    /// Prints the line in the colour of the type that WriteHeader() told last. Blocks while
    /// standard output takes nothing more.
    /// @param line  The whole line, its newline included.
    void Write(const std::string& line) override;

    /// Keeps the type for the lines to come. Writes nothing.
    /// @param type  A value that is not known has no colour.
    void WriteHeader(LogType type) override;

private:
    LogType lineType = LogType::Info;
};

/// ANSI numbers of the colours on the console.
enum class ColorCode : int
{
    Red = 31,      ///< errors
    Green = 32,    ///< notices
    Yellow = 33,   ///< warnings
    Default = 39,  ///< what a coloured line ends with
};

/// Switches the colour of a terminal when it is streamed: ESC [ number m.
/// @code
/// std::cout << Ilog::ColoredLog(Ilog::ColorCode::Red) << "no signal"
///           << Ilog::ColoredLog(Ilog::ColorCode::Default) << '\n';
/// @endcode
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT ColoredLog
{
public:
    /// @param colorCode  Number of the colour; any number is written as it is.
    ColoredLog(ColorCode colorCode) : code(colorCode) {}

    friend TOLVEX_EXPORT std::ostream& operator<<(std::ostream& stream, const ColoredLog& color);

private:
    ColorCode code;
};

/// Writes the escape sequence, whatever number format and width are set in the stream.
/// @param stream  Where to.
/// @param color   The colour to switch to.
/// @return the stream.
TOLVEX_EXPORT std::ostream& operator<<(std::ostream& stream, const ColoredLog& color);

}  // namespace Tolvex::Ilog
