/// @file
/// Where finished log lines go: a file, the console, or a class of the application's own, as in
/// examples/LogLines.cpp.
#pragma once

#include <memory>
#include <ostream>
#include <string>

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
    /// @param name  What it means is the policy's own, such as the name of a file.
    virtual void SetOutput(const std::string& name);

    /// Puts a finished line where it belongs.
    /// @param line  The whole line, its newline included.
    virtual void Write(const std::string& line) = 0;

    /// Ends the use of the output. Does nothing here.
    /// @note Called during a Write() that hangs for more than 2.1 s.
    virtual void Close();

    /// Tells the type of the line that the next Write() brings. Does nothing here.
    /// @param type  Any value: LogType may be cast from other numbers.
    virtual void WriteHeader(LogType type);
};

/// Appends each line to a file, which is opened and closed for every line.
///
/// Nothing is held in between: others may move, delete or truncate the file at any time, and the
/// next line creates the file again or appends to it. A line is one append, so lines of several
/// processes do not mix. If the disk is full, the line is lost. After a partial write the next line
/// for the same file starts on a new line.
/// @par Errors
/// A file that cannot be opened or written loses the line. Nothing is reported.
/// @par Thread safety
/// Caller serialises.
class TOLVEX_EXPORT FileLogPolicy : public ILogPolicy
{
    struct TornEnd;

public:
    /// Has no output yet.
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
    /// after a power cut, a newline is written before the line.
    void RepairEnd();

private:
    std::string fileName;
    bool outputSet = false;            ///< shared: Close() may come while a Write() hangs
    std::shared_ptr<TornEnd> tornEnd;  ///< outlives a Write() that hangs
};

/// Prints each line on standard output, in the colour of its type.
///
/// Warnings are yellow, errors red, notices green; any other type has no colour. The line and its
/// escape sequences leave in one piece. Standard output is not flushed. A failed state of std::cout
/// is cleared before each line, also one that the application has set: the failure may have passed.
/// @par Thread safety
/// Caller serialises. Other threads may use standard output meanwhile.
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

    /// Writes the escape sequence, whatever number format and width are set in the stream.
    /// @param stream  Where to.
    /// @param color   The colour to switch to.
    /// @return the stream.
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
